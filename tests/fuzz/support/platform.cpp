// Answers are cut to the room that the caller says it has, in blocks that end with it: what the code reads behind that
// is out of bounds.
#include "support/platform.h"

#include <array>
#include <cerrno>
#include <duon_bridge.h>
#include <eth_encap.h>
#include <net/if.h>
#include <sanitizer/asan_interface.h>
#include <table_message.h>
#include <vector>

extern "C" {
char *__wrap_if_indextoname(unsigned int index, char *name);
unsigned int __wrap_if_nametoindex(const char *name);
}

platform_answers platform;
platform_journal journal;

namespace {

constexpr uint32_t PORT_RECORD = 36;
constexpr uint32_t LARGEST_BUFFER = 600000; // room for a second attempt at the largest entries
constexpr size_t LONGEST_NAME = 16;         // that a configuration can hold

// Names of 13 characters still have VLANs, names of 14 have none.
struct interface {
    const char *name;
    kolt_link_type type;
    uint8_t relay;
    uint8_t path;
    uint8_t class_;
};
constexpr std::array<interface, PLATFORM_INTERFACES> INTERFACES = {{
    {"wlan0", KOLT_LINK_2G, 1, 0, 0},
    {"wlan0.1", KOLT_LINK_2G, 0, 1, 0},
    {"wlan0.2", KOLT_LINK_2G, 1, 1, 0},
    {"wlan1.1", KOLT_LINK_5G, 0, 1, 0},
    {"wlan2.1", KOLT_LINK_5G_2, 0, 1, 1},
    {"abcdefghijklm", KOLT_LINK_5G, 1, 1, 0},
    {"abcdefghijklm.1", KOLT_LINK_5G, 1, 1, 0},
    {"abcdefghijklmn", KOLT_LINK_5G_2, 0, 1, 0},
    {"eth0", KOLT_LINK_ETHERNET, 1, 1, 0},
    {"eth1.5", KOLT_LINK_ETHERNET, 0, 0, 1},
    {"plc0", KOLT_LINK_PLC, 0, 1, 0},
    {"br-lan", KOLT_LINK_ETHERNET, 1, 0, 0},
}};

std::array<uint8_t, (PLATFORM_INTERFACES - 1) * PORT_RECORD> all_ports() {
    std::array<uint8_t, (PLATFORM_INTERFACES - 1) * PORT_RECORD> records{};
    for (uint32_t i = 0; i + 1 < PLATFORM_INTERFACES; i++) {
        const uint32_t index = i + 1;
        memcpy(&records[size_t{i} * PORT_RECORD], &index, sizeof index);
    }
    return records;
}

void add_bridge(config *record, const char *name, uint32_t flags) {
    kolt_copy_name(record->bridges[record->bridge_num].name, name);
    record->bridges[record->bridge_num++].flags = flags;
}

// Reads a name to its end, which has to be there.
int set(const char *bridge, const char *ifname) {
    require(strlen(bridge) <= LONGEST_NAME && strlen(ifname) <= LONGEST_NAME);
    journal.settings++;
    return platform.setting;
}

// Blocks are used again, as getting large ones from the system would take most of the time. Until then they are as good
// as released.
struct block {
    std::unique_ptr<char[]> memory;
    size_t size;
    bool taken;
};
std::vector<block> blocks;

char *take_block(size_t size) {
    auto free_one =
        std::find_if(blocks.begin(), blocks.end(), [size](const block &one) { return !one.taken && one.size == size; });
    if (free_one == blocks.end())
        free_one = blocks.insert(blocks.end(), {std::unique_ptr<char[]>(new char[size]), size, false});
    free_one->taken = true;
    ASAN_UNPOISON_MEMORY_REGION(free_one->memory.get(), size);
    return free_one->memory.get();
}

// More than a few sizes come only of counts that a bridge made up.
void give_block_back(const char *memory) {
    constexpr size_t KEPT = 16;
    const auto taken =
        std::find_if(blocks.begin(), blocks.end(), [memory](const block &one) { return one.memory.get() == memory; });
    require(taken != blocks.end() && taken->taken);
    if (blocks.size() > KEPT) {
        blocks.erase(taken);
        return;
    }
    taken->taken = false;
    ASAN_POISON_MEMORY_REGION(memory, taken->size);
}

// Writes the content to a buffer, and zeros behind it as far as it was announced; both as far as there is room.
void deliver(void *buffer, size_t room, size_t announced, bytes content) {
    auto *to = static_cast<uint8_t *>(buffer);
    const size_t told = std::min(room, content.size());
    std::copy_n(content.begin(), told, to);
    std::fill(to + told, to + std::max(told, std::min(room, announced)), uint8_t{0});
}

struct delivered_table {
    platform_table *told;
    size_t entry_size;
};

delivered_table table_of(int code) {
    require(code == 8 || code == 1 || code == 2);
    if (code == 8)
        return {&platform.ha, 100};
    return code == 1 ? delivered_table{&platform.hd, 24} : delivered_table{&platform.fdb, 16};
}

} // namespace

void platform_reset() {
    require(std::none_of(blocks.begin(), blocks.end(), [](const block &one) { return one.taken; }));
    static const auto ports = all_ports();
    platform = {};
    platform.ports = ports;
    platform.ports_length = ports.size();
    journal = {};
}

void platform_configure(config *record) {
    record->bridge_num = record->interface_num = record->couple_num = 0;
    add_bridge(record, "br-lan", CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION);
    add_bridge(record, "br-wan", CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION);
    add_bridge(record, "a-name-of-16-cha", CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION);
    for (const interface &one : INTERFACES) {
        config_interface &port = record->interfaces[record->interface_num++];
        port = {.type = one.type, .compat_group = 1, .relay = one.relay, .path = one.path, .class_ = one.class_};
        kolt_copy_name(port.name, one.name);
    }
    record->couple_num = 2;
    record->couples[0] = {.lan = "eth0", .guest = "eth1.5"};
    record->couples[1] = {.lan = "abcdefghijklmno", .guest = "wlan0.2"};
    record->param = {.period = 1000, .high_threshold = 70, .delta_threshold = 10, .reserved_ratio = 5};
    record->param.wlan_enable = record->param.estimate_ack_enable = record->param.wifi_rate_check = 1;
    record->param.adjusted_streams = 3;
    record->param.adjusted_ratio = record->param.cpu_threshold = 50;
    record->param.rate_abnormal_threshold = 13;
    record->param.plc_rate_ratio = 100;
}

char *__wrap_if_indextoname(unsigned int index, char *name) {
    if (index >= 1 && index <= INTERFACES.size())
        return strcpy(name, INTERFACES[index - 1].name);
    errno = ENXIO;
    return nullptr;
}

unsigned int __wrap_if_nametoindex(const char *name) {
    for (unsigned int i = 0; i < INTERFACES.size(); i++) {
        if (strcmp(INTERFACES[i].name, name) == 0)
            return i + 1;
    }
    errno = ENODEV;
    return 0;
}

void *bridgeAllocTableBuf(uint32_t size, const char *bridge) {
    require(strlen(bridge) <= LONGEST_NAME);
    if (size > LARGEST_BUFFER)
        return nullptr;
    char *message = take_block(sizeof(message_header) + size);
    message_header header{};
    header.allocated = size;
    memcpy(header.bridge, bridge, strnlen(bridge, sizeof header.bridge));
    store_header(message, header);
    return message + sizeof header;
}

void bridgeFreeTableBuf(void *buf) {
    if (buf != nullptr)
        give_block_back(static_cast<char *>(buf) - sizeof(message_header));
}

int netlink_msg(int type, void *message, uint32_t payload_size, int protocol) {
    require(protocol == 38 && (type == 0 || type == 256));
    message_header header = load_header(message);
    require(header.allocated == payload_size);
    if (!platform.active)
        return -1;
    if (type == 0)
        return 0;
    deliver(static_cast<char *>(message) + sizeof header, payload_size, payload_size, platform.ports);
    header.reply_length = platform.ports_length;
    store_header(message, header);
    return platform.ports_fail ? -1 : 0;
}

int bridgeTableAction(const char * /*bridge*/, int code, uint32_t *entries, void *buf, int zero) {
    require(zero == 0);
    const auto [told, entry_size] = table_of(code);
    deliver(buf, *entries * entry_size, told->count * entry_size, told->entries);
    const bool fits = told->count <= *entries;
    *entries = told->count;
    if (told->second != 0)
        told->count = told->second;
    return fits && !told->fails ? 0 : -1;
}

int bridgeAddHDTableEntries(const char *bridge, const uint8_t *client_mac, const uint8_t *second_mac,
                            const char *ifname, const char *ifname_again, int zero) {
    require(zero == 0 && strcmp(ifname, ifname_again) == 0);
    (void)copy_of({client_mac, KOLT_MAC_SIZE});
    (void)copy_of({second_mac, KOLT_MAC_SIZE});
    journal.hd_entries++;
    return set(bridge, ifname);
}

int bridgeDelHDTableEntriesByMAC(const char *bridge, const uint8_t *mac, const uint8_t *second_mac,
                                 const char *ifname) {
    (void)copy_of({mac, KOLT_MAC_SIZE});
    (void)copy_of({second_mac, KOLT_MAC_SIZE});
    return set(bridge, ifname);
}

int bridgeSetHATableEntries(const char *bridge, uint16_t /*hash*/, const uint8_t *src, const uint8_t *dst,
                            uint16_t /*src_port*/, uint16_t /*dst_port*/, const char *ifname, uint16_t /*stream_kind*/,
                            uint32_t /*carried_value*/) {
    (void)copy_of({src, KOLT_MAC_SIZE});
    (void)copy_of({dst, KOLT_MAC_SIZE});
    journal.ha_entries++;
    return set(bridge, ifname);
}

int bridgeFlushHDTable(const char *bridge) {
    journal.hd_flushes++;
    return set(bridge, "");
}

int bridgeFlushHATable(const char *bridge) {
    journal.ha_flushes++;
    return set(bridge, "");
}

int bridgeDelFdbByName(const char *bridge, const char *ifname) {
    return set(bridge, ifname);
}

int bridgeSetEventInfo(const char *bridge, int /*pid*/, int events, int protocol) {
    require(events == 3 && protocol == 38);
    return set(bridge, "");
}

int bridgeSetBridgeMode(const char *bridge, int mode) {
    require(mode == 0 || mode == 1);
    return set(bridge, "");
}

int bridgeSetTcpSP(const char *bridge, int value) {
    require(value == 0);
    return set(bridge, "");
}

int bridgeSetFollowRE(const char *bridge, int value) {
    require(value == 1);
    return set(bridge, "");
}

int bridgeSetIFGroup(const char *bridge, const char *ifname, int group, int group_again) {
    require(group == group_again);
    return set(bridge, ifname);
}

int bridgeSetIFType(const char *bridge, const char *ifname, int type) {
    require(type >= 0 && type < 5);
    return set(bridge, ifname);
}

int bridgeSetIFClass(const char *bridge, const char *ifname, int /*bcast_class*/) {
    return set(bridge, ifname);
}

int bridgeSetIFPath(const char *bridge, const char *ifname, int /*path*/) {
    return set(bridge, ifname);
}

int bridgeSetIFCompat(const char *bridge, const char *ifname, int /*compat_group*/) {
    return set(bridge, ifname);
}

int bridgeSetIFBroadcast(const char *bridge, const char *ifname, int allow) {
    require(allow == 0 || allow == 1);
    return set(bridge, ifname);
}

int bridgeSetNeedha(const char *bridge, const char *ifname, int /*needha*/) {
    return set(bridge, ifname);
}

int bridgeSetCouple(const char *bridge, const char *ifname, const char *couple, int first) {
    require(strlen(couple) <= LONGEST_NAME && (first == 0 || first == 1));
    return set(bridge, ifname);
}

int uci_get_profile_eths(char names[][16], int capacity) {
    deliver(names, static_cast<size_t>(capacity) * KOLT_NAME_SIZE, 0, platform.ethernets);
    return 0;
}

int uci_get_eth_port_num(int *count) {
    *count = platform.ethernet_count;
    return 0;
}
