/*
 * Table buffers, the three tables that a bridge keeps, and the calls that write single entries of them.
 */
#include "lib/connection.h"
#include "lib/record_size.h"
#include "lib/reply.h"

#pragma GCC visibility push(default)
#include <duon_bridge.h>
#pragma GCC visibility pop
#include <table_message.h>

#include <cstdlib>

namespace {

constexpr int FAILED = -1;

// A MAC that was left out is zero.
void copy_mac(uint8_t (&copy)[REQUEST_MAC_SIZE], const uint8_t *mac) {
    if (mac != nullptr)
        memcpy(copy, mac, sizeof copy);
}

// Copies the table that was answered, if it is all there; else there are no entries.
bool take_table(const call_request &request, const call_answer &answer, void *buf) {
    const uint32_t records = carried_records(request, answer.reply);
    return records == 0 || read_table(answer.table.get(), buf, size_t{records} * answer.reply.record_size);
}

} // namespace

// The payload is left as malloc gives it: whoever reads more than a reply holds is then found out by the usual tools.
void *bridgeAllocTableBuf(uint32_t size, const char *bridge) {
    const size_t whole = sizeof(message_header) + size; // which wraps where addresses are short
    if (bridge == nullptr || strnlen(bridge, NAME_SIZE) == NAME_SIZE || whole < size)
        return nullptr;
    // A daemon that polls its bridges comes here first, which is the time to find out whether events still come.
    bridged_refresh();
    char *message = static_cast<char *>(malloc(whole));
    if (message == nullptr)
        return nullptr;
    message_header header{};
    header.allocated = size;
    memcpy(header.bridge, bridge, strlen(bridge));
    store_header(message, header);
    return message + sizeof(message_header);
}

void bridgeFreeTableBuf(void *buf) {
    if (buf != nullptr)
        free(static_cast<char *>(buf) - sizeof(message_header));
}

int bridgeTableAction(const char *bridge, int code, uint32_t *entries, void *buf, int zero) {
    if (entries == nullptr)
        return FAILED;
    const uint32_t capacity = buf != nullptr ? *entries : 0;
    *entries = 0;
    named_request named(CALL_GET_TABLE, bridge);
    named.request.values[0] = code;
    named.request.values[1] = zero;
    named.request.capacity = capacity;
    call_answer answer;
    if (!named.valid || table_record_size(code) == 0 || !bridged_call(named.request, -1, &answer) ||
        answer.reply.result != 0)
        return FAILED;
    if (answer.reply.count <= capacity && !take_table(named.request, answer, buf))
        return FAILED;
    *entries = answer.reply.count;
    return answer.reply.count <= capacity ? 0 : FAILED;
}

int bridgeAddHDTableEntries(const char *bridge, const uint8_t *client_mac, const uint8_t *second_mac,
                            const char *ifname, const char *ifname_again, int zero) {
    if (client_mac == nullptr)
        return FAILED;
    named_request named(CALL_ADD_HD_ENTRY, bridge, ifname, ifname_again);
    copy_mac(named.request.mac, client_mac);
    copy_mac(named.request.second_mac, second_mac);
    named.request.values[0] = zero;
    return bridged_result(named);
}

int bridgeDelHDTableEntriesByMAC(const char *bridge, const uint8_t *mac, const uint8_t *second_mac,
                                 const char *ifname) {
    if (mac == nullptr)
        return FAILED;
    named_request named(CALL_DELETE_HD_ENTRIES, bridge, ifname);
    copy_mac(named.request.mac, mac);
    copy_mac(named.request.second_mac, second_mac);
    return bridged_result(named);
}

int bridgeSetHATableEntries(const char *bridge, uint16_t hash, const uint8_t *src, const uint8_t *dst,
                            uint16_t src_port, uint16_t dst_port, const char *ifname, uint16_t stream_kind,
                            uint32_t carried_value) {
    if (src == nullptr || dst == nullptr)
        return FAILED;
    named_request named(CALL_SET_HA_ENTRY, bridge, ifname);
    copy_mac(named.request.mac, src);
    copy_mac(named.request.second_mac, dst);
    named.request.stream = {.hash = hash,
                            .src_port = src_port,
                            .dst_port = dst_port,
                            .stream_kind = stream_kind,
                            .carried_value = carried_value};
    return bridged_result(named);
}
