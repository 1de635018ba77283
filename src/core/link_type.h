// The backhaul links of a node, told apart by their type.
#pragma once

#include <cstdint>

// The same numbers index every per-link table.
enum kolt_link_type : uint32_t {
    KOLT_LINK_ETHERNET = 0,
    KOLT_LINK_PLC = 1,
    KOLT_LINK_2G = 2,
    KOLT_LINK_5G = 3,
    KOLT_LINK_5G_2 = 4,
    KOLT_LINK_NONE = 5,
};
constexpr uint32_t KOLT_LINK_COUNT = 5;
constexpr kolt_link_type KOLT_LINKS[KOLT_LINK_COUNT] = {KOLT_LINK_ETHERNET, KOLT_LINK_PLC, KOLT_LINK_2G, KOLT_LINK_5G,
                                                        KOLT_LINK_5G_2};
constexpr kolt_link_type KOLT_WIFI_LINKS[] = {KOLT_LINK_2G, KOLT_LINK_5G, KOLT_LINK_5G_2};

[[nodiscard]] constexpr bool kolt_is_wifi_link(kolt_link_type type) {
    return type == KOLT_LINK_2G || type == KOLT_LINK_5G || type == KOLT_LINK_5G_2;
}
