// Any bytes as what a client of kolt-bridged sends. The first byte chooses how they are read: bit 0 a message of
// protocol 52, bit 1 a greeting, else a call; bit 2 a descriptor came with it. Handlers use all that they are given.
#include "bridged/requests/dispatch.h"
#include "bridged/requests/parse.h"
#include "lib/record_size.h"
#include "support/bridged_handlers.h"
#include "support/input.h"

#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

volatile size_t sink;

void serve_call(const uint8_t *message, size_t size, bool has_descriptor) {
    call_request request;
    if (!read_call(message, size, has_descriptor, &request))
        return;
    require(has_descriptor == (request.call == CALL_ADD_EVENT_SOCKET));
    if (has_descriptor) {
        require(request.values[0] == PROTOCOL_BRIDGE_EVENTS || request.values[0] == PROTOCOL_NEIGHBOURS);
        return;
    }
    const call_answer answer = dispatch_call(thorough_handlers(), request);
    require(answer.reply.sequence == request.sequence);
    const bool has_records = requested_record_size(request) != 0 && request.capacity > 0;
    require(static_cast<bool>(answer.table) == has_records);
    require(answer.reply.count == (requested_record_size(request) != 0 ? HANDLED_RECORDS : 0));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    const uint8_t how = data[0];
    data++;
    size--;
    if (how & 1) {
        netlink_request request;
        if (read_netlink_request(data, size, &request))
            sink = static_cast<size_t>(dispatch_netlink_request(thorough_handlers(), request));
        return 0;
    }
    if (how & 2) {
        connection_kind kind;
        if (read_hello(data, size, &kind))
            require(kind == CONNECTION_CALLS || kind == CONNECTION_NETLINK_REQUESTS);
        return 0;
    }
    serve_call(data, size, (how & 4) != 0);
    return 0;
}
