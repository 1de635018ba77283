// Streams are weighed in the unit of a path's quota.
#include "path_selection/decide/stream_share.h"

ps_quota_step ps_stream_quota(uint32_t num_bytes, uint32_t period, uint16_t path_rate) {
    ps_quota_step step;
    if (period == 0 || path_rate == 0)
        return step;
    step.rate = num_bytes / period >> 6;
    step.quota = step.rate * 10000U / path_rate;
    return step;
}

uint8_t ps_count_fitting_streams(std::span<const ha_entry> streams, uint32_t target, int64_t budget, uint32_t period,
                                 uint16_t path_rate) {
    uint8_t count = 0;
    for (const ha_entry &stream : streams) {
        if (kolt_check_ha_entry_valid(&stream) == 0 || budget < 1)
            break;
        if (stream.port == target)
            continue;
        const ps_quota_step step = ps_stream_quota(stream.num_bytes, period, path_rate);
        if (step.quota == 0)
            break;
        budget -= step.quota;
        count++;
    }
    return count;
}
