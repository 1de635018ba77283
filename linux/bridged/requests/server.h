// The server's side of what the platform libraries ask: connections, strict reading, answers, event sockets. Everything
// happens on the loop, which must have been initialized, and nothing a client does makes it wait.
#pragma once

#include "bridged/requests/handlers.h"

constexpr int MAX_CONNECTIONS = 64;   // further ones are hung up on
constexpr int MAX_EVENT_SOCKETS = 16; // of all clients together
constexpr size_t MAX_EVENT_PAYLOAD = 4096;

struct requests_server;

// Listens at `path`, for root and for group kolt where there is one; the folder exists. The handlers are copied. A
// socket that a dead server left there is replaced. Null, with errno set, on failure: EADDRINUSE when a live server
// listens there. The caller closes it with requests_close.
[[nodiscard]] requests_server *requests_open(const char *path, const request_handlers &handlers);

// Hangs up on all clients, forgets their event sockets and removes the socket's name. Null is allowed.
void requests_close(requests_server *server);

// Sends a netlink message of `type` to every event socket of `protocol` (39 or 53). A socket that has no room misses
// it. Returns the number of sockets that took it.
int requests_send_event(requests_server *server, int32_t protocol, uint16_t type, const void *payload, size_t size);
