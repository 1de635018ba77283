// The walk over the path ports; the processed rate and the load tests have test files of their own.
#include "path_selection/measured_test.h"
#include "path_selection/measurement.h"

#include <deque>

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

class WlanPathInfo : public MeasuredPaths {
protected:
    void SetUp() override {
        MeasuredPaths::SetUp();
        for (const char *file : LINK_FILES)
            write_file(file, R"({"status": 1})");
    }

    config_interface &add_port(const std::string &name, kolt_link_type type) {
        config_interface &port = ports_.emplace_back();
        kolt_copy_name(port.name, name.c_str());
        port.type = type;
        return port;
    }

    void measure(const wlan_platform *table = &radio_table) {
        std::vector<config_interface *> pointers;
        for (config_interface &port : ports_)
            pointers.push_back(&port);
        const kolt_interface_list list{.count = static_cast<uint8_t>(pointers.size()), .interfaces = pointers.data()};
        const installed_table installed(table);
        path_selection_get_wlan_path_info("br-lan", &list, &paths_, &config_);
    }

    // The types of the rows that are present now.
    std::vector<uint32_t> present_types() const {
        std::vector<uint32_t> types;
        for (const kolt_link_type type : KOLT_LINKS) {
            if (paths_[type].name[0] != '\0')
                types.push_back(type);
        }
        return types;
    }

    static int samples_of(kolt_link_type type) {
        const auto &samples = path_selection_ctx.histories.at(type).samples;
        return static_cast<int>(
            std::count_if(std::begin(samples), std::end(samples), [](const auto &sample) { return sample.rate != 0; }));
    }

    std::deque<config_interface> ports_;
};

// ---- Which ports are considered

struct port_row {
    const char *name;
    kolt_link_type type;
    uint8_t relay;
    uint8_t class_;
    const char *link; // text of the link's file, null without one
    bool measured;
    bool link_is_read;
};

void PrintTo(const port_row &row, std::ostream *out) {
    *out << row.name;
}

class ConsideredPort : public WlanPathInfo, public testing::WithParamInterface<port_row> {};

constexpr const char UP[] = R"({"status": 1})";

INSTANTIATE_TEST_SUITE_P(Rows, ConsideredPort,
                         testing::Values(port_row{"TwoPointFour", KOLT_LINK_2G, 0, 0, UP, true, true},
                                         port_row{"Five", KOLT_LINK_5G, 0, 0, UP, true, true},
                                         port_row{"SecondFive", KOLT_LINK_5G_2, 0, 0, UP, true, true},
                                         port_row{"Ethernet", KOLT_LINK_ETHERNET, 0, 0, UP, false, true},
                                         port_row{"PowerLine", KOLT_LINK_PLC, 0, 0, UP, false, true},
                                         port_row{"NoType", KOLT_LINK_NONE, 0, 0, UP, false, false},
                                         port_row{"Relay", KOLT_LINK_2G, 1, 0, UP, false, false},
                                         port_row{"RelayOfAnotherValue", KOLT_LINK_2G, 2, 0, UP, false, false},
                                         port_row{"ClassOne", KOLT_LINK_5G, 0, 1, UP, false, false},
                                         port_row{"ClassTwo", KOLT_LINK_5G, 0, 2, UP, true, true},
                                         port_row{"LinkDown", KOLT_LINK_5G_2, 0, 0, R"({"status": 0})", false, true},
                                         port_row{"LinkUnknown", KOLT_LINK_5G_2, 0, 0, nullptr, false, true}),
                         case_name);

TEST_P(ConsideredPort, NonrelayWifiPortNotOfClassOneWhoseLinkIsUpIsMeasured) {
    const port_row &row = GetParam();
    config_interface &port = add_port("wlan0", row.type);
    port.relay = row.relay;
    port.class_ = row.class_;
    if (row.type < KOLT_LINK_NONE && row.link != nullptr)
        write_file(LINK_FILES[row.type], row.link);
    if (row.link == nullptr)
        remove_file(LINK_FILES[row.type]);
    measure();
    if (row.measured)
        EXPECT_THAT(present_types(), ElementsAre(row.type));
    else
        EXPECT_THAT(present_types(), IsEmpty());
    EXPECT_EQ(platform.calls.empty(), !row.measured) << "the driver is asked only about considered ports";
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_P(ConsideredPort, LinkFileIsReadBeforeTheWifiTypesAreTestedAndAfterAllElse) {
    const port_row &row = GetParam();
    const at_log_level debug(2);
    config_interface &port = add_port("wlan0", row.type);
    port.relay = row.relay;
    port.class_ = row.class_;
    for (const char *file : LINK_FILES)
        remove_file(file);
    measure();
    if (row.link_is_read)
        EXPECT_THAT(logged(), ElementsAre(log_line{LOG_DEBUG, "kolt_check_link_state",
                                                   std::string("Debug: parse link state ") + LINK_FILES[row.type]}));
    else
        EXPECT_THAT(logged(), IsEmpty());
}

// ---- What a row gets

TEST_F(WlanPathInfo, RowOfThePortsTypeIsFilled) {
    radios["wlan1"] = {.tx = 400, .rx = 500, .rssi = 61, .util = 77};
    add_port("wlan1.1", KOLT_LINK_5G).priority = 9;
    measure();
    const ps_path &row = paths_[KOLT_LINK_5G];
    EXPECT_EQ(name_of(row), "wlan1.1");
    EXPECT_EQ(row.priority, 9);
    EXPECT_EQ(row.util, 77);
    EXPECT_EQ(row.util_aux, 61);
    EXPECT_EQ(row.rate, 400);
    EXPECT_EQ(row.quota, 0);
    EXPECT_EQ(row.util_adjustment, 0);
    EXPECT_EQ(samples_of(KOLT_LINK_5G), 1);
    EXPECT_EQ(path_selection_ctx.histories[KOLT_LINK_5G].samples[0].tx_rate, 400);
    EXPECT_EQ(path_selection_ctx.histories[KOLT_LINK_5G].samples[0].rx_rate, 500);
}

TEST_F(WlanPathInfo, DriverIsAskedForTheRateThenForTheUtilization) {
    add_port("wlan0", KOLT_LINK_2G);
    add_port("wlan2.5", KOLT_LINK_5G_2);
    measure();
    EXPECT_THAT(platform.calls, ElementsAre("get_uplink_rate(wlan0, 2)", "get_channel_utilization(wlan0, 2, 1)",
                                            "get_uplink_rate(wlan2, 4)", "get_channel_utilization(wlan2, 4, 1)"));
}

TEST_F(WlanPathInfo, RateIsTheProcessedOneOfAllSamplesNotTheNewest) {
    ps_path_history &history = path_selection_ctx.histories[KOLT_LINK_5G];
    history.samples[0].rate = 300;
    history.samples[1].rate = 200;
    history.sample_index = 1;
    radios["wlan1"] = {.tx = 100, .rx = 100};
    add_port("wlan1", KOLT_LINK_5G);
    measure();
    EXPECT_EQ(paths_[KOLT_LINK_5G].rate, 200);
    EXPECT_EQ(history.sample_index, 2);
}

struct base_row {
    const char *name;
    const char *port;
    const char *base;
    const char *row;
};

void PrintTo(const base_row &row, std::ostream *out) {
    *out << row.name;
}

class PortName : public WlanPathInfo, public testing::WithParamInterface<base_row> {};

// A base name has room for 15 characters, and so has the name with its VLAN.
INSTANTIATE_TEST_SUITE_P(
    Rows, PortName,
    testing::Values(base_row{"Plain", "wlan0", "wlan0", "wlan0.1"}, base_row{"WithVlan", "wlan0.7", "wlan0", "wlan0.1"},
                    base_row{"CutAtTheFirstDot", "wlan0.7.9", "wlan0", "wlan0.1"},
                    base_row{"BeginsWithADot", ".wlan0", "", ".1"},
                    base_row{"LongestThatFits", "wlan0-abcdefg", "wlan0-abcdefg", "wlan0-abcdefg.1"},
                    base_row{"FillsItsField", "wlan0-abcdefghij", "wlan0-abcdefghi", "wlan0-abcdefghi"}),
    case_name);

TEST_P(PortName, PortNameIsCutForTheDriverAndNamesTheRowByItsFirstVlan) {
    const base_row &row = GetParam();
    add_port(row.port, KOLT_LINK_2G);
    measure();
    EXPECT_THAT(platform.calls,
                testing::Contains(std::string("get_uplink_rate(") + row.base + ", 2)")); // not the whole name
    EXPECT_EQ(name_of(paths_[KOLT_LINK_2G]), row.row);
}

TEST_F(WlanPathInfo, NothingIsCarriedOverFromThePortBefore) {
    radios["wlan0"] = {.rssi = 55, .util = 66};
    radios["wlan1"] = {.rssi = 0, .util = STORES_NOTHING};
    add_port("wlan0", KOLT_LINK_2G);
    add_port("wlan1", KOLT_LINK_5G);
    measure();
    EXPECT_EQ(paths_[KOLT_LINK_2G].util, 66);
    EXPECT_EQ(paths_[KOLT_LINK_5G].util, 0);
    EXPECT_EQ(paths_[KOLT_LINK_5G].util_aux, 0);
}

// ---- A driver that cannot tell

class MaybeDisconnected : public WlanPathInfo {
protected:
    const at_log_level debug_{2};
    const log_line line_{LOG_DEBUG, "path_selection_get_wlan_path_info", "Debug: path: wlan1.3 maybe disconnected"};
};

TEST_F(MaybeDisconnected, PortWithoutARateIsLoggedAndItsRowStaysAsItWas) {
    radios["wlan1"] = {.has_rate = false};
    add_port("wlan1.3", KOLT_LINK_5G).priority = 4;
    measure();
    EXPECT_THAT(logged(), ElementsAre(line_));
    EXPECT_THAT(platform.calls, ElementsAre("get_uplink_rate(wlan1, 3)")) << "the utilisation is not asked for";
    EXPECT_THAT(present_types(), IsEmpty());
    EXPECT_EQ(paths_[KOLT_LINK_5G].priority, 0);
    EXPECT_EQ(samples_of(KOLT_LINK_5G), 0);
}

TEST_F(MaybeDisconnected, PortWithoutAUtilizationIsLoggedAndItsRowStaysAbsent) {
    radios["wlan1"] = {.has_util = false};
    add_port("wlan1.3", KOLT_LINK_5G).priority = 4;
    measure();
    EXPECT_THAT(logged(), ElementsAre(line_));
    EXPECT_THAT(present_types(), IsEmpty());
    EXPECT_EQ(paths_[KOLT_LINK_5G].priority, 0);
    EXPECT_EQ(paths_[KOLT_LINK_5G].rate, 0);
}

TEST_F(MaybeDisconnected, DisconnectedPortIsNotLoggedBelowDebugLevel) {
    const at_log_level info(1);
    radios["wlan1"] = {.has_rate = false};
    radios["wlan0"] = {.has_util = false};
    add_port("wlan1.3", KOLT_LINK_5G);
    add_port("wlan0", KOLT_LINK_2G);
    measure();
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(MaybeDisconnected, NextPortOfTheSameTypeFillsTheRowOfADisconnectedOne) {
    radios["wlan1"] = {.has_util = false};
    radios["wlan9"] = {.rssi = 8, .util = 9};
    add_port("wlan1.3", KOLT_LINK_5G).priority = 1;
    add_port("wlan9", KOLT_LINK_5G).priority = 2;
    measure();
    EXPECT_THAT(logged(), ElementsAre(line_));
    EXPECT_EQ(name_of(paths_[KOLT_LINK_5G]), "wlan9.1");
    EXPECT_EQ(paths_[KOLT_LINK_5G].priority, 2);
    EXPECT_EQ(paths_[KOLT_LINK_5G].util, 9);
    EXPECT_EQ(paths_[KOLT_LINK_5G].util_aux, 8);
}

TEST_F(MaybeDisconnected, EveryPortIsMaybeDisconnectedWithoutADriverTable) {
    add_port("wlan1.3", KOLT_LINK_5G);
    measure(nullptr);
    EXPECT_THAT(logged(), ElementsAre(line_));
    EXPECT_THAT(present_types(), IsEmpty());
}

TEST_F(MaybeDisconnected, NameThatFillsItsFieldIsLoggedWithoutWhatFollows) {
    config_interface &port = add_port("wlan1-abcdefghij", KOLT_LINK_5G);
    port.ifindex = 0x58585858; // the bytes behind the name
    radios["wlan1-abcdefghi"] = {.has_rate = false};
    measure();
    EXPECT_THAT(logged_texts(), ElementsAre("Debug: path: wlan1-abcdefghij maybe disconnected"));
}

// ---- A second port of a type

TEST_F(WlanPathInfo, SecondPortOfATypeUpdatesPriorityAndRateButKeepsNameAndUtilization) {
    radios["wlan1"] = {.tx = 100, .rx = 100, .rssi = 11, .util = 22};
    radios["wlan9"] = {.tx = 500, .rx = 500, .rssi = 33, .util = 44};
    add_port("wlan1", KOLT_LINK_5G).priority = 1;
    add_port("wlan9", KOLT_LINK_5G).priority = 2;
    measure();
    const ps_path &row = paths_[KOLT_LINK_5G];
    EXPECT_EQ(name_of(row), "wlan1.1");
    EXPECT_EQ(row.priority, 2);
    EXPECT_EQ(row.util, 22);
    EXPECT_EQ(row.util_aux, 11);
    EXPECT_EQ(row.rate, 500) << "two samples: the larger one";
    EXPECT_EQ(samples_of(KOLT_LINK_5G), 2);
    EXPECT_THAT(platform.calls, ElementsAre("get_uplink_rate(wlan1, 3)", "get_channel_utilization(wlan1, 3, 1)",
                                            "get_uplink_rate(wlan9, 3)"));
}

TEST_F(WlanPathInfo, EachTypeHasItsOwnFirstPort) {
    radios["wlan1"] = {.util = 31};
    radios["wlan2"] = {.util = 41};
    add_port("wlan1", KOLT_LINK_5G);
    add_port("wlan2", KOLT_LINK_5G_2);
    measure();
    EXPECT_THAT(present_types(), ElementsAre(3U, 4U));
    EXPECT_EQ(paths_[KOLT_LINK_5G].util, 31);
    EXPECT_EQ(paths_[KOLT_LINK_5G_2].util, 41);
}

TEST_F(WlanPathInfo, NextPeriodAsksForTheUtilizationAgain) {
    add_port("wlan1", KOLT_LINK_5G);
    measure();
    platform.calls.clear();
    measure();
    EXPECT_THAT(platform.calls, ElementsAre("get_uplink_rate(wlan1, 3)", "get_channel_utilization(wlan1, 3, 1)"));
}

TEST_F(WlanPathInfo, NothingIsTouchedWithoutPorts) {
    measure();
    EXPECT_THAT(present_types(), IsEmpty());
    EXPECT_THAT(platform.calls, IsEmpty());
}

// ---- The Realtek driver's own files

TEST_F(WlanPathInfo, RealtekTransmitRateStandsForBothDirections) {
    write_file("/proc/wlan0/sta_info", "-- STA info table -- (active: 1)\nstat_info...\n  hwaddr: 001122334455\n"
                                       "  state: 1\n  current_tx_rate: HT 144\n  current_rx_rate: HT 6\n  rssi: 40\n");
    write_file("/proc/wlan0/stats", "ch_utilization: 57\n");
    add_port("wlan0", KOLT_LINK_2G).priority = 3;
    measure(wlan_platform_ops);
    const ps_path &row = paths_[KOLT_LINK_2G];
    EXPECT_EQ(name_of(row), "wlan0.1");
    EXPECT_EQ(row.util, 57);
    EXPECT_EQ(row.util_aux, 40);
    EXPECT_EQ(row.rate, 144);
    EXPECT_EQ(path_selection_ctx.histories[KOLT_LINK_2G].samples[0].rx_rate, 144);
    EXPECT_THAT(logged_texts(), ElementsAre("Info: ifname: wlan0, txrate: 144, rxrate: 144, rssi: 40"));
}

TEST_F(MaybeDisconnected, RealtekRadioWithoutAStationIsMaybeDisconnected) {
    write_file("/proc/net/rtk_wifi6/wlan1/sta_info", "-- STA info table -- (active: 0)\n");
    add_port("wlan1.3", KOLT_LINK_5G);
    measure(wlan_platform_ops);
    EXPECT_THAT(logged(), ElementsAre(line_));
}

} // namespace
