// One connection: a greeting, then requests, each answered before the next is looked at.
#pragma once

#include "bridged/requests/event_sockets.h"
#include "bridged/requests/loop.h"

// What all connections of a server share.
struct client_service {
    request_handlers handlers;
    event_sockets events;
};

struct client {
    uloop_fd watcher;
    uloop_timeout greeting;  // pending until the client has said which kind of connection this is
    client_service *service; // null while the place is free
    connection_kind kind;
    bool greeted;
};

// Takes a connection over into a free place. False when the loop cannot watch it; it is then closed.
bool client_start(client *place, client_service *service, unique_fd connection);

// Hangs up on the client and frees its place.
void client_stop(client *client);
