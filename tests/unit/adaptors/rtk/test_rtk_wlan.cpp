// Rates, utilisation and activation; the station table reader has test files of its own.
#include "adaptors/rtk/driver_files.h"
#include "adaptors/wlan.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class UplinkRate : public DriverFiles {
protected:
    wlan_uplink_rate rate_{.tx_rate = 1, .rx_rate = 2, .mac = {9, 9, 9, 9, 9, 9}};
    uint8_t rssi_ = 3;
};

TEST_F(UplinkRate, UplinkRateIsTheTransmitRateOfTheFirstStationInBothDirections) {
    const std::string second = station_block{.hwaddr = "hwaddr: 66778899AABB", .tx = "current_tx_rate: 5"}.text();
    write_stations(header("2") + station_block{}.text() + second);
    EXPECT_EQ(wlan_get_uplink_rate_rtk("wlan0", &rate_, &rssi_, KOLT_LINK_2G), 1);
    EXPECT_EQ(rate_.tx_rate, 866);
    EXPECT_EQ(rate_.rx_rate, 866);
    EXPECT_THAT(rate_.mac, ElementsAre(0x00, 0x11, 0x22, 0x33, 0x44, 0x55));
    EXPECT_EQ(rssi_, 40);
}

TEST_F(UplinkRate, UplinkRateIsLoggedAtInfoLevel) {
    write_stations(header("1") + station_block{.tx = "current_tx_rate: 65535", .rssi = "rssi: 255"}.text());
    EXPECT_EQ(wlan_get_uplink_rate_rtk("wlan0", &rate_, &rssi_, KOLT_LINK_2G), 1);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_INFO, "wlan_get_uplink_rate_rtk",
                                               "Info: ifname: wlan0, txrate: 65535, rxrate: 65535, rssi: 255"}));
}

TEST_F(UplinkRate, UplinkRateIsNotLoggedAtLevelZero) {
    const at_log_level quiet(0);
    write_stations(header("1") + station_block{}.text());
    EXPECT_EQ(wlan_get_uplink_rate_rtk("wlan0", &rate_, &rssi_, KOLT_LINK_2G), 1);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(UplinkRate, NameThatFillsItsFieldIsLoggedWithoutWhatFollows) {
    const char field[] = {'w', 'l', 'a', 'n', '-', 'o', 'f', '-', '1', '6', '-', 'c', 'h', 'a', 'r', 's', 'X', 0};
    write_file("/proc/net/rtk_wifi6/wlan-of-16-chars/sta_info", header("1") + station_block{}.text());
    EXPECT_EQ(wlan_get_uplink_rate_rtk(field, &rate_, &rssi_, KOLT_LINK_5G_2), 1);
    EXPECT_THAT(logged_texts(), ElementsAre("Info: ifname: wlan-of-16-chars, txrate: 866, rxrate: 866, rssi: 40"));
}

TEST_F(UplinkRate, UplinkRateIsReadFromTheRadioThatTheTypeTells) {
    write_file("/proc/wlan0/sta_info", header("1") + station_block{.tx = "current_tx_rate: 2"}.text());
    write_file("/proc/net/rtk_wifi6/wlan0/sta_info", header("1") + station_block{.tx = "current_tx_rate: 5"}.text());
    for (const auto &[type, expected] :
         std::vector<std::pair<kolt_link_type, int>>{{KOLT_LINK_2G, 2}, {KOLT_LINK_5G, 5}, {KOLT_LINK_5G_2, 5}}) {
        EXPECT_EQ(wlan_get_uplink_rate("wlan0", &rate_, &rssi_, type), KOLT_LINK_PLC);
        EXPECT_EQ(rate_.tx_rate, expected) << type;
    }
}

TEST_F(UplinkRate, MissingStationLeavesTheOutputsAlone) {
    write_stations(header("1") + station_block{.state = "state: 0"}.text());
    EXPECT_EQ(wlan_get_uplink_rate_rtk("wlan0", &rate_, &rssi_, KOLT_LINK_2G), 0);
    EXPECT_EQ(rate_.tx_rate, 1);
    EXPECT_EQ(rate_.rx_rate, 2);
    EXPECT_THAT(rate_.mac, Each(9));
    EXPECT_EQ(rssi_, 3);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(UplinkRate, UplinkRateFailsWhenThePipeCannotBeStarted) {
    wlan_uplink_rate rate; // the sanitizer needs a descriptor to look at members of the test
    uint8_t rssi = 3;
    {
        const no_descriptors none;
        EXPECT_EQ(wlan_get_uplink_rate("wlan0", &rate, &rssi, KOLT_LINK_2G), 0);
    }
    EXPECT_EQ(rssi, 3);
    EXPECT_THAT(logged(),
                ElementsAre(log_line{LOG_ERR, "wlan_get_links_rtk", "Error: popen cmd cat /proc/wlan0/sta_info"}));
}

// ---- Channel utilisation

struct utilization_row {
    const char *name;
    std::string text;
    int expected; // 33 is what the caller's value was
};

void PrintTo(const utilization_row &row, std::ostream *out) {
    *out << row.name;
}

constexpr int KEPT = 33;

class ChannelUtilization : public DriverFiles, public testing::WithParamInterface<utilization_row> {};
INSTANTIATE_TEST_SUITE_P(
    Rows, ChannelUtilization,
    testing::Values(
        utilization_row{"BelowTheRange", "ch_utilization: -1\n", KEPT},
        utilization_row{"Lowest", "ch_utilization: 0\n", 0}, utilization_row{"Inside", "ch_utilization: 57\n", 57},
        utilization_row{"Highest", "ch_utilization: 100\n", 100},
        utilization_row{"AboveTheRange", "ch_utilization: 101\n", KEPT},
        utilization_row{"InsideOnlyWhenTruncated", "ch_utilization: 306\n", KEPT},
        utilization_row{"BelowTheRangeByFar", "ch_utilization: -2147483648\n", KEPT},
        utilization_row{"AmongOtherLines", "tx: 7\n\n  \t ch_utilization: 57%\nrx: 8\n", 57},
        utilization_row{"TextBefore", "bss ch_utilization: 57\n", 57},
        utilization_row{"NoBlank", "ch_utilization:57\n", 57}, utilization_row{"NoLineFeed", "ch_utilization: 57", 57},
        utilization_row{"FirstOfTwo", "ch_utilization: 57\nch_utilization: 58\n", 57},
        utilization_row{"UnreadableThenReadable", "ch_utilization: ?\nch_utilization:\nch_utilization: 58\n", 58},
        // A value that was read ends the search, also one that is not stored.
        utilization_row{"OutOfRangeThenInside", "ch_utilization: 101\nch_utilization: 58\n", KEPT},
        utilization_row{"NegativeThenInside", "ch_utilization: -1\nch_utilization: 58\n", KEPT},
        utilization_row{"Unreadable", "ch_utilization: n/a\n", KEPT},
        utilization_row{"OtherKey", "channel_utilization: 57\n", KEPT},
        utilization_row{"OtherCase", "CH_utilization: 57\n", KEPT}, utilization_row{"Empty", "", KEPT},
        utilization_row{"WholeInTheSecondPiece", std::string(255, 'x') + "ch_utilization: 57\n", 57},
        utilization_row{"KeyCutByThePiece", std::string(250, 'x') + "ch_utilization: 57\n", KEPT},
        utilization_row{"NumberCutByThePiece", std::string(238, 'x') + "ch_utilization: 57\n", 5}),
    row_name);

TEST_P(ChannelUtilization, UtilisationIsStoredOnlyInsideItsRangeAndTheCallSucceedsAnyway) {
    write_stats(GetParam().text);
    uint8_t utilization = KEPT;
    EXPECT_EQ(wlan_get_channel_utilization_rtk("wlan0", &utilization, KOLT_LINK_2G, 1), 1);
    EXPECT_EQ(utilization, GetParam().expected);
    EXPECT_THAT(logged(), IsEmpty());
}

using Utilization = DriverFiles;

TEST_F(Utilization, MissingFileSucceedsAndStoresNoUtilisation) {
    uint8_t utilization = KEPT;
    EXPECT_EQ(wlan_get_channel_utilization("wlan0", &utilization, KOLT_LINK_5G), 1);
    EXPECT_EQ(utilization, KEPT);
    EXPECT_THAT(started_commands, ElementsAre("cat /proc/net/rtk_wifi6/wlan0/stats"));
}

TEST_F(Utilization, UtilisationIsReadFromTheRadioThatTheTypeTells) {
    write_file("/proc/wlan0/stats", "ch_utilization: 2\n");
    write_file("/proc/net/rtk_wifi6/wlan0/stats", "ch_utilization: 6\n");
    for (const auto &[type, expected] : std::vector<std::pair<kolt_link_type, int>>{
             {KOLT_LINK_ETHERNET, 6}, {KOLT_LINK_PLC, 6}, {KOLT_LINK_2G, 2}, {KOLT_LINK_5G, 6}, {KOLT_LINK_5G_2, 6}}) {
        uint8_t utilization = KEPT;
        EXPECT_EQ(wlan_get_channel_utilization("wlan0", &utilization, type), KOLT_LINK_PLC);
        EXPECT_EQ(utilization, expected) << type;
    }
}

TEST_F(Utilization, UtilisationDoesNotDependOnTheFourthArgument) {
    write_stats("ch_utilization: 57\n");
    for (const uint32_t fourth : {0U, 1U, 2U}) {
        uint8_t utilization = KEPT;
        EXPECT_EQ(wlan_get_channel_utilization_rtk("wlan0", &utilization, KOLT_LINK_2G, fourth), 1);
        EXPECT_EQ(utilization, 57);
    }
}

TEST_F(Utilization, UtilisationFailsWhenThePipeCannotBeStarted) {
    uint8_t utilization = KEPT;
    {
        const no_descriptors none;
        EXPECT_EQ(wlan_get_channel_utilization("wlan0", &utilization, KOLT_LINK_5G), 0);
    }
    EXPECT_EQ(utilization, KEPT);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "wlan_get_channel_utilization_rtk",
                                               "Error: popen cmd cat /proc/net/rtk_wifi6/wlan0/stats"}));
}

TEST_F(Utilization, UtilisationsAndLinesOfAnySizeAreSurvived) {
    for (const char *number : {"99999999999999999999999999", "-99999999999999999999999999", "4294967353"}) {
        write_stats(std::string(5000, 'x') + "\nch_utilization: " + number + "\n");
        uint8_t utilization = KEPT;
        EXPECT_EQ(wlan_get_channel_utilization_rtk("wlan0", &utilization, KOLT_LINK_2G, 1), 1);
        EXPECT_LE(utilization, 100);
    }
}

// ---- Activation. The driver's table has no activity figure, and 0 is above no threshold.

class Activation : public DriverFiles {
protected:
    void SetUp() override {
        DriverFiles::SetUp();
        write_stations(header("2") + station_block{}.text() + station_block{}.text());
    }
    void TearDown() override {
        EXPECT_THAT(logged_texts("kolt_activate_link"), IsEmpty());
    }
    const at_log_level dump_{3}; // at which every frame is logged
    const config_param param_{.idle_threshold = 0, .activate_pkts = 1000};
};

TEST_F(Activation, ActivatingAStationInterfaceSendsNothingToStationsWithoutActivity) {
    wlan_activate_links("wlan0", &param_, KOLT_LINK_2G);
    wlan_activate_links("wlan0", &param_, KOLT_LINK_5G);
    EXPECT_THAT(started_commands, ElementsAre("cat /proc/wlan0/sta_info", "cat /proc/net/rtk_wifi6/wlan0/sta_info"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Activation, ActivatingAnAccessPointInterfaceSendsNothingToStationsWithoutActivity) {
    wlan_activate_links_for_ap("wlan0", &param_, KOLT_LINK_2G);
    wlan_activate_links_for_ap("wlan0", &param_, KOLT_LINK_5G_2);
    EXPECT_THAT(started_commands, ElementsAre("cat /proc/wlan0/sta_info", "cat /proc/net/rtk_wifi6/wlan0/sta_info"));
    EXPECT_THAT(logged(), IsEmpty());
}

class StationActivation : public DriverFiles {};

TEST_F(StationActivation, OnlyStationsAboveTheIdleThresholdAreWokenAsOftenAsToldInARow) {
    const at_log_level dump(3);
    const test_interface radio("wlan9");
    const wlan_link stations[] = {{.mac = {2, 0, 0, 0, 0, 1}, .activity = 10},
                                  {.mac = {2, 0, 0, 0, 0, 2}, .activity = 11},
                                  {.mac = {2, 0, 0, 0, 0, 3}, .activity = 9},
                                  {.mac = {2, 0, 0, 0, 0, 4}, .activity = 65535}};
    rtk_activate_stations("wlan9", stations, 10, 2);
    EXPECT_EQ(logged_texts("kolt_activate_link").size(), 4U);
    for (const char last : {'\2', '\2', '\4', '\4'})
        EXPECT_EQ(radio.sent_frame(0x893A).substr(0, 6), std::string("\2\0\0\0\0", 5) + last);
}

TEST_F(StationActivation, NothingIsSentWhenToldToSendNoPackets) {
    const at_log_level dump(3);
    const test_interface radio("wlan9");
    const wlan_link station{.mac = {2, 0, 0, 0, 0, 1}, .activity = 1};
    rtk_activate_stations("wlan9", {&station, 1}, 0, 0);
    EXPECT_THAT(logged_texts("kolt_activate_link"), IsEmpty());
}

TEST_F(Activation, PipeThatCannotBeStartedIsLogged) {
    const config_param param = param_;
    {
        const no_descriptors none;
        wlan_activate_links_rtk("wlan0", &param, KOLT_LINK_2G);
        wlan_activate_links_for_ap_rtk("wlan0", &param, KOLT_LINK_5G);
    }
    EXPECT_THAT(logged(),
                ElementsAre(log_line{LOG_ERR, "wlan_get_links_rtk", "Error: popen cmd cat /proc/wlan0/sta_info"},
                            log_line{LOG_ERR, "wlan_get_links_rtk",
                                     "Error: popen cmd cat /proc/net/rtk_wifi6/wlan0/sta_info"}));
}

TEST_F(Activation, ActivatingLeavesNoDescriptorBehind) {
    const size_t before = open_descriptors();
    wlan_activate_links_rtk("wlan0", &param_, KOLT_LINK_2G);
    wlan_activate_links_for_ap_rtk("wlan0", &param_, KOLT_LINK_2G);
    EXPECT_EQ(open_descriptors(), before);
}

} // namespace
