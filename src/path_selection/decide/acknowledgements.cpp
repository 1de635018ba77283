// A stream of acknowledgements is small, but where it goes the large stream that it answers goes as well.
#include "path_selection/decide/acknowledgements.h"

#include <algorithm>

namespace {

constexpr uint32_t LARGE_STREAM = 30000000; // bytes a period: no mere acknowledgements any more
constexpr uint32_t SMALL_PACKET = 200;      // bytes

uint32_t difference(uint64_t current, uint64_t previous) {
    return static_cast<uint32_t>(current) - static_cast<uint32_t>(previous);
}

uint32_t at_least_one(uint32_t packets) {
    return packets != 0 ? packets : 1;
}

const ps_path_history *find_history(const ps_history_table &histories, uint32_t ifindex) {
    for (const ps_path_history &history : histories) {
        if (history.ifindex == ifindex)
            return &history;
    }
    return nullptr;
}

void estimate_stream(const ps_history_table &histories, ha_entry *stream) {
    if (stream->num_pkts == 0)
        return; // there is no mean packet size
    const uint32_t mean = stream->num_bytes / stream->num_pkts;
    const ps_path_history *history = find_history(histories, stream->port);
    if (history == nullptr)
        return;
    const uint32_t estimate = history->rx_tx_factor * history->rx_pkt_size;
    if (stream->num_bytes >= LARGE_STREAM || mean >= SMALL_PACKET || estimate <= mean)
        return;
    stream->num_bytes = stream->num_pkts * estimate;
    stream->estimated = 1;
}

} // namespace

ps_traffic ps_kernel_traffic(const kolt_if_stat &previous, const kolt_if_stat &current) {
    return {.rx_bytes = difference(current.rx_bytes, previous.rx_bytes),
            .rx_packets = at_least_one(difference(current.rx_packets, previous.rx_packets)),
            .tx_bytes = difference(current.tx_bytes, previous.tx_bytes),
            .tx_packets = at_least_one(difference(current.tx_packets, previous.tx_packets))};
}

void ps_take_traffic(ps_path_history *history, const ps_traffic &moved) {
    // A sum of packets can wrap to 0.
    const auto factor = static_cast<uint8_t>(moved.rx_packets / at_least_one(moved.tx_packets));
    history->rx_tx_factor = factor != 0 ? factor : 1;
    history->rx_pkt_size = moved.rx_bytes / at_least_one(moved.rx_packets);
    history->rx_selected = moved.tx_bytes < moved.rx_bytes ? 1 : 0;
    // The newest total takes the place of the one that moved there, so slot 4 keeps what it has.
    std::copy(history->data_rate + 1, history->data_rate + PS_DATA_RATES, history->data_rate);
    history->data_rate[0] = moved.rx_bytes + moved.tx_bytes;
}

void ps_estimate_acknowledgements(const ps_history_table &histories, std::span<ha_entry> streams) {
    for (ha_entry &stream : streams) {
        if (kolt_check_ha_entry_valid(&stream) == 0)
            break;
        estimate_stream(histories, &stream);
    }
}
