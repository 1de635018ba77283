// What the Realtek driver can do; the operations that it lacks stay empty.
#include "adaptors/rtk/rtk_platform.h"

#include "adaptors/rtk/rtk_flow_hash.h"
#include "adaptors/rtk/rtk_wlan.h"

const wlan_platform wlan_platform_rtk = {
    .get_uplink_rate = wlan_get_uplink_rate_rtk,
    .get_channel_utilization = wlan_get_channel_utilization_rtk,
    .activate_links = wlan_activate_links_rtk,
    .activate_links_for_ap = wlan_activate_links_for_ap_rtk,
    .delete_wds_entry = wlan_delete_wds_entry_rtk,
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
    .cal_hash_and_set_ha = kolt_cal_hash_and_set_ha_rtk,
    .configure_fc_mode = nullptr,
};
