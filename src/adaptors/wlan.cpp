#include "adaptors/wlan.h"

int wlan_get_uplink_rate(const char *ifname, wlan_uplink_rate *rate, uint8_t *rssi, uint32_t type) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->get_uplink_rate == nullptr)
        return 0;
    return wlan_platform_ops->get_uplink_rate(ifname, rate, rssi, type) != 0 ? 1 : 0;
}

int wlan_get_channel_utilization(const char *ifname, uint8_t *utilization, uint32_t type) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->get_channel_utilization == nullptr)
        return 0;
    return wlan_platform_ops->get_channel_utilization(ifname, utilization, type, 1) != 0 ? 1 : 0;
}

void wlan_activate_links(const char *ifname, const config_param *param, uint32_t type) {
    if (wlan_platform_ops != nullptr && wlan_platform_ops->activate_links != nullptr)
        wlan_platform_ops->activate_links(ifname, param, type);
}

void wlan_activate_links_for_ap(const char *ifname, const config_param *param, uint32_t type) {
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
    return wlan_platform_ops->get_links(ifname, links, 1);
}
