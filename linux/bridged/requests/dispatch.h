// From a call that was read to the handler for it.
#pragma once

#include "bridged/requests/handlers.h"
#include "bridged/requests/parse.h"
#include "core/handle.h"

// What goes back to the caller.
struct call_answer {
    call_reply reply{};
    unique_fd table;
};

// Does what a call asks for; every call but that which hands over an event socket.
call_answer dispatch_call(const request_handlers &handlers, const call_request &request);

// Does what a message of protocol 52 asks for: 0, or the error, below 0, that goes back.
int dispatch_netlink_request(const request_handlers &handlers, const netlink_request &request);
