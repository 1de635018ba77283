// Counting over a ring that fills from its first slot.
#include "path_selection/decide/majority.h"

kolt_link_type ps_majority_choice(const ps_hd_ring &ring) {
    uint32_t counts[KOLT_LINK_COUNT] = {};
    for (const int32_t type : ring) {
        if (type < 0 || type >= static_cast<int32_t>(KOLT_LINK_COUNT))
            break;
        counts[type]++;
    }
    kolt_link_type picked = KOLT_LINK_ETHERNET;
    for (const kolt_link_type type : KOLT_LINKS) {
        if (counts[type] >= counts[picked])
            picked = type;
    }
    return picked;
}

uint32_t ps_moved_bytes(const ps_history_table &histories, size_t slot) {
    uint32_t sum = 0;
    for (const ps_path_history &history : histories)
        sum += history.data_rate[slot];
    return sum;
}
