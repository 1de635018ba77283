// The sockets that a process has opened for the events of kolt-bridged. Each is a pair: the process has one end, the
// library keeps the other one and gives kolt-bridged a copy of it to write to, again whenever it comes back.
#pragma once

#include <cstdint>

// Opens one of that protocol, with the flags of a socket's type. The descriptor of the process's end; -1 with errno set
// to EPROTONOSUPPORT when kolt-bridged cannot be told.
int open_event_socket(int32_t protocol, int flags);
