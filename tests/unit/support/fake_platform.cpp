// The functions of the two platform libraries.
#include "support/fake_platform.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <duon_bridge.h>
#include <eth_encap.h>

fake_platform platform;

namespace {

constexpr size_t HEADER = 52;
constexpr size_t NAME_OFFSET = 16; // of the bridge's name within the fake's header
constexpr size_t LENGTH_DISTANCE = 8;
constexpr uint32_t PORT_RECORD = 36;

template <class T> std::string text(T value) {
    return std::to_string(value);
}

std::string text(const char *value) {
    return value;
}

std::string text(const uint8_t *mac) {
    char buffer[18];
    snprintf(buffer, sizeof buffer, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return buffer;
}

template <class First, class... Rest> std::string list(First first, Rest... rest) {
    std::string result = text(first);
    ((result += ", " + text(rest)), ...);
    return result;
}

template <class... Arguments> int call(const char *function, Arguments... arguments) {
    return platform.result_of(function, list(arguments...));
}

void reply_ports(uint8_t *payload, uint32_t size, const std::vector<uint32_t> &ports) {
    memset(payload, 0, size);
    uint32_t length = 0;
    for (const uint32_t port : ports) {
        if (length + PORT_RECORD <= size)
            memcpy(payload + length, &port, sizeof port);
        length += PORT_RECORD;
    }
    if (platform.claimed_reply_length != 0)
        length = platform.claimed_reply_length;
    memcpy(payload - LENGTH_DISTANCE, &length, sizeof length);
}

} // namespace

void fake_platform::fail(const std::string &function, int result, int nth) {
    failures_[function] = {result, nth};
}

int fake_platform::result_of(const std::string &function, const std::string &arguments, int fallback) {
    calls.push_back(function + "(" + arguments + ")");
    const auto found = failures_.find(function);
    if (found == failures_.end())
        return fallback;
    if (found->second.nth == 0)
        return found->second.result;
    found->second.nth--;
    if (found->second.nth > 0)
        return fallback;
    const int result = found->second.result;
    failures_.erase(found);
    return result;
}

std::vector<std::string> fake_platform::programming() const {
    std::vector<std::string> result;
    std::copy_if(calls.begin(), calls.end(), std::back_inserter(result), [](const std::string &line) {
        return line.rfind("bridgeAllocTableBuf", 0) != 0 && line.rfind("bridgeFreeTableBuf", 0) != 0 &&
               line.rfind("netlink_msg", 0) != 0;
    });
    return result;
}

extern "C" {

int bridgeSetBridgeMode(const char *bridge, int mode) {
    return call(__func__, bridge, mode);
}
int bridgeSetTcpSP(const char *bridge, int value) {
    return call(__func__, bridge, value);
}
int bridgeSetFollowRE(const char *bridge, int value) {
    return call(__func__, bridge, value);
}
int bridgeSetIFGroup(const char *bridge, const char *ifname, int group, int group_again) {
    return call(__func__, bridge, ifname, group, group_again);
}
int bridgeSetIFType(const char *bridge, const char *ifname, int type) {
    return call(__func__, bridge, ifname, type);
}
int bridgeSetIFClass(const char *bridge, const char *ifname, int bcast_class) {
    return call(__func__, bridge, ifname, bcast_class);
}
int bridgeSetIFPath(const char *bridge, const char *ifname, int path) {
    return call(__func__, bridge, ifname, path);
}
int bridgeSetIFCompat(const char *bridge, const char *ifname, int compat_group) {
    return call(__func__, bridge, ifname, compat_group);
}
int bridgeSetIFBroadcast(const char *bridge, const char *ifname, int allow) {
    return call(__func__, bridge, ifname, allow);
}
int bridgeSetNeedha(const char *bridge, const char *ifname, int needha) {
    return call(__func__, bridge, ifname, needha);
}
int bridgeSetCouple(const char *bridge, const char *ifname, const char *couple, int first) {
    return call(__func__, bridge, ifname, couple, first);
}
int bridgeFlushHDTable(const char *bridge) {
    return call(__func__, bridge);
}
int bridgeFlushHATable(const char *bridge) {
    return call(__func__, bridge);
}
int bridgeDelFdbByName(const char *bridge, const char *ifname) {
    return call(__func__, bridge, ifname);
}
int bridgeSetEventInfo(const char *bridge, int pid, int events, int protocol) {
    return call(__func__, bridge, pid, events, protocol);
}
int bridgeAddHDTableEntries(const char *bridge, const uint8_t *client_mac, const uint8_t *second_mac,
                            const char *ifname, const char *ifname_again, int zero) {
    return call(__func__, bridge, client_mac, second_mac, ifname, ifname_again, zero);
}
int bridgeDelHDTableEntriesByMAC(const char *bridge, const uint8_t *mac, const uint8_t *second_mac,
                                 const char *ifname) {
    return call(__func__, bridge, mac, second_mac, ifname);
}
int bridgeSetHATableEntries(const char *bridge, uint16_t hash, const uint8_t *src, const uint8_t *dst,
                            uint16_t src_port, uint16_t dst_port, const char *ifname, uint16_t stream_kind,
                            uint32_t carried_value) {
    return call(__func__, bridge, hash, src, dst, src_port, dst_port, ifname, stream_kind, carried_value);
}

void *bridgeAllocTableBuf(uint32_t size, const char *bridge) {
    if (call(__func__, size, bridge) != 0)
        return nullptr;
    auto *message = static_cast<uint8_t *>(malloc(HEADER + size));
    memset(message, 0xA5, HEADER + size);
    snprintf(reinterpret_cast<char *>(message) + NAME_OFFSET, 16, "%s", bridge);
    platform.live_buffers++;
    return message + HEADER;
}

void bridgeFreeTableBuf(void *buf) {
    (void)platform.result_of(__func__, buf == nullptr ? "null" : "");
    if (buf == nullptr)
        return;
    platform.live_buffers--;
    free(static_cast<uint8_t *>(buf) - HEADER);
}

int bridgeTableAction(const char *bridge, int code, uint32_t *entries, void *buf, int zero) {
    const uint32_t capacity = *entries;
    const int scripted = call(__func__, bridge, code, capacity, zero);
    const auto found = platform.tables.find(code);
    const fake_platform::table none{1, {}};
    const fake_platform::table &table = found != platform.tables.end() ? found->second : none;
    const auto held = static_cast<uint32_t>(table.bytes.size() / table.entry_size);
    *entries = platform.claimed_entries != 0 ? platform.claimed_entries : held;
    if (scripted != 0)
        return scripted;
    if (platform.claimed_entries == 0 && held > capacity)
        return 1;
    std::copy_n(table.bytes.begin(), size_t{std::min(held, capacity)} * table.entry_size, static_cast<uint8_t *>(buf));
    return 0;
}

int netlink_msg(int type, void *message, uint32_t payload_size, int protocol) {
    const std::string bridge = static_cast<const char *>(message) + NAME_OFFSET;
    const int scripted = call(__func__, bridge.c_str(), type, payload_size, protocol);
    const auto found = platform.bridges.find(bridge);
    if (scripted != 0 || found == platform.bridges.end())
        return scripted != 0 ? scripted : -1;
    if (type == 256)
        reply_ports(static_cast<uint8_t *>(message) + HEADER, payload_size, found->second);
    return 0;
}

int uci_get_profile_eths(char names[][16], int capacity) {
    const int scripted = call(__func__, capacity);
    for (int i = 0; i < capacity && i < static_cast<int>(platform.eths.size()); i++)
        strncpy(names[i], platform.eths[static_cast<size_t>(i)].c_str(), 16);
    return scripted;
}

int uci_get_eth_port_num(int *count) {
    const int scripted = platform.result_of(__func__, "");
    *count = platform.eth_port_num;
    return scripted;
}
}
