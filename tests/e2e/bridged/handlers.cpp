#include "handlers.h"

#include "journal.h"
#include "script.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <vector>

namespace {

int finish(journal_line &line, const char *function, const char *bridge) {
    int result = 0;
    (void)scripted_failure(function, bridge, &result);
    return line.result(result);
}

// A function's name as the type of its handler.
template <size_t Size> struct name {
    char text[Size];
    constexpr name(const char (&literal)[Size]) {
        std::copy_n(literal, Size, text);
    }
};

template <name Function> int of_bridge(void * /*context*/, const char *bridge) {
    journal_line line(Function.text);
    line.text("bridge", bridge);
    return finish(line, Function.text, bridge);
}

template <name Function, name Key> int of_bridge_value(void * /*context*/, const char *bridge, int32_t value) {
    journal_line line(Function.text);
    line.text("bridge", bridge).number(Key.text, value);
    return finish(line, Function.text, bridge);
}

template <name Function, name Key>
int of_port_value(void * /*context*/, const char *bridge, const char *ifname, int32_t value) {
    journal_line line(Function.text);
    line.text("bridge", bridge).text("ifname", ifname).number(Key.text, value);
    return finish(line, Function.text, bridge);
}

int set_group(void * /*context*/, const char *bridge, const char *ifname, int32_t group, int32_t group_again) {
    journal_line line("bridgeSetIFGroup");
    line.text("bridge", bridge).text("ifname", ifname).number("group", group).number("group_again", group_again);
    return finish(line, "bridgeSetIFGroup", bridge);
}

int set_couple(void * /*context*/, const char *bridge, const char *ifname, const char *couple, int32_t first) {
    journal_line line("bridgeSetCouple");
    line.text("bridge", bridge).text("ifname", ifname).text("couple", couple).number("first", first);
    return finish(line, "bridgeSetCouple", bridge);
}

int flush_fdb(void * /*context*/, const char *bridge, const char *ifname) {
    journal_line line("bridgeDelFdbByName");
    line.text("bridge", bridge).text("ifname", ifname);
    return finish(line, "bridgeDelFdbByName", bridge);
}

int set_event_info(void * /*context*/, const char *bridge, int32_t pid, int32_t events, int32_t protocol) {
    journal_line line("bridgeSetEventInfo");
    line.text("bridge", bridge).number("pid", pid).number("events", events).number("protocol", protocol);
    return finish(line, "bridgeSetEventInfo", bridge);
}

int add_hd_entry(void * /*context*/, const char *bridge, const uint8_t *client_mac, const uint8_t *second_mac,
                 const char *ifname, const char *ifname_again) {
    journal_line line("bridgeAddHDTableEntries");
    line.text("bridge", bridge).mac("client_mac", client_mac).mac("second_mac", second_mac);
    line.text("ifname", ifname).text("ifname_again", ifname_again).number("zero", 0);
    return finish(line, "bridgeAddHDTableEntries", bridge);
}

int delete_hd_entries(void * /*context*/, const char *bridge, const uint8_t *mac, const uint8_t *second_mac,
                      const char *ifname) {
    journal_line line("bridgeDelHDTableEntriesByMAC");
    line.text("bridge", bridge).mac("mac", mac).mac("second_mac", second_mac).text("ifname", ifname);
    return finish(line, "bridgeDelHDTableEntriesByMAC", bridge);
}

int set_ha_entry(void * /*context*/, const char *bridge, const uint8_t *src_mac, const uint8_t *dst_mac,
                 const stream_key &stream, const char *ifname) {
    journal_line line("bridgeSetHATableEntries");
    line.text("bridge", bridge).number("hash", stream.hash).mac("src", src_mac).mac("dst", dst_mac);
    line.number("src_port", stream.src_port).number("dst_port", stream.dst_port).text("ifname", ifname);
    line.number("stream_kind", stream.stream_kind).number("carried_value", stream.carried_value);
    return finish(line, "bridgeSetHATableEntries", bridge);
}

// The bytes of a file; none without it.
std::vector<char> content(const char *path) {
    std::vector<char> bytes(static_cast<size_t>(std::max(file_size(path), 0L)));
    const long used = read_file(path, bytes.data(), bytes.size());
    bytes.resize(static_cast<size_t>(std::max(used, 0L)));
    return bytes;
}

// The lines of a file, terminated.
std::vector<std::vector<char>> file_lines(const char *path) {
    std::vector<std::vector<char>> lines(1);
    for (const char character : content(path)) {
        if (character != '\n') {
            lines.back().push_back(character);
            continue;
        }
        lines.back().push_back('\0');
        lines.emplace_back();
    }
    lines.pop_back();
    return lines;
}

bool is_known(const char *bridge) {
    char path[PATH_SIZE];
    return bridge_path(path, bridge, "ports") && file_size(path) >= 0;
}

struct table_file {
    bridge_table code;
    size_t record_size;
    const char *file;
};
constexpr table_file TABLE_FILES[] = {
    {BRIDGE_TABLE_FDB, sizeof(bridge_fdb_record), "fdb"},
    {BRIDGE_TABLE_HD, sizeof(bridge_hd_record), "hd"},
    {BRIDGE_TABLE_HA, sizeof(bridge_ha_record), "ha"},
};

int get_table(void * /*context*/, const char *bridge, bridge_table code, table_writer *table) {
    journal_line line("bridgeTableAction");
    line.text("bridge", bridge).number("code", code);
    for (const table_file &kind : TABLE_FILES) {
        char path[PATH_SIZE];
        if (kind.code != code || !is_known(bridge) || !bridge_path(path, bridge, kind.file))
            continue;
        const std::vector<char> records = content(path);
        for (size_t at = 0; at + kind.record_size <= records.size(); at += kind.record_size)
            table_add_bytes(table, records.data() + at, kind.record_size);
        return finish(line, "bridgeTableAction", bridge);
    }
    return line.result(-1);
}

int check_bridge(void * /*context*/, const char *bridge) {
    journal_line line("netlink_msg");
    line.number("type", 0).text("bridge", bridge);
    return line.result(is_known(bridge) ? 0 : -1);
}

int get_ports(void * /*context*/, const char *bridge, table_writer *table) {
    journal_line line("netlink_msg");
    line.number("type", 256).text("bridge", bridge);
    char path[PATH_SIZE];
    if (!is_known(bridge) || !bridge_path(path, bridge, "ports"))
        return line.result(-1);
    for (const std::vector<char> &port : file_lines(path)) {
        if (const uint32_t index = if_nametoindex(port.data()))
            table_add(table, bridge_port_record{.ifindex = index, .unused = {}});
    }
    return line.result(0);
}

int get_ethernets(void * /*context*/, table_writer *table) {
    journal_line line("uci_get_profile_eths");
    for (const std::vector<char> &port : file_lines(NODE_DIR "/eth-names")) {
        ethernet_name_record record{};
        memcpy(record.name, port.data(), std::min(port.size(), sizeof record.name - 1));
        table_add(table, record);
    }
    return line.result(0);
}

void set_bridge_handlers(request_handlers &to) {
    to.set_bridge_mode = of_bridge_value<"bridgeSetBridgeMode", "mode">;
    to.set_tcp_sp = of_bridge_value<"bridgeSetTcpSP", "value">;
    to.set_follow_re = of_bridge_value<"bridgeSetFollowRE", "value">;
    to.flush_hd_table = of_bridge<"bridgeFlushHDTable">;
    to.flush_ha_table = of_bridge<"bridgeFlushHATable">;
    to.set_event_info = set_event_info;
    to.check_bridge = check_bridge;
    to.get_ports = get_ports;
    to.get_ethernets = get_ethernets;
    to.get_table = get_table;
}

void set_port_handlers(request_handlers &to) {
    to.set_if_group = set_group;
    to.set_if_type = of_port_value<"bridgeSetIFType", "type">;
    to.set_if_class = of_port_value<"bridgeSetIFClass", "bcast_class">;
    to.set_if_path = of_port_value<"bridgeSetIFPath", "path">;
    to.set_if_compat = of_port_value<"bridgeSetIFCompat", "compat_group">;
    to.set_if_broadcast = of_port_value<"bridgeSetIFBroadcast", "allow">;
    to.set_needha = of_port_value<"bridgeSetNeedha", "needha">;
    to.set_couple = set_couple;
    to.flush_fdb = flush_fdb;
}

} // namespace

request_handlers node_handlers(void *context) {
    request_handlers result{};
    result.context = context;
    set_bridge_handlers(result);
    set_port_handlers(result);
    result.add_hd_entry = add_hd_entry;
    result.delete_hd_entries = delete_hd_entries;
    result.set_ha_entry = set_ha_entry;
    return result;
}
