// Each call reaches its handler, and what the handler says reaches the caller.
#include "linux/support/server_test.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace {

struct row {
    const char *name;
    call_code call;
    const char *handler;
    const char *arguments;
};

constexpr row ROWS[] = {
    {"BridgeMode", CALL_SET_BRIDGE_MODE, "set_bridge_mode", "br-lan, 11"},
    {"TcpSp", CALL_SET_TCP_SP, "set_tcp_sp", "br-lan, 11"},
    {"FollowRe", CALL_SET_FOLLOW_RE, "set_follow_re", "br-lan, 11"},
    {"Group", CALL_SET_IF_GROUP, "set_if_group", "br-lan, eth0, 11, -22"},
    {"Type", CALL_SET_IF_TYPE, "set_if_type", "br-lan, eth0, 11"},
    {"Class", CALL_SET_IF_CLASS, "set_if_class", "br-lan, eth0, 11"},
    {"Path", CALL_SET_IF_PATH, "set_if_path", "br-lan, eth0, 11"},
    {"Compat", CALL_SET_IF_COMPAT, "set_if_compat", "br-lan, eth0, 11"},
    {"Broadcast", CALL_SET_IF_BROADCAST, "set_if_broadcast", "br-lan, eth0, 11"},
    {"Needha", CALL_SET_NEEDHA, "set_needha", "br-lan, eth0, 11"},
    {"Couple", CALL_SET_COUPLE, "set_couple", "br-lan, eth0, eth1, 11"},
    {"AddHd", CALL_ADD_HD_ENTRY, "add_hd_entry", "br-lan, 02:00:00:00:00:01, 02:00:00:00:00:02, eth0, eth1"},
    {"DeleteHd", CALL_DELETE_HD_ENTRIES, "delete_hd_entries", "br-lan, 02:00:00:00:00:01, 02:00:00:00:00:02, eth0"},
    {"SetHa", CALL_SET_HA_ENTRY, "set_ha_entry", "br-lan, 02:00:00:00:00:01, 02:00:00:00:00:02, 1, 2, 3, 4, 5, eth0"},
    {"FlushHd", CALL_FLUSH_HD_TABLE, "flush_hd_table", "br-lan"},
    {"FlushHa", CALL_FLUSH_HA_TABLE, "flush_ha_table", "br-lan"},
    {"FlushFdb", CALL_FLUSH_FDB, "flush_fdb", "br-lan, eth0"},
    {"EventInfo", CALL_SET_EVENT_INFO, "set_event_info", "br-lan, 11, -22, 33"},
    {"CheckBridge", CALL_CHECK_BRIDGE, "check_bridge", "br-lan"},
};

class call_test : public server_test, public testing::WithParamInterface<row> {
protected:
    // Every member holds something of its own, so that one taken for another shows.
    static call_request full_request(call_code call) {
        call_request result = request(call, "br-lan", "eth0");
        memcpy(result.other_name, "eth1", 4);
        const uint8_t mac[] = {2, 0, 0, 0, 0, 1};
        memcpy(result.mac, mac, sizeof mac);
        memcpy(result.second_mac, mac, sizeof mac);
        result.second_mac[5] = 2;
        result.values[0] = 11;
        result.values[1] = -22;
        result.values[2] = 33;
        result.stream = {.hash = 1, .src_port = 2, .dst_port = 3, .stream_kind = 4, .carried_value = 5};
        return result;
    }
};

TEST_P(call_test, reaches_its_handler_and_brings_its_result_back) {
    const unique_fd client = greeted();
    const answered good = ask(client, full_request(GetParam().call));
    EXPECT_EQ(good.reply.sequence, 7U);
    EXPECT_EQ(good.reply.result, 0);
    EXPECT_EQ(good.reply.count, 0U);
    EXPECT_FALSE(good.table);
    node_.failures[GetParam().handler] = -5;
    EXPECT_EQ(ask(client, full_request(GetParam().call)).reply.result, -5);
    const std::string call = std::string(GetParam().handler) + "(" + GetParam().arguments + ")";
    EXPECT_EQ(node_.calls, (lines{call, call}));
}

TEST_P(call_test, fails_without_a_handler) {
    open_server(request_handlers{});
    EXPECT_NE(ask(greeted(), full_request(GetParam().call)).reply.result, 0);
}

INSTANTIATE_TEST_SUITE_P(calls, call_test, testing::ValuesIn(ROWS),
                         [](const auto &tested) { return std::string(tested.param.name); });

class table_test : public server_test {
protected:
    static call_request table_request(int32_t code, uint32_t capacity) {
        call_request result = request(CALL_GET_TABLE);
        result.values[0] = code;
        result.capacity = capacity;
        return result;
    }
    static std::string content(const unique_fd &table) {
        struct stat status {};
        if (!table || fstat(table.get(), &status) != 0)
            return "";
        std::string bytes(static_cast<size_t>(status.st_size), '\0');
        EXPECT_EQ(pread(table.get(), bytes.data(), bytes.size(), 0), status.st_size);
        return bytes;
    }
};

TEST_F(table_test, comes_as_a_sealed_file) {
    const std::string first(16, 'a');
    const std::string second(16, 'b');
    node_.tables[BRIDGE_TABLE_FDB] = {first, second};
    const answered answer = ask(greeted(), table_request(BRIDGE_TABLE_FDB, 2));
    EXPECT_EQ(answer.reply.result, 0);
    EXPECT_EQ(answer.reply.count, 2U);
    EXPECT_EQ(answer.reply.record_size, 16U);
    EXPECT_EQ(content(answer.table), first + second);
    EXPECT_EQ(fcntl(answer.table.get(), F_GET_SEALS), F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE);
    EXPECT_EQ(node_.calls, lines{"get_table(br-lan, 2)"});
}

TEST_F(table_test, has_no_more_records_than_the_caller_has_room_for) {
    node_.tables[BRIDGE_TABLE_HD] = {std::string(24, 'a'), std::string(24, 'b'), std::string(24, 'c')};
    const answered answer = ask(greeted(), table_request(BRIDGE_TABLE_HD, 2));
    EXPECT_EQ(answer.reply.count, 3U);
    EXPECT_EQ(content(answer.table), std::string(24, 'a') + std::string(24, 'b'));
}

TEST_F(table_test, of_many_records_is_complete) {
    std::string all;
    for (int i = 0; i < 1000; i++) {
        node_.tables[BRIDGE_TABLE_HA].emplace_back(100, static_cast<char>(i));
        all += node_.tables[BRIDGE_TABLE_HA].back();
    }
    EXPECT_EQ(content(ask(greeted(), table_request(BRIDGE_TABLE_HA, 5000)).table), all);
}

TEST_F(table_test, without_records_or_without_room_has_no_file) {
    const unique_fd client = greeted();
    EXPECT_FALSE(ask(client, table_request(BRIDGE_TABLE_HA, 5000)).table);
    node_.tables[BRIDGE_TABLE_HA] = {std::string(100, 'a')};
    const answered answer = ask(client, table_request(BRIDGE_TABLE_HA, 0));
    EXPECT_EQ(answer.reply.count, 1U);
    EXPECT_FALSE(answer.table);
}

TEST_F(table_test, that_failed_brings_nothing) {
    node_.tables[BRIDGE_TABLE_HA] = {std::string(100, 'a')};
    node_.failures["get_table"] = 1;
    const answered answer = ask(greeted(), table_request(BRIDGE_TABLE_HA, 5000));
    EXPECT_EQ(answer.reply.result, 1);
    EXPECT_EQ(answer.reply.count, 0U);
    EXPECT_FALSE(answer.table);
}

TEST_F(table_test, with_a_record_of_another_size_fails) {
    node_.tables[BRIDGE_TABLE_HA] = {std::string(100, 'a')};
    node_.wrong_record_size = true;
    EXPECT_NE(ask(greeted(), table_request(BRIDGE_TABLE_HA, 5000)).reply.result, 0);
}

TEST_F(table_test, of_an_unknown_code_fails_unasked) {
    EXPECT_NE(ask(greeted(), table_request(3, 10)).reply.result, 0);
    EXPECT_EQ(node_.calls, lines{});
}

TEST_F(table_test, of_ports_has_a_record_each) {
    node_.ports = {5, 600};
    call_request ports = request(CALL_GET_PORTS);
    ports.capacity = 128;
    const answered answer = ask(greeted(), ports);
    EXPECT_EQ(answer.reply.record_size, 36U);
    EXPECT_EQ(content(answer.table), raw(bridge_port_record{.ifindex = 5, .unused = {}}) +
                                         raw(bridge_port_record{.ifindex = 600, .unused = {}}));
    EXPECT_EQ(node_.calls, lines{"get_ports(br-lan)"});
}

TEST_F(table_test, of_ethernet_names_needs_no_bridge) {
    node_.ethernets = {"eth0"};
    call_request ethernets = request(CALL_GET_ETHERNETS, "");
    ethernets.capacity = 10;
    EXPECT_EQ(content(ask(greeted(), ethernets).table), "eth0" + std::string(12, '\0'));
}

} // namespace
