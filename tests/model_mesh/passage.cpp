// What becomes of a frame on its way.
#include "model_mesh/mesh.h"

namespace {

uint64_t scramble(uint64_t value) {
    value = (value ^ value >> 30) * 0xbf58476d1ce4e5b9;
    value = (value ^ value >> 27) * 0x94d049bb133111eb;
    return value ^ value >> 31;
}

size_t at(int index) {
    return static_cast<size_t>(index);
}

} // namespace

// How long a frame takes that is sent now; nothing when it is lost.
std::optional<uint64_t> mesh::passage_ms(int link, int end) {
    const uint64_t dice = scramble(schedule_.seed * 0x9e3779b97f4a7c15 + sent_);
    const uint32_t number = sent_++;
    const size_t direction = at(2 * link + end);
    if (!carries(link, end))
        return {};
    uint64_t passage = direction < schedule_.latency_ms.size() ? schedule_.latency_ms[direction] : 1;
    const bool calm = now_ms >= schedule_.calm_after_ms;
    if (calm)
        passage = 1;
    else if (dice % 1000 < schedule_.loss_permille)
        return {};
    else if (schedule_.jitter_ms > 0)
        passage += (dice >> 20) % schedule_.jitter_ms;
    for (const schedule::exception &one : schedule_.exceptions) {
        if (one.frame == number && one.lost)
            return {};
        if (one.frame == number)
            passage += one.delay_ms;
    }
    return passage;
}
