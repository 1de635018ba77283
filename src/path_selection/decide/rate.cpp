// The upper third of the samples, of the direction that carries the traffic.
#include "path_selection/decide/rate.h"

#include "path_selection/decide/sort_array.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr uint16_t LOWEST_TRUSTED_RATE = 21; // a lower one is a direction that idles

uint16_t direction_rate(const ps_rates &rates, bool rx_selected) {
    const auto [low, high] = std::minmax(rates.tx, rates.rx);
    if (low < LOWEST_TRUSTED_RATE)
        return high;
    return rx_selected ? rates.rx : rates.tx;
}

} // namespace

ps_processed_rate ps_add_rate_sample(ps_path_history *history, const ps_rates &rates) {
    // An empty slot is used again: it holds no rate that counts.
    if (history->samples[history->sample_index].rate != 0)
        history->sample_index = static_cast<uint8_t>((history->sample_index + 1U) % PS_SAMPLES);
    history->samples[history->sample_index] = {
        .tx_rate = rates.tx, .rx_rate = rates.rx, .rate = direction_rate(rates, history->rx_selected != 0)};
    ps_processed_rate processed;
    std::transform(std::begin(history->samples), std::end(history->samples), processed.sorted,
                   [](const ps_rate_sample &sample) { return sample.rate; });
    const uint8_t filled = kolt_sort_array(processed.sorted, PS_SAMPLES);
    processed.rate = filled > 0 ? processed.sorted[filled / 3] : 0;
    return processed;
}
