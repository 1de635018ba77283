// Every call of the two libraries: what arrives at kolt-bridged, and what comes of a failure there.
#include "linux/support/library_test.h"

namespace {

constexpr uint8_t FIRST[] = {2, 0, 0, 0, 0, 1};
constexpr uint8_t SECOND[] = {2, 0, 0, 0, 0, 2};

struct row {
    const char *handler;
    const char *arguments;
    int (*call)();
};

const row ROWS[] = {
    {"set_bridge_mode", "br-lan, 1", [] { return bridgeSetBridgeMode("br-lan", 1); }},
    {"set_tcp_sp", "br-lan, -1", [] { return bridgeSetTcpSP("br-lan", -1); }},
    {"set_follow_re", "br-lan, 1", [] { return bridgeSetFollowRE("br-lan", 1); }},
    {"set_if_group", "br-lan, eth0, 1, 2", [] { return bridgeSetIFGroup("br-lan", "eth0", 1, 2); }},
    {"set_if_type", "br-lan, eth0, 3", [] { return bridgeSetIFType("br-lan", "eth0", 3); }},
    {"set_if_class", "br-lan, eth0, 1", [] { return bridgeSetIFClass("br-lan", "eth0", 1); }},
    {"set_if_path", "br-lan, eth0, 1", [] { return bridgeSetIFPath("br-lan", "eth0", 1); }},
    {"set_if_compat", "br-lan, eth0, 255", [] { return bridgeSetIFCompat("br-lan", "eth0", 255); }},
    {"set_if_broadcast", "br-lan, eth0, 1", [] { return bridgeSetIFBroadcast("br-lan", "eth0", 1); }},
    {"set_needha", "br-lan, eth0, 1", [] { return bridgeSetNeedha("br-lan", "eth0", 1); }},
    {"set_couple", "br-lan, eth0, eth1, 1", [] { return bridgeSetCouple("br-lan", "eth0", "eth1", 1); }},
    {"add_hd_entry", "br-lan, 02:00:00:00:00:01, 02:00:00:00:00:02, eth0, eth1",
     [] { return bridgeAddHDTableEntries("br-lan", FIRST, SECOND, "eth0", "eth1", 0); }},
    {"delete_hd_entries", "br-lan, 02:00:00:00:00:01, 02:00:00:00:00:02, eth0",
     [] { return bridgeDelHDTableEntriesByMAC("br-lan", FIRST, SECOND, "eth0"); }},
    {"set_ha_entry", "br-lan, 02:00:00:00:00:01, 02:00:00:00:00:02, 1, 2, 3, 4, 5, eth0",
     [] { return bridgeSetHATableEntries("br-lan", 1, FIRST, SECOND, 2, 3, "eth0", 4, 5); }},
    {"flush_hd_table", "br-lan", [] { return bridgeFlushHDTable("br-lan"); }},
    {"flush_ha_table", "br-lan", [] { return bridgeFlushHATable("br-lan"); }},
    {"flush_fdb", "br-lan, eth0", [] { return bridgeDelFdbByName("br-lan", "eth0"); }},
    {"set_event_info", "br-lan, 4711, 3, 38", [] { return bridgeSetEventInfo("br-lan", 4711, 3, 38); }},
};

class call_test : public library_test, public testing::WithParamInterface<row> {};

TEST_P(call_test, arrives_and_succeeds) {
    server_process server;
    EXPECT_EQ(GetParam().call(), 0);
    EXPECT_EQ(server.calls(), lines{std::string(GetParam().handler) + "(" + GetParam().arguments + ")"});
}

TEST_P(call_test, fails_with_minus_one_whatever_kolt_bridged_says) {
    recorded_node node;
    node.failures[GetParam().handler] = 7;
    const server_process server(std::move(node));
    EXPECT_EQ(GetParam().call(), -1);
}

TEST_P(call_test, fails_at_once_without_kolt_bridged) {
    EXPECT_LT(time_of([] { EXPECT_EQ(GetParam().call(), -1); }), std::chrono::milliseconds(1500));
}

INSTANTIATE_TEST_SUITE_P(calls, call_test, testing::ValuesIn(ROWS),
                         [](const auto &tested) { return std::string(tested.param.handler); });

class argument_test : public library_test {
protected:
    server_process server_;
};

TEST_F(argument_test, of_the_longest_name_arrives_whole_and_a_longer_one_is_refused_unasked) {
    EXPECT_EQ(bridgeSetIFType("bridge-of-15-ch", "port--of--15-ch", 1), 0);
    EXPECT_EQ(server_.calls(), lines{"set_if_type(bridge-of-15-ch, port--of--15-ch, 1)"});
    EXPECT_EQ(bridgeSetIFType("bridge--of-16-ch", "eth0", 1), -1);
    EXPECT_EQ(bridgeSetIFType("br-lan", "port---of--16-ch", 1), -1);
    EXPECT_EQ(bridgeSetCouple("br-lan", "eth0", "port---of--16-ch", 1), -1);
    EXPECT_EQ(server_.calls(), lines{});
}

TEST_F(argument_test, that_is_missing_is_refused_unasked_or_empty) {
    EXPECT_EQ(bridgeFlushHDTable(nullptr), -1);
    EXPECT_EQ(bridgeFlushHDTable(""), -1);
    EXPECT_EQ(bridgeAddHDTableEntries("br-lan", nullptr, SECOND, "eth0", "eth0", 0), -1);
    EXPECT_EQ(bridgeDelHDTableEntriesByMAC("br-lan", nullptr, SECOND, "eth0"), -1);
    EXPECT_EQ(bridgeSetHATableEntries("br-lan", 1, nullptr, SECOND, 2, 3, "eth0", 4, 5), -1);
    EXPECT_EQ(bridgeSetHATableEntries("br-lan", 1, FIRST, nullptr, 2, 3, "eth0", 4, 5), -1);
    EXPECT_EQ(server_.calls(), lines{});
    EXPECT_EQ(bridgeAddHDTableEntries("br-lan", FIRST, nullptr, "", nullptr, 0), 0);
    EXPECT_EQ(server_.calls(), lines{"add_hd_entry(br-lan, 02:00:00:00:00:01, 00:00:00:00:00:00, , )"});
}

} // namespace
