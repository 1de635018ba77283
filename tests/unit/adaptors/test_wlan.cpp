// Every Wi-Fi operation by a driver table that records it, and without one.
#include "adaptors/generic_operation.h"
#include "adaptors/wlan.h"

#include <limits>

namespace {

wlan_uplink_rate rate;
uint8_t rssi;
uint8_t utilization;
uint8_t adjustment;
wlan_link links[WLAN_MAX_LINKS];
const config_param param;
const uint8_t wlan_station[] = {0x02, 0x11, 0x22, 0x33, 0x44, 0xFE};

using recording::address;

const std::vector<generic_operation> WLAN_OPERATIONS = {
    {"GetUplinkRate", "get_uplink_rate", [] { return wlan_get_uplink_rate("wlan0.1", &rate, &rssi, KOLT_LINK_5G); },
     "wlan0.1, " + address(&rate) + ", " + address(&rssi) + ", 3", generic_operation::REDUCED,
     [](wlan_platform &table) { table.get_uplink_rate = nullptr; }},
    // The slot gets a fourth argument that the operation does not have.
    {"GetChannelUtilization", "get_channel_utilization",
     [] { return wlan_get_channel_utilization("wlan1", &utilization, KOLT_LINK_5G_2); },
     "wlan1, " + address(&utilization) + ", 4, 1", generic_operation::REDUCED,
     [](wlan_platform &table) { table.get_channel_utilization = nullptr; }},
    {"ActivateLinks", "activate_links",
     [] {
         wlan_activate_links("wlan2", &param, KOLT_LINK_2G);
         return 0;
     },
     "wlan2, " + address(&param) + ", 2", generic_operation::NONE,
     [](wlan_platform &table) { table.activate_links = nullptr; }},
    {"ActivateLinksForAp", "activate_links_for_ap",
     [] {
         wlan_activate_links_for_ap("wlan3", &param, KOLT_LINK_5G_2);
         return 0;
     },
     "wlan3, " + address(&param) + ", 4", generic_operation::NONE,
     [](wlan_platform &table) { table.activate_links_for_ap = nullptr; }},
    {"DeleteWdsEntry", "delete_wds_entry",
     [] {
         wlan_delete_wds_entry("wlan4", wlan_station);
         return 0;
     },
     "wlan4, 02:11:22:33:44:FE", generic_operation::NONE,
     [](wlan_platform &table) { table.delete_wds_entry = nullptr; }},
    {"GetUtilAdjustment", "get_util_adjustment",
     [] { return wlan_get_util_adjustment("wlan5", 255, &adjustment, LARGEST_WORD); },
     "wlan5, 255, " + address(&adjustment) + ", " + std::to_string(LARGEST_WORD), generic_operation::REDUCED,
     [](wlan_platform &table) { table.get_util_adjustment = nullptr; }},
    {"Is5gLowNoise", "is_5g_low_noise", [] { return wlan_is_5g_low_noise(65535, 254, LARGEST_WORD); },
     "65535, 254, " + std::to_string(LARGEST_WORD), generic_operation::REDUCED,
     [](wlan_platform &table) { table.is_5g_low_noise = nullptr; }},
    // The slot's third argument is always 1, whatever the interface.
    {"GetLinks", "get_links", [] { return wlan_get_links("wlan6", links); }, "wlan6, " + address(links) + ", 1",
     generic_operation::AS_IS, [](wlan_platform &table) { table.get_links = nullptr; }},
};

class Wlan : public testing::TestWithParam<generic_operation> {};
INSTANTIATE_TEST_SUITE_P(Operations, Wlan, testing::ValuesIn(WLAN_OPERATIONS), operation_name);

TEST_P(Wlan, WifiOperationDoesNothingWithoutADriverTable) {
    expect_nothing_without_a_table(GetParam());
}

TEST_P(Wlan, WifiOperationDoesNothingWhenTheDriverLacksIt) {
    expect_nothing_with_an_empty_slot(GetParam());
}

TEST_P(Wlan, WifiOperationHandsEveryArgumentToItsSlot) {
    expect_arguments_handed_on(GetParam());
}

TEST_P(Wlan, WifiOperationReturnsItsSlotsResultAsFarAsItIsDefined) {
    for (const int from_slot : SLOT_RESULTS)
        expect_result(GetParam(), from_slot);
}

TEST(WlanOutputs, RatesStayAsTheyAreWithoutADriverTable) {
    const installed_table none(nullptr);
    wlan_uplink_rate kept_rate{.tx_rate = 7, .rx_rate = 8, .mac = {1, 2, 3, 4, 5, 6}};
    uint8_t kept = 99;
    EXPECT_EQ(wlan_get_uplink_rate("wlan0", &kept_rate, &kept, KOLT_LINK_2G), 0);
    EXPECT_EQ(wlan_get_channel_utilization("wlan0", &kept, KOLT_LINK_2G), 0);
    EXPECT_EQ(wlan_get_util_adjustment("wlan0", 0, &kept, 0), 0);
    EXPECT_EQ(kept, 99);
    EXPECT_EQ(kept_rate.tx_rate, 7);
    EXPECT_EQ(kept_rate.rx_rate, 8);
    EXPECT_THAT(kept_rate.mac, testing::ElementsAre(1, 2, 3, 4, 5, 6));
}

} // namespace
