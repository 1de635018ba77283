// Active bridges, their ports, and which of those are paths.
#include "port_records.h"
#include "probe_test.h"

#include "core/config.h"
#include "probes/ports.h"

#include <syslog.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Ports : public probe {
protected:
    // Adds a configured interface with this name.
    config_interface *configure(const std::string &name) {
        config_interface &port = config_.interfaces[config_.interface_num];
        config_.interface_num++;
        memcpy(port.name, name.c_str(), name.size());
        return &port;
    }

    std::vector<config_interface *> active() {
        return listed(kolt_get_active_ports);
    }
    std::vector<config_interface *> paths() {
        return listed(kolt_get_path_ports);
    }

    static log_line error(const std::string &function, const std::string &text) {
        return {LOG_ERR, function, "Error: " + text};
    }

    config config_;

private:
    std::vector<config_interface *> listed(uint32_t (*get)(config *, const char *, kolt_port_list *)) {
        kolt_port_list ports;
        ports.count = 77; // of another question
        EXPECT_EQ(get(&config_, "br-lan", &ports), ports.count);
        return {ports.span().begin(), ports.span().end()};
    }
};

TEST_F(Ports, ActivePortsAreListedInTheOrderOfTheReply) {
    const test_interface eth0("eth0");
    const test_interface wlan0("wlan0");
    const test_interface plc0("plc0");
    config_interface *plc = configure("plc0");
    config_interface *eth = configure("eth0");
    config_interface *wlan = configure("wlan0");
    configure("eth1");
    platform.bridges["br-lan"] = {wlan0.index(), eth0.index(), plc0.index()};
    EXPECT_THAT(active(), ElementsAre(wlan, eth, plc));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Ports, ActivePortsLearnTheirKernelIndex) {
    const test_interface eth0("eth0", 70000);
    config_interface *eth = configure("eth0");
    config_interface *absent = configure("eth1");
    platform.bridges["br-lan"] = {70000};
    EXPECT_EQ(eth->ifindex, 0U);
    EXPECT_THAT(active(), ElementsAre(eth));
    EXPECT_EQ(eth->ifindex, 70000U);
    EXPECT_EQ(absent->ifindex, 0U);
}

TEST_F(Ports, PortQueryAsksForRoomForA128Records) {
    platform.bridges["br-lan"] = {};
    EXPECT_THAT(active(), IsEmpty());
    EXPECT_THAT(platform.calls, ElementsAre("bridgeAllocTableBuf(4608, br-lan)", "netlink_msg(br-lan, 256, 4608, 38)",
                                            "bridgeFreeTableBuf()"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Ports, PortThatIsNotConfiguredIsLoggedAndTheOthersAreReturned) {
    const test_interface eth0("eth0");
    const test_interface other("other0", 4242);
    const test_interface wlan0("wlan0");
    config_interface *eth = configure("eth0");
    config_interface *wlan = configure("wlan0");
    platform.bridges["br-lan"] = {eth0.index(), 4242, wlan0.index()};
    EXPECT_THAT(active(), ElementsAre(eth, wlan));
    EXPECT_THAT(logged(), ElementsAre(error("kolt_get_active_ports", "No such interface 4242")));
}

TEST_F(Ports, PortThatTheKernelDoesNotKnowIsLogged) {
    const test_interface eth0("eth0");
    config_interface *eth = configure("eth0");
    platform.bridges["br-lan"] = {4294967295, eth0.index()};
    EXPECT_THAT(active(), ElementsAre(eth));
    EXPECT_THAT(logged(), ElementsAre(error("config_find_interface_by_index", "if_indextoname"),
                                      error("kolt_get_active_ports", "No such interface 4294967295")));
}

TEST_F(Ports, PortThatIsReportedTwiceIsListedTwice) {
    const test_interface eth0("eth0");
    config_interface *eth = configure("eth0");
    platform.bridges["br-lan"] = {eth0.index(), eth0.index()};
    EXPECT_THAT(active(), ElementsAre(eth, eth));
}

TEST_F(Ports, PartOfARecordIsNoPort) {
    const test_interface eth0("eth0");
    const test_interface eth1("eth1");
    config_interface *first = configure("eth0");
    config_interface *second = configure("eth1");
    platform.bridges["br-lan"] = {eth0.index(), eth1.index()};
    const std::pair<uint32_t, size_t> lengths[] = {{35, 0}, {36, 1}, {37, 1}, {71, 1}, {72, 2}, {73, 2}};
    for (const auto &[length, count] : lengths) {
        platform.claimed_reply_length = length;
        const std::vector<config_interface *> all = {first, second};
        EXPECT_EQ(active(), std::vector<config_interface *>(all.begin(), all.begin() + static_cast<long>(count)))
            << length;
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Ports, RepliesOf128PortsAreReadWhole) {
    const test_interface eth0("eth0");
    config_interface *eth = configure("eth0");
    platform.bridges["br-lan"] = std::vector<uint32_t>(128, eth0.index());
    EXPECT_EQ(active(), std::vector<config_interface *>(128, eth));
}

TEST_F(Ports, LongerRepliesAreReadAsFarAsTheBufferGoes) {
    const test_interface eth0("eth0");
    config_interface *eth = configure("eth0");
    platform.bridges["br-lan"] = std::vector<uint32_t>(128, eth0.index());
    for (const uint32_t length : {4609U, 4644U, 100000U, 4294967295U}) {
        platform.claimed_reply_length = length;
        EXPECT_EQ(active(), std::vector<config_interface *>(128, eth)) << length;
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Ports, LongerRepliesHave128RecordsWhateverIsInThem) {
    const test_interface eth0("eth0");
    config_interface *eth = configure("eth0");
    platform.bridges["br-lan"] = {eth0.index()}; // what follows in the buffer is zero
    for (const uint32_t length : {4608U, 4643U, 4644U, 1000000U, 4294967295U}) {
        clear_log();
        platform.claimed_reply_length = length;
        EXPECT_THAT(active(), ElementsAre(eth)) << length;
        EXPECT_EQ(logged_texts("kolt_get_active_ports"), lines(127, "Error: No such interface 0")) << length;
    }
}

TEST_F(Ports, BridgeHasNoPortsWithoutABuffer) {
    platform.bridges["br-lan"] = {1};
    platform.fail("bridgeAllocTableBuf");
    EXPECT_THAT(active(), IsEmpty());
    EXPECT_THAT(logged(), ElementsAre(error("kolt_get_active_ports", "bridgeAllocTableBuf")));
    EXPECT_THAT(platform.calls, testing::Not(testing::Contains(testing::StartsWith("netlink_msg"))));
}

TEST_F(Ports, FailingQueryHasNoPortsAndFreesTheBuffer) {
    platform.bridges["br-lan"] = {1};
    for (const int result : {1, -1}) {
        platform.calls.clear();
        platform.fail("netlink_msg", result);
        EXPECT_THAT(active(), IsEmpty()) << result;
        EXPECT_EQ(platform.calls.back(), "bridgeFreeTableBuf()");
    }
    const log_line message = error("kolt_get_active_ports", "netlink_msg");
    EXPECT_THAT(logged(), ElementsAre(message, message));
}

TEST_F(Ports, PathPortsAreTheActiveOnesWithThePathFlag) {
    const test_interface eth0("eth0");
    const test_interface eth1("eth1");
    const test_interface wlan0("wlan0");
    const test_interface wlan1("wlan1");
    config_interface *eth = configure("eth0");
    configure("eth1");
    config_interface *wlan = configure("wlan0");
    config_interface *last = configure("wlan1");
    config_interface *inactive = configure("wlan2");
    eth->path = 1;
    wlan->path = 1;
    last->path = 2;
    inactive->path = 1;
    platform.bridges["br-lan"] = {wlan1.index(), eth1.index(), eth0.index(), wlan0.index()};
    EXPECT_THAT(paths(), ElementsAre(last, eth, wlan));
    EXPECT_EQ(wlan->ifindex, wlan0.index());
}

TEST_F(Ports, NoActivePortIsAPathWithoutTheFlag) {
    const test_interface eth0("eth0");
    configure("eth0");
    platform.bridges["br-lan"] = {eth0.index()};
    EXPECT_THAT(paths(), IsEmpty());
}

TEST_F(Ports, FailingQueryHasNoPathPorts) {
    EXPECT_THAT(paths(), IsEmpty()) << "the bridge is not known";
    EXPECT_THAT(logged(), ElementsAre(error("kolt_get_active_ports", "netlink_msg")));
}

TEST_F(Ports, BridgeIsActiveWhenTheKernelKnowsIt) {
    platform.bridges["br-lan"] = {};
    EXPECT_EQ(kolt_check_active_bridge("br-lan"), 1);
    EXPECT_THAT(platform.calls,
                ElementsAre("bridgeAllocTableBuf(8, br-lan)", "netlink_msg(br-lan, 0, 8, 38)", "bridgeFreeTableBuf()"));
    EXPECT_EQ(kolt_check_active_bridge("br-guest"), 0);
    EXPECT_THAT(logged(), IsEmpty()) << "an unknown bridge is no error";
}

TEST_F(Ports, AnyResultButZeroOfTheCheckIsNoBridge) {
    platform.bridges["br-lan"] = {};
    for (const int result : {1, -1, 256}) {
        platform.fail("netlink_msg", result);
        EXPECT_EQ(kolt_check_active_bridge("br-lan"), 0) << result;
    }
}

TEST_F(Ports, EmptyBridgeNameIsNoBridgeWithoutAnyRequest) {
    platform.bridges[""] = {};
    EXPECT_EQ(kolt_check_active_bridge(""), 0);
    EXPECT_EQ(kolt_check_active_bridge(nullptr), 0);
    EXPECT_THAT(platform.calls, IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Ports, BridgeCheckWithoutABufferIsLogged) {
    platform.bridges["br-lan"] = {};
    platform.fail("bridgeAllocTableBuf");
    EXPECT_EQ(kolt_check_active_bridge("br-lan"), 0);
    EXPECT_THAT(logged(), ElementsAre(error("kolt_check_active_bridge", "bridgeAllocTableBuf")));
}

TEST_F(Ports, LoopAvoidanceNeedsAnActiveBridgeWithItsFlag) {
    platform.bridges["br-lan"] = {};
    config_bridge bridge{"br-lan", CONFIG_LOOP_AVOIDANCE};
    EXPECT_TRUE(kolt_is_loop_avoiding(bridge));
    bridge.flags = CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION;
    EXPECT_TRUE(kolt_is_loop_avoiding(bridge));
    bridge.flags = CONFIG_PATH_SELECTION;
    EXPECT_FALSE(kolt_is_loop_avoiding(bridge));
    EXPECT_FALSE(kolt_is_loop_avoiding({"br-guest", CONFIG_LOOP_AVOIDANCE}));
}

struct norelay_row {
    const char *name;
    uint32_t ifindex;
    int expected;
};

class NorelayPort : public probe_rows<norelay_row> {};

TEST_P(NorelayPort, PortOfTheListIsNonrelayUnlessItsRelayFlagIsOne) {
    port_records ports;
    ports.add("eth0", 10, 0);
    ports.add("eth1", 11, 1);
    ports.add("eth2", 12, 2);
    ports.add("eth3", 13, 1);
    ports.add("eth3", 13, 0);
    ports.add("eth4", 70000, 0);
    EXPECT_EQ(kolt_check_norelay_port(GetParam().ifindex, ports.get()), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Ports, NorelayPort,
                         testing::Values(norelay_row{"RelayFlagZero", 10, 1}, norelay_row{"RelayFlagOne", 11, 0},
                                         norelay_row{"RelayFlagTwo", 12, 1},
                                         norelay_row{"AnyOfTwoWithTheSameIndex", 13, 1},
                                         norelay_row{"IndexOfMoreThanSixteenBits", 70000, 1},
                                         norelay_row{"IndexThatSharesItsLowBits", 4464, 0},
                                         norelay_row{"NotInTheList", 14, 0}, norelay_row{"Zero", 0, 0}),
                         row_name<norelay_row>);

TEST_F(Ports, EmptyListHasNoNorelayPort) {
    const port_records ports{};
    EXPECT_EQ(kolt_check_norelay_port(0, ports.get()), 0);
}

TEST_F(Ports, NorelayPortsAreJudgedByTheHeldIndexNotByTheName) {
    const test_interface eth0("eth0");
    port_records ports;
    ports.add("eth0", 0, 0);
    EXPECT_EQ(kolt_check_norelay_port(eth0.index(), ports.get()), 0);
    EXPECT_EQ(kolt_check_norelay_port(0, ports.get()), 1);
}

} // namespace
