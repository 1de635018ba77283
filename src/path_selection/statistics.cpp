#include "adaptors/flow_cache.h"
#include "core/log.h"
#include "path_selection/interface_cache.h"
#include "path_selection/module_parts.h"
#include "probes/counters.h"
#include "probes/streams.h"

#include <algorithm>

namespace {

constexpr uint32_t LARGE_STREAM = 30000000; // bytes a period: no mere acknowledgements any more
constexpr uint32_t SMALL_PACKET = 200;      // bytes

// The traffic of one period, in wrapping 32-bit numbers.
struct traffic {
    uint32_t rx_bytes = 0;
    uint32_t rx_packets = 0;
    uint32_t tx_bytes = 0;
    uint32_t tx_packets = 0;
};

uint32_t difference(uint64_t current, uint64_t previous) {
    return static_cast<uint32_t>(current) - static_cast<uint32_t>(previous);
}

uint32_t at_least_one(uint32_t packets) {
    return packets != 0 ? packets : 1;
}

traffic kernel_traffic(const kolt_if_stat &previous, const kolt_if_stat &current) {
    return {.rx_bytes = difference(current.rx_bytes, previous.rx_bytes),
            .rx_packets = at_least_one(difference(current.rx_packets, previous.rx_packets)),
            .tx_bytes = difference(current.tx_bytes, previous.tx_bytes),
            .tx_packets = at_least_one(difference(current.tx_packets, previous.tx_packets))};
}

void add_cached_traffic(traffic *sum, uint32_t ifindex) {
    traffic cached;
    // Without a flow cache nothing goes past the kernel.
    (void)kolt_get_if_stat_from_fcache(ifindex, &cached.rx_packets, &cached.rx_bytes, &cached.tx_packets,
                                       &cached.tx_bytes);
    sum->rx_bytes += cached.rx_bytes;
    sum->rx_packets += cached.rx_packets;
    sum->tx_bytes += cached.tx_bytes;
    sum->tx_packets += cached.tx_packets;
}

void take_traffic(ps_path_history *history, const traffic &moved) {
    // A sum of packets can wrap to 0.
    const auto factor = static_cast<uint8_t>(moved.rx_packets / at_least_one(moved.tx_packets));
    history->rx_tx_factor = factor != 0 ? factor : 1;
    history->rx_pkt_size = moved.rx_bytes / at_least_one(moved.rx_packets);
    history->rx_selected = moved.tx_bytes < moved.rx_bytes ? 1 : 0;
    // The newest total takes the place of the one that moved there, so slot 4 keeps what it has.
    std::copy(history->data_rate + 1, history->data_rate + PS_DATA_RATES, history->data_rate);
    history->data_rate[0] = moved.rx_bytes + moved.tx_bytes;
}

const ps_path_history *find_history(const ps_history_table &histories, uint32_t ifindex) {
    const auto *found = std::find_if(histories.begin(), histories.end(),
                                     [ifindex](const auto &history) { return history.ifindex == ifindex; });
    return found != histories.end() ? found : nullptr;
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

int path_selection_update_uplink_path_stats(const char * /*bridge*/, const ps_path_table *paths,
                                            ps_history_table *histories) {
    if (paths == nullptr || histories == nullptr)
        return 0;
    for (uint32_t type = 0; type < KOLT_LINK_COUNT; type++) {
        const ps_path &row = (*paths)[type];
        if (!ps_is_present(row))
            continue;
        ps_path_history &history = (*histories)[type];
        kolt_if_stat counters;
        if (kolt_get_if_stat(row.name, &counters) == 0) {
            KOLT_ERROR("get %.16s stat failed", row.name);
            return 0;
        }
        history.ifindex = ps_interface_index(row.name);
        history.prev_stat = history.cur_stat;
        history.cur_stat = counters;
        traffic moved = kernel_traffic(history.prev_stat, history.cur_stat);
        add_cached_traffic(&moved, history.ifindex);
        take_traffic(&history, moved);
        KOLT_DEBUG("path: %.16s, diff_rx_bytes: %d, diff_tx_bytes: %d", row.name, static_cast<int>(moved.rx_bytes),
                   static_cast<int>(moved.tx_bytes));
    }
    return 1;
}

void path_selection_estimate_ack_streams(const ps_history_table *histories, kolt_client_list *clients) {
    if (histories == nullptr || clients == nullptr)
        return;
    for (uint8_t i = 0; i < clients->count; i++) {
        for (ha_entry &stream : clients->clients[i].ha) {
            if (kolt_check_ha_entry_valid(&stream) == 0)
                break;
            estimate_stream(*histories, &stream);
        }
    }
}
