// Percentages in 8 bits: what does not fit wraps, and what is below nothing is nothing.
#include "path_selection/decide/quota.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr int QUOTA_PER_PERCENT = 100;

int8_t floor_8bit(int value) {
    return std::max(static_cast<int8_t>(value), int8_t{0});
}

} // namespace

bool ps_set_quota(ps_path *row, kolt_link_type type, int reserved_ratio, bool cpu_overloaded) {
    row->path = type;
    // Power line gives the reserve twice: its own traffic is not in the utilisation that it reports.
    if (type == KOLT_LINK_PLC)
        row->util = static_cast<uint8_t>(floor_8bit(row->util - reserved_ratio));
    row->quota = static_cast<int16_t>(floor_8bit(100 - reserved_ratio - row->adjusted_util()) * QUOTA_PER_PERCENT);
    if (!cpu_overloaded || type != KOLT_LINK_2G)
        return false;
    row->quota = 0;
    return true;
}
