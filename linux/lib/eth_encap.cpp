/*
 * Bridge queries over a table buffer's message, and the Ethernet profile of the device, as requests to kolt-bridged.
 */
#include "lib/connection.h"
#include "lib/records.h"
#include "lib/reply.h"

#pragma GCC visibility push(default)
#include <eth_encap.h>
#pragma GCC visibility pop
#include <table_message.h>

#include <algorithm>

namespace {

constexpr int FAILED = -1;
constexpr int CHECK_BRIDGE = 0;
constexpr int GET_PORTS = 256;
constexpr int BRIDGE_PROTOCOL = 38;

// Fills the payload with port records, as many as there are and it has room for.
int get_ports(message_header *header, char *payload, uint32_t payload_size) {
    named_request named(CALL_GET_PORTS, header->bridge);
    named.request.capacity = payload_size / static_cast<uint32_t>(sizeof(bridge_port_record));
    call_answer answer;
    if (!named.valid || !bridged_call(named.request, -1, &answer) || answer.reply.result != 0)
        return FAILED;
    const auto size = carried_records(named.request, answer.reply) * static_cast<uint32_t>(sizeof(bridge_port_record));
    if (size > 0 && !read_table(answer.table.get(), payload, size))
        return FAILED;
    header->reply_length = size;
    return 0;
}

// Asks for the Ethernet interfaces; the number that there is, or FAILED.
int get_ethernets(void *names, uint32_t capacity) {
    call_request request{};
    request.call = CALL_GET_ETHERNETS;
    request.capacity = capacity;
    call_answer answer;
    if (!bridged_call(request, -1, &answer) || answer.reply.result != 0)
        return FAILED;
    const uint32_t carried = carried_records(request, answer.reply);
    if (carried > 0 && !read_table(answer.table.get(), names, carried * sizeof(ethernet_name_record)))
        return FAILED;
    return static_cast<int>(answer.reply.count);
}

} // namespace

// This library's connection has nothing to say beforehand.
bool bridged_greet(const deadline & /*until*/) {
    return true;
}

int netlink_msg(int type, void *message, uint32_t payload_size, int protocol) {
    if (message == nullptr || protocol != BRIDGE_PROTOCOL)
        return FAILED;
    message_header header = load_header(message);
    header.reply_length = 0;
    int result = FAILED;
    if (type == CHECK_BRIDGE)
        result = bridged_result(named_request(CALL_CHECK_BRIDGE, header.bridge));
    else if (type == GET_PORTS)
        result = get_ports(&header, static_cast<char *>(message) + sizeof header, payload_size);
    store_header(message, header);
    return result;
}

int uci_get_profile_eths(char names[][16], int capacity) {
    if (names == nullptr || capacity < 0)
        return FAILED;
    const int number = get_ethernets(names, static_cast<uint32_t>(capacity));
    if (number == FAILED)
        return FAILED;
    for (int i = 0; i < std::min(number, capacity); i++)
        names[i][sizeof *names - 1] = '\0';
    return 0;
}

int uci_get_eth_port_num(int *count) {
    if (count == nullptr)
        return FAILED;
    const int number = get_ethernets(nullptr, 0);
    *count = std::max(number, 0);
    return number == FAILED ? FAILED : 0;
}
