// The netlink sockets that the daemon opens: one end of a pair each, with the target at the other end. A target that
// links this names the calls to be replaced (KoltFuzz.cmake).
#pragma once

#include "support/input.h"

// Hands a datagram to the last socket of a protocol that was opened; false when it takes no more now.
[[nodiscard]] bool sockets_deliver(int protocol, bytes datagram);

// What answers every request of protocol 52 from now on; without content it is a datagram of no length.
void sockets_answer_requests(bytes reply);

// Requests that were sent.
extern int sockets_requests;
