// Stations that were learnt on another way.
#include "loop_avoidance/node.h"

#include <array>
#include <memory>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char MAC_TEXT[] = "02:11:22:33:44:55";

class WdsCleanUp : public Node {
protected:
    void SetUp() override {
        Node::SetUp();
        add_bridge("br-lan");
        set_neighbours("0", {"eth0"});
    }

    // What the bridge tells of a station that it learnt on the port with this index; every byte that must not be read
    // as part of the index is 0xEE.
    static std::array<uint8_t, LOOP_AVOIDANCE_STATION_EVENT_SIZE> station_on(uint32_t ifindex) {
        std::array<uint8_t, LOOP_AVOIDANCE_STATION_EVENT_SIZE> payload = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
        std::fill(payload.begin() + 6, payload.end(), uint8_t{0xEE});
        payload[6] = static_cast<uint8_t>(ifindex % 256);
        payload[12] = static_cast<uint8_t>(ifindex / 256);
        return payload;
    }

    // The base names whose entries of the station were deleted.
    std::vector<std::string> deleted(uint32_t ifindex) {
        platform.calls.clear();
        loop_avoidance_delete_wds_entry(&config_, station_on(ifindex).data());
        EXPECT_EQ(platform.live_buffers, 0);
        std::vector<std::string> names;
        for (const std::string &call : programming()) {
            const std::string function = "delete_wds_entry(";
            const std::string rest = std::string(", ") + MAC_TEXT + ")";
            EXPECT_EQ(call.rfind(function, 0), 0U) << call;
            EXPECT_GE(call.size(), function.size() + rest.size()) << call;
            EXPECT_EQ(call.substr(call.size() - rest.size()), rest);
            names.push_back(call.substr(function.size(), call.size() - function.size() - rest.size()));
        }
        return names;
    }

    uint32_t index_of(const config_interface &port) {
        for (uint32_t i = 0; i < config_.interface_num; i++) {
            if (&config_.interfaces[i] == &port)
                return platform.bridges["br-lan"][i];
        }
        return 0;
    }
};

TEST_F(WdsCleanUp, CleanUpWithoutConfigurationOrPayloadDoesNothing) {
    const at_log_level debug(2);
    const config_interface &port = add_port("wlan0", KOLT_LINK_2G, 0);
    loop_avoidance_delete_wds_entry(nullptr, station_on(index_of(port)).data());
    loop_avoidance_delete_wds_entry(&config_, nullptr);
    loop_avoidance_delete_wds_entry(nullptr, nullptr);
    EXPECT_THAT(platform.calls, IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(WdsCleanUp, IndexThatTheKernelDoesNotKnowEndsTheCleanUpSilently) {
    const at_log_level debug(2);
    add_port("wlan0", KOLT_LINK_2G);
    EXPECT_THAT(deleted(0), IsEmpty());
    EXPECT_THAT(deleted(65535), IsEmpty());
    EXPECT_THAT(platform.calls, IsEmpty()) << "not even the ports are fetched";
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(WdsCleanUp, InterfaceIsToldAtDebugLevel) {
    const config_interface &port = add_port("wlan0.1", KOLT_LINK_2G, 0);
    (void)deleted(index_of(port));
    EXPECT_THAT(logged_texts("loop_avoidance_delete_wds_entry"), IsEmpty());
    const at_log_level debug(2);
    (void)deleted(index_of(port));
    EXPECT_THAT(logged()[logged().size() - 2],
                (log_line{LOG_DEBUG, "loop_avoidance_delete_wds_entry", "Debug: update fdb from if: wlan0.1"}));
}

TEST_F(WdsCleanUp, IndexIsTakenFromBytesSixAndTwelve) {
    const test_interface station_port("br-lan", 0x0102);
    add_port("wlan0", KOLT_LINK_2G);
    ASSERT_EQ(station_port.index(), 258U);
    EXPECT_THAT(deleted(258), ElementsAre("wlan0"));
    EXPECT_THAT(deleted(0x0201), IsEmpty());
}

TEST_F(WdsCleanUp, StationOnTheBridgeItselfIsDeletedOnAllRelayWifiPorts) {
    const at_log_level debug(2);
    const test_interface bridge("br-lan");
    add_port("eth0", KOLT_LINK_ETHERNET, 1);
    add_port("plc0", KOLT_LINK_PLC, 1);
    add_port("wlan0", KOLT_LINK_2G, 1);
    add_port("wlan1", KOLT_LINK_5G, 1);
    add_port("wlan2", KOLT_LINK_5G_2, 1);
    add_port("wlan3", KOLT_LINK_2G, 0);
    add_port("wlan4", KOLT_LINK_5G, 0);
    add_port("wlan5", KOLT_LINK_5G_2, 0);
    add_port("wlan6", KOLT_LINK_5G, 2);
    EXPECT_THAT(deleted(bridge.index()), ElementsAre("wlan0", "wlan1", "wlan2"));
    EXPECT_EQ(count_calls("uci_get_profile_eths(10)"), 0U) << "no neighbour is asked for";
    EXPECT_THAT(logged_texts(), ElementsAre("Debug: update fdb from if: br-lan"));
}

// ---- Whether a clean-up is needed: a port, whether it has a neighbour, and what follows.

struct need_row {
    const char *name;
    kolt_link_type type;
    uint8_t relay;
    const char *neighbours; // bit 0: the station's port
    bool needed;
};

void PrintTo(const need_row &row, std::ostream *out) {
    *out << row.name;
}

class WdsNeed : public WdsCleanUp, public testing::WithParamInterface<need_row> {};
INSTANTIATE_TEST_SUITE_P(Rows, WdsNeed,
                         testing::Values(need_row{"EthernetRelay", KOLT_LINK_ETHERNET, 1, "0", true},
                                         need_row{"EthernetNonrelay", KOLT_LINK_ETHERNET, 0, "0", true},
                                         need_row{"EthernetRelayWithNeighbour", KOLT_LINK_ETHERNET, 1, "1", false},
                                         need_row{"EthernetNonrelayWithNeighbour", KOLT_LINK_ETHERNET, 0, "1", false},
                                         need_row{"EthernetWithAnotherPortsNeighbour", KOLT_LINK_ETHERNET, 1, "2",
                                                  true},
                                         need_row{"PowerLineRelay", KOLT_LINK_PLC, 1, "0", false},
                                         need_row{"PowerLineNonrelay", KOLT_LINK_PLC, 0, "0", true},
                                         need_row{"PowerLineNonrelayWithNeighbour", KOLT_LINK_PLC, 0, "1", false},
                                         need_row{"Wifi24Relay", KOLT_LINK_2G, 1, "0", false},
                                         need_row{"Wifi24Nonrelay", KOLT_LINK_2G, 0, "0", true},
                                         need_row{"Wifi5Relay", KOLT_LINK_5G, 1, "0", false},
                                         need_row{"Wifi5Nonrelay", KOLT_LINK_5G, 0, "0", true},
                                         need_row{"SecondWifi5Relay", KOLT_LINK_5G_2, 1, "0", false},
                                         need_row{"SecondWifi5Nonrelay", KOLT_LINK_5G_2, 0, "0", true},
                                         need_row{"SecondWifi5NonrelayWithNeighbour", KOLT_LINK_5G_2, 0, "1", false}),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(WdsNeed, NeedOfACleanUpDependsOnTheStationsPort) {
    set_neighbours(GetParam().neighbours, {"station", "other"});
    const config_interface &port = add_port("station", GetParam().type, GetParam().relay);
    add_port("relay.0", KOLT_LINK_2G, 1);
    const std::vector<std::string> names = deleted(index_of(port));
    EXPECT_EQ(std::count(names.begin(), names.end(), "relay"), GetParam().needed ? 1 : 0);
    EXPECT_EQ(names.size(), GetParam().needed ? 1U : 0U);
}

TEST_F(WdsCleanUp, UnlistedPortIsJudgedByTheBitBehindTheLastPorts) {
    set_neighbours("2", {"eth0"});
    const config_interface &port = add_port("wlan0", KOLT_LINK_2G, 0);
    add_port("wlan1", KOLT_LINK_5G, 1);
    EXPECT_THAT(deleted(index_of(port)), IsEmpty());
    EXPECT_THAT(logged_texts(), ElementsAre("Error: can't find ifname[wlan0] in eth_ifname"));
    set_neighbours("1", {"eth0"});
    EXPECT_THAT(deleted(index_of(port)), ElementsAre("wlan1"));
}

TEST_F(WdsCleanUp, PortHasNoNeighbourWithoutTheNeighbourOption) {
    remove_file("/etc/config/tolmux");
    const config_interface &port = add_port("eth0", KOLT_LINK_ETHERNET);
    add_port("wlan1", KOLT_LINK_5G, 1);
    EXPECT_THAT(deleted(index_of(port)), ElementsAre("wlan1"));
}

TEST_F(WdsCleanUp, NeighboursOfTheStationsPortOnlyAreAskedFor) {
    const config_interface &station = add_port("wlan0", KOLT_LINK_2G, 1);
    add_port("wlan1", KOLT_LINK_5G, 1);
    add_port("wlan2", KOLT_LINK_5G, 0);
    EXPECT_THAT(deleted(index_of(station)), IsEmpty());
    EXPECT_EQ(count_calls("uci_get_profile_eths(10)"), 1U);
    EXPECT_THAT(logged_texts(), ElementsAre("Error: can't find ifname[wlan0] in eth_ifname"));
}

TEST_F(WdsCleanUp, InterfaceThatIsNoPortNeedsNoCleanUp) {
    const test_interface stranger("stranger");
    add_port("wlan0", KOLT_LINK_2G, 1);
    EXPECT_THAT(deleted(stranger.index()), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(WdsCleanUp, NameThatOnlyBeginsLikeAPortsNeedsNoCleanUp) {
    const test_interface longer("wlan00");
    const test_interface longer_bridge("br-lan0");
    add_port("wlan0", KOLT_LINK_2G, 0);
    add_port("wlan1", KOLT_LINK_2G, 1);
    EXPECT_THAT(deleted(longer.index()), IsEmpty());
    EXPECT_THAT(deleted(longer_bridge.index()), IsEmpty());
}

// ---- Which bridge

TEST_F(WdsCleanUp, OnlyTheFirstConfiguredBridgeIsLookedAt) {
    add_bridge("br-guest");
    const test_interface second_bridge("br-guest");
    add_port("wlan0", KOLT_LINK_2G, 0, "br-guest");
    add_port("wlan1", KOLT_LINK_2G, 1, "br-guest");
    add_port("wlan2", KOLT_LINK_5G, 1);
    EXPECT_THAT(deleted(second_bridge.index()), IsEmpty());
    EXPECT_THAT(deleted(platform.bridges["br-guest"][0]), IsEmpty());
    EXPECT_EQ(count_calls("netlink_msg(br-guest, 256, 4608, 38)"), 0U);
    EXPECT_EQ(count_calls("netlink_msg(br-lan, 256, 4608, 38)"), 1U);
}

TEST_F(WdsCleanUp, BridgesActivityAndFlagsAreNotAskedFor) {
    config_.bridges[0].flags = 0;
    const config_interface &port = add_port("wlan0", KOLT_LINK_2G, 0);
    add_port("wlan1", KOLT_LINK_5G, 1);
    EXPECT_THAT(deleted(index_of(port)), ElementsAre("wlan1"));
    EXPECT_EQ(count_calls("netlink_msg(br-lan, 0, 8, 38)"), 0U);
}

TEST_F(WdsCleanUp, CleanUpWithoutAnyBridgeDoesNothing) {
    const test_interface port("wlan0");
    config_.bridge_num = 0;
    set_name(config_.bridges[0].name, "wlan0");
    EXPECT_THAT(deleted(port.index()), IsEmpty());
    EXPECT_THAT(platform.calls, IsEmpty());
}

TEST_F(WdsCleanUp, CleanUpEndsWhenTheBridgesPortsCannotBeTold) {
    const test_interface bridge("br-lan");
    add_port("wlan0", KOLT_LINK_2G, 1);
    platform.fail("netlink_msg", -1);
    EXPECT_THAT(deleted(bridge.index()), IsEmpty());
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_active_ports", "Error: netlink_msg"}));
}

// ---- Base names

TEST_F(WdsCleanUp, NameOfThePortIsCutAtItsFirstDot) {
    const test_interface bridge("br-lan");
    for (const char *name : {"wlan0.1", "wlan1.vap.2", "wlan2.", "wlan3", "fifteen-charact"})
        add_port(name, KOLT_LINK_5G, 1);
    EXPECT_THAT(deleted(bridge.index()), ElementsAre("wlan0", "wlan1", "wlan2", "wlan3", "fifteen-charact"));
}

TEST_F(WdsCleanUp, NameThatBeginsWithADotIsAnEmptyOne) {
    const test_interface bridge("br-lan");
    add_port("wlan0", KOLT_LINK_5G, 1);
    add_port(".wl", KOLT_LINK_5G, 1);
    EXPECT_THAT(deleted(bridge.index()), ElementsAre("wlan0", ""));
}

TEST_F(WdsCleanUp, CleanUpEndsWithoutADriverTable) {
    const installed_table none(nullptr);
    const test_interface bridge("br-lan");
    add_port("wlan0", KOLT_LINK_5G, 1);
    EXPECT_THAT(deleted(bridge.index()), IsEmpty());
}

} // namespace
