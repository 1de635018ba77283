// The Wi-Fi driver of this program: the reading operations of the daemon's. What wakes links, drops cached flows or
// writes entries is not among them.
#include "adaptors/rtk/rtk_wlan.h"

namespace {

constexpr wlan_platform READING = {
    .get_uplink_rate = wlan_get_uplink_rate_rtk,
    .get_channel_utilization = wlan_get_channel_utilization_rtk,
    .activate_links = nullptr,
    .activate_links_for_ap = nullptr,
    .delete_wds_entry = nullptr,
    .get_util_adjustment = wlan_get_util_adjustment_rtk,
    .is_5g_low_noise = nullptr,
    .get_links = nullptr,
    .reserved = nullptr,
    .flush_all_fcache_flow = nullptr,
    .flush_fcache_flow_entry = nullptr,
    .update_fcache_flow_list = nullptr,
    .get_maximal_ha_entries_from_fcache = nullptr,
    .flush_fc_flow_by_ha = nullptr,
    .flush_fc_flow_by_mac = nullptr,
    .get_if_stat_from_fcache = nullptr,
    .cal_hash_and_set_ha = nullptr,
    .configure_fc_mode = nullptr,
};

} // namespace

const wlan_platform *wlan_platform_ops = &READING;
