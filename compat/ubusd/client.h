// Connections of clients: accepting, receiving, queued sending, closing.
#pragma once

#include "bus.h"

// Accepts all connections that wait at the listening socket, greets them, and serves them from the event loop.
void client_accept(uloop_fd *listener, unsigned events);

// Queues a message, header numbers in host order, and sends what the socket takes. A client that lets more than
// MAX_QUEUED_BYTES pile up is disconnected.
void client_send(bus_client &client, ubus_msg_type type, uint16_t seq, uint32_t peer, const blob_attr *body);

// Disconnects all clients and releases them.
void client_release_all();
