// Counters are read here; what they come to is decided elsewhere.
#include "path_selection/statistics.h"

#include "adaptors/flow_cache.h"
#include "core/log.h"
#include "path_selection/decide/acknowledgements.h"
#include "probes/counters.h"

#include <net/if.h>

namespace {

void add_cached_traffic(ps_traffic *sum, uint32_t ifindex) {
    ps_traffic cached;
    // Without a flow cache nothing goes past the kernel.
    (void)kolt_get_if_stat_from_fcache(ifindex, &cached.rx_packets, &cached.rx_bytes, &cached.tx_packets,
                                       &cached.tx_bytes);
    sum->rx_bytes += cached.rx_bytes;
    sum->rx_packets += cached.rx_packets;
    sum->tx_bytes += cached.tx_bytes;
    sum->tx_packets += cached.tx_packets;
}

} // namespace

int path_selection_update_uplink_path_stats(const char * /*bridge*/, const ps_path_table *paths,
                                            ps_history_table *histories) {
    if (paths == nullptr || histories == nullptr)
        return 0;
    for (const kolt_link_type type : KOLT_LINKS) {
        const ps_path &row = (*paths)[type];
        if (!row.is_present())
            continue;
        ps_path_history &history = (*histories)[type];
        kolt_if_stat counters;
        if (kolt_get_if_stat(row.name, &counters) == 0) {
            KOLT_ERROR("get %.16s stat failed", row.name);
            return 0;
        }
        history.ifindex = if_nametoindex(kolt_name_text(row.name).text);
        history.prev_stat = history.cur_stat;
        history.cur_stat = counters;
        ps_traffic moved = ps_kernel_traffic(history.prev_stat, history.cur_stat);
        add_cached_traffic(&moved, history.ifindex);
        ps_take_traffic(&history, moved);
        KOLT_DEBUG("path: %.16s, diff_rx_bytes: %d, diff_tx_bytes: %d", row.name, static_cast<int>(moved.rx_bytes),
                   static_cast<int>(moved.tx_bytes));
    }
    return 1;
}

void path_selection_estimate_ack_streams(const ps_history_table *histories, kolt_client_list *clients) {
    if (histories == nullptr || clients == nullptr)
        return;
    for (kolt_client &client : clients->span())
        ps_estimate_acknowledgements(*histories, client.ha);
}
