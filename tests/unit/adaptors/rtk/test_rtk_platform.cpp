// Which operations the Realtek table has, and what the program does with it.
#include "adaptors/flow_cache.h"
#include "adaptors/rtk/rtk_flow_hash.h"
#include "adaptors/rtk/rtk_platform.h"
#include "adaptors/rtk/rtk_stations.h"
#include "adaptors/rtk/rtk_wlan.h"
#include "adaptors/wlan.h"
#include "support/fake_platform.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::IsEmpty;

TEST(RtkTable, TableHoldsTheOperationsThatTheDriverHas) {
    EXPECT_EQ(wlan_platform_rtk.get_uplink_rate, wlan_get_uplink_rate_rtk);
    EXPECT_EQ(wlan_platform_rtk.get_channel_utilization, wlan_get_channel_utilization_rtk);
    EXPECT_EQ(wlan_platform_rtk.activate_links, wlan_activate_links_rtk);
    EXPECT_EQ(wlan_platform_rtk.activate_links_for_ap, wlan_activate_links_for_ap_rtk);
    EXPECT_EQ(wlan_platform_rtk.delete_wds_entry, wlan_delete_wds_entry_rtk);
    EXPECT_EQ(wlan_platform_rtk.get_util_adjustment, wlan_get_util_adjustment_rtk);
    EXPECT_EQ(wlan_platform_rtk.cal_hash_and_set_ha, kolt_cal_hash_and_set_ha_rtk);
}

TEST(RtkTable, EveryOtherSlotOfTheTableIsEmpty) {
    EXPECT_EQ(wlan_platform_rtk.is_5g_low_noise, nullptr);
    EXPECT_EQ(wlan_platform_rtk.get_links, nullptr);
    EXPECT_EQ(wlan_platform_rtk.reserved, nullptr);
    EXPECT_EQ(wlan_platform_rtk.flush_all_fcache_flow, nullptr);
    EXPECT_EQ(wlan_platform_rtk.flush_fcache_flow_entry, nullptr);
    EXPECT_EQ(wlan_platform_rtk.update_fcache_flow_list, nullptr);
    EXPECT_EQ(wlan_platform_rtk.get_maximal_ha_entries_from_fcache, nullptr);
    EXPECT_EQ(wlan_platform_rtk.flush_fc_flow_by_ha, nullptr);
    EXPECT_EQ(wlan_platform_rtk.flush_fc_flow_by_mac, nullptr);
    EXPECT_EQ(wlan_platform_rtk.get_if_stat_from_fcache, nullptr);
    EXPECT_EQ(wlan_platform_rtk.configure_fc_mode, nullptr);
}

// The order of the slots is part of what another driver's table relies on.
TEST(RtkTable, SlotsOfTheTableHaveTheAgreedOrder) {
    constexpr size_t SLOT = sizeof(void (*)());
    EXPECT_EQ(offsetof(wlan_platform, get_uplink_rate), 0 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, get_channel_utilization), 1 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, activate_links), 2 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, activate_links_for_ap), 3 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, delete_wds_entry), 4 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, get_util_adjustment), 5 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, is_5g_low_noise), 6 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, get_links), 7 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, reserved), 8 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, flush_all_fcache_flow), 9 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, flush_fcache_flow_entry), 10 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, update_fcache_flow_list), 11 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, get_maximal_ha_entries_from_fcache), 12 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, flush_fc_flow_by_ha), 13 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, flush_fc_flow_by_mac), 14 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, get_if_stat_from_fcache), 15 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, cal_hash_and_set_ha), 16 * SLOT);
    EXPECT_EQ(offsetof(wlan_platform, configure_fc_mode), 17 * SLOT);
    EXPECT_EQ(sizeof(wlan_platform), 18 * SLOT);
}

TEST(DriverTable, ProgramHasTheRealtekTableFromTheStart) {
    EXPECT_EQ(wlan_platform_ops, &wlan_platform_rtk);
}

// What the daemon is built with is what these see: no test installs a table here.
class BuiltInTable : public testing::Test {
protected:
    void SetUp() override {
        platform = fake_platform{};
        clear_log();
    }
    void TearDown() override {
        EXPECT_THAT(platform.calls, IsEmpty());
        EXPECT_THAT(logged(), IsEmpty());
    }
    const uint8_t mac_[6] = {1, 2, 3, 4, 5, 6};
};

TEST_F(BuiltInTable, FlushAllByMacAndConfigureModeReturnZeroAndChangeNothing) {
    EXPECT_EQ(kolt_flush_all_fcache_flow(), 0);
    EXPECT_EQ(kolt_flush_fc_flow_by_mac(mac_, 0), 0);
    for (const kolt_work_mode mode : {KOLT_MODE_RE, KOLT_MODE_FAP, KOLT_MODE_HAP, KOLT_MODE_UNKNOWN})
        EXPECT_EQ(kolt_configure_fc_mode(mode), 0);
}

TEST_F(BuiltInTable, OtherFlowCacheOperationsReturnZeroAndChangeNothing) {
    uint32_t counters[4] = {1, 2, 3, 4};
    const kolt_fc_flow_key key;
    EXPECT_EQ(kolt_flush_fcache_flow_entry(1), 0);
    EXPECT_EQ(kolt_update_fcache_flow_list(0, 0, 0, 0), 0);
    EXPECT_EQ(kolt_get_maximal_ha_entries_from_fcache(nullptr, 20, nullptr), 0);
    EXPECT_EQ(kolt_get_if_stat_from_fcache(1, &counters[0], &counters[1], &counters[2], &counters[3]), 0);
    kolt_flush_fc_flow_by_ha(&key, 1);
    EXPECT_THAT(counters, testing::ElementsAre(1, 2, 3, 4));
}

TEST_F(BuiltInTable, BuiltInTableSeesNeitherALowNoiseChannelNorALink) {
    wlan_link links[WLAN_MAX_LINKS];
    EXPECT_EQ(wlan_is_5g_low_noise(65535, 0, 1), 0);
    EXPECT_EQ(wlan_get_links("wlan0", links), 0);
}

TEST_F(BuiltInTable, UtilisationIsAdjustedByZero) {
    uint8_t adjustment = 77;
    EXPECT_EQ(wlan_get_util_adjustment("wlan0", 3, &adjustment, 9), 1);
    EXPECT_EQ(adjustment, 0);
}

TEST_F(BuiltInTable, NoWdsEntryIsDeleted) {
    wlan_delete_wds_entry("wlan0", mac_);
}

} // namespace
