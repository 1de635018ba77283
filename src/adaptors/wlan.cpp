// Dispatch through the driver operation table.
#include "adaptors/wlan.h"

namespace {

constexpr auto ANY_LINK = static_cast<kolt_link_type>(1); // what a driver is told that is asked for all its links

} // namespace

int wlan_get_uplink_rate(const char *ifname, wlan_uplink_rate *rate, uint8_t *rssi, kolt_link_type type) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->get_uplink_rate == nullptr)
        return 0;
    return wlan_platform_ops->get_uplink_rate(ifname, rate, rssi, type) != 0 ? 1 : 0;
}

int wlan_get_channel_utilization(const char *ifname, uint8_t *utilization, kolt_link_type type) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->get_channel_utilization == nullptr)
        return 0;
    return wlan_platform_ops->get_channel_utilization(ifname, utilization, type, 1) != 0 ? 1 : 0;
}

void wlan_activate_links(const char *ifname, const config_param *param, kolt_link_type type) {
    if (wlan_platform_ops != nullptr && wlan_platform_ops->activate_links != nullptr)
        wlan_platform_ops->activate_links(ifname, param, type);
}

void wlan_activate_links_for_ap(const char *ifname, const config_param *param, kolt_link_type type) {
    if (wlan_platform_ops != nullptr && wlan_platform_ops->activate_links_for_ap != nullptr)
        wlan_platform_ops->activate_links_for_ap(ifname, param, type);
}

void wlan_delete_wds_entry(const char *ifname, const uint8_t *mac) {
    if (wlan_platform_ops != nullptr && wlan_platform_ops->delete_wds_entry != nullptr)
        wlan_platform_ops->delete_wds_entry(ifname, mac);
}

int wlan_get_util_adjustment(const char *ifname, uint8_t selector, uint8_t *adjustment, uintptr_t word) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->get_util_adjustment == nullptr)
        return 0;
    return wlan_platform_ops->get_util_adjustment(ifname, selector, adjustment, word) != 0 ? 1 : 0;
}

int wlan_is_5g_low_noise(uint16_t rate, uint8_t utilization, uintptr_t word) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->is_5g_low_noise == nullptr)
        return 0;
    return wlan_platform_ops->is_5g_low_noise(rate, utilization, word) != 0 ? 1 : 0;
}

int wlan_get_links(const char *ifname, wlan_link *links) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->get_links == nullptr)
        return 0;
    return wlan_platform_ops->get_links(ifname, links, ANY_LINK);
}
