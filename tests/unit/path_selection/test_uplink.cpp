// One bridge's share of a period: its clients in turn, and what comes before them.
#include "path_selection/uplink_test.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- What is done for each client

TEST_F(Uplink, ClientsAreHandledInTheirOrder) {
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    add_wifi("wlan1", KOLT_LINK_5G, 300, 20);
    add_client(7, "eth0");
    add_client(3, "eth0");
    add_client(5, "wlan0.1");
    run();
    EXPECT_THAT(texts(),
                ElementsAre(preference(5, 0, 0), client_line(7), choice("wlan1.1", "wlan1.1"), client_line(3),
                            choice("wlan1.1", "wlan1.1"), client_line(5, "wlan0.1"), choice("wlan1.1", "wlan1.1")));
    EXPECT_THAT(placements(), ElementsAre(placement(7, "wlan1.1"), placement(3, "wlan1.1"), placement(5, "wlan1.1")));
    for (const log_line &line : logged()) {
        if (line.function == "path_selection_update_uplink_paths") {
            EXPECT_EQ(line.priority, LOG_DEBUG);
        }
    }
}

TEST_F(Uplink, UplinkIsSilentBelowDebugLevel) {
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    add_client(1, "eth0");
    log_level = KOLT_LOG_INFO;
    run();
    EXPECT_THAT(texts(), IsEmpty());
    EXPECT_THAT(placements(), ElementsAre(placement(1, "wlan0.1")));
}

TEST_F(Uplink, ClientsBehindARelayPortAreSkipped) {
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    add_port("eth1", KOLT_LINK_ETHERNET, 1, 0);
    add_client(1, "eth1");
    add_client(2, "eth0");
    run();
    EXPECT_THAT(texts(), ElementsAre(preference(5, 0, 0), client_line(2), choice("wlan0.1", "wlan0.1")));
    EXPECT_THAT(placements(), ElementsAre(placement(2, "wlan0.1")));
}

TEST_F(Uplink, OnlyARelayFlagOfOneIsRelayButEveryOtherIsLogged) {
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    add_port("eth1", KOLT_LINK_ETHERNET, 2, 0);
    add_client(1, "eth1");
    run();
    EXPECT_THAT(texts(),
                ElementsAre(preference(5, 0, 0), client_line(1, "eth1", "relay"), choice("wlan0.1", "wlan0.1")));
    EXPECT_THAT(placements(), ElementsAre(placement(1, "wlan0.1")));
}

TEST_F(Uplink, ClientWhosePortIsGoneIsLoggedAndTheNextHandled) {
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    run_with_clients({make_client(1, 54321), make_client(2, index_of("eth0"))});
    EXPECT_THAT(texts(),
                ElementsAre(preference(5, 0, 0), "Error: error ifname", client_line(2), choice("wlan0.1", "wlan0.1")));
    EXPECT_THAT(logged(), Contains(log_line{LOG_ERR, "path_selection_update_uplink_paths", "Error: error ifname"}));
    EXPECT_THAT(placements(), ElementsAre(placement(2, "wlan0.1")));
}

TEST_F(Uplink, PortOfAClientIsLookedAtBeforeItsRelayFlag) {
    run_with_clients({make_client(1, 54321, 1)});
    EXPECT_THAT(texts(), ElementsAre(preference(5, 0, 0), "Error: error ifname"));
}

TEST_F(Uplink, NameOfThePortIsAskedForAgainInEachPeriod) {
    const uint32_t index = add_interface("eth5");
    run_with_clients({make_client(1, index)});
    EXPECT_THAT(texts(), ElementsAre(preference(5, 0, 0), client_line(1, "eth5")));
    drop_interface("eth5");
    run_with_clients({make_client(1, index)});
    EXPECT_THAT(texts(), ElementsAre(preference(5, 0, 0), "Error: error ifname"));
}

TEST_F(Uplink, ClientsStayUntouchedWithoutAUsablePath) {
    add_client(1, "eth0");
    add_client(2, "eth0");
    run();
    EXPECT_THAT(texts(), ElementsAre(preference(5, 0, 0), client_line(1), client_line(2)));
    EXPECT_THAT(placements(), IsEmpty());
}

TEST_F(Uplink, NothingIsWrittenForAClientThatIsThereAlready) {
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    add_client(1, "eth0");
    add_hd(1, 200, index_of("wlan0.1"));
    run();
    EXPECT_THAT(texts(), ElementsAre(preference(5, 0, 0), client_line(1), choice("wlan0.1", "wlan0.1")));
    EXPECT_THAT(placements(), IsEmpty());
}

TEST_F(Uplink, ClientLearntOnPowerLineIsNeverPlaced) {
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    add_port("plc0", KOLT_LINK_PLC, 0, 0);
    add_client(1, "plc0");
    run();
    EXPECT_THAT(texts(), ElementsAre(preference(5, 0, 0), client_line(1, "plc0"), choice("wlan0.1", "wlan0.1")));
    EXPECT_THAT(placements(), IsEmpty());
}

TEST_F(Uplink, PowerLineClientsAreComparedWithAnAllZeroReference) {
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    kolt_client client = make_client(1, index_of("eth0"));
    client.type = KOLT_LINK_PLC;
    std::fill(std::begin(client.mac), std::end(client.mac), uint8_t{0});
    run_with_clients({client});
    EXPECT_THAT(placements(), ElementsAre("bridgeAddHDTableEntries(br-lan, 00:00:00:00:00:00, " + text_of_mac(200) +
                                          ", wlan0.1, wlan0.1, 0)"));
}

TEST_F(Uplink, MacOfTheBridgeAtHandIsPassed) {
    add_bridge("br-guest");
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    add_wifi("wlan5", KOLT_LINK_2G, 100, 20, "br-guest");
    add_port("eth1", KOLT_LINK_ETHERNET, 0, 0, "br-guest");
    add_client(1, "eth0");
    add_client(2, "eth1");
    run();
    EXPECT_THAT(placements(), ElementsAre(placement(1, "wlan0.1"), placement(2, "wlan5.1", "br-guest", 201)));
}

TEST_F(Uplink, AsManyClientsAsAListCanCountAreHandled) {
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    lines expected;
    for (unsigned int i = 1; i <= 255; i++) {
        add_client(static_cast<uint8_t>(i), "eth0");
        expected.push_back(placement(static_cast<uint8_t>(i), "wlan0.1"));
    }
    run();
    EXPECT_EQ(placements(), expected);
}

// ---- What comes before the clients

TEST_F(Uplink, BridgeWithoutAMacIsNotMeasured) {
    add_wifi("wlan0", KOLT_LINK_2G, 100, 90);
    add_client(1, "eth0");
    drop_interface("br-lan");
    for (const uint8_t status : {uint8_t{0}, uint8_t{1}, uint8_t{7}}) {
        path_selection_ctx.last_adjust_status = status;
        run();
        EXPECT_THAT(logged(), Contains(log_line{LOG_ERR, "path_selection_update_uplink_paths", "Error: get br mac"}));
        EXPECT_THAT(texts(), ElementsAre("Error: get br mac"));
        EXPECT_THAT(calls_of("get_uplink_rate"), IsEmpty());
        EXPECT_THAT(placements(), IsEmpty());
        EXPECT_EQ(path_selection_ctx.last_adjust_status, status) << "left as it was";
        kept_descriptors_++;
    }
}

TEST_F(Uplink, NothingIsMeasuredWithWlanOff) {
    config_.param.wlan_enable = 0;
    config_.param.backhual_prefered = 1;
    add_wifi("wlan0", KOLT_LINK_2G, 100, 90);
    add_client(1, "eth0");
    platform.fail("is_5g_low_noise", 1);
    run();
    EXPECT_THAT(calls_of("get_uplink_rate"), IsEmpty());
    EXPECT_THAT(calls_of("get_channel_utilization"), IsEmpty());
    EXPECT_THAT(texts(), ElementsAre(preference(2, 1, 0), client_line(1)));
    EXPECT_THAT(placements(), IsEmpty());
    EXPECT_EQ(path_selection_ctx.last_adjust_status, 0) << "no path is overloaded";
}

TEST_F(Uplink, EachBridgeStartsWithAnEmptyPathTable) {
    add_bridge("br-guest");
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    add_wifi("wlan1", KOLT_LINK_5G, 300, 20);
    add_wifi("wlan5", KOLT_LINK_2G, 100, 20, "br-guest");
    add_port("eth1", KOLT_LINK_ETHERNET, 0, 0, "br-guest");
    add_client(2, "eth1");
    run();
    EXPECT_THAT(placements(), ElementsAre(placement(2, "wlan5.1", "br-guest", 201)))
        << "the 5 GHz path is the other bridge's";
}

TEST_F(Uplink, LoadIsTestedBeforeTheQuotasAreSet) {
    // Both tests are over before the quota lines are written; the full-load test tells which path is lighter.
    add_wifi("wlan0", KOLT_LINK_2G, 100, 90);
    add_wifi("wlan1", KOLT_LINK_5G, 300, 75);
    add_client(1, "eth0");
    run();
    lines order;
    for (const log_line &line : logged()) {
        if (line.function.starts_with("path_selection_") && (order.empty() || order.back() != line.function))
            order.push_back(line.function);
    }
    EXPECT_THAT(order, ElementsAre("path_selection_check_paths_full_load", "path_selection_init_path_quota",
                                   "path_selection_update_uplink_paths", "path_selection_update_uplink_hd_table",
                                   "path_selection_update_uplink_ha_table"));
}

} // namespace
