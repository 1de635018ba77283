// The HA table's streams first, then the flow cache's.
#include "probes/stream_list.h"

#include "adaptors/flow_cache.h"
#include "core/log.h"
#include "probes/bridge_tables.h"

int kolt_get_maximal_ha_entries(const char *bridge, kolt_client_list *clients, const kolt_interface_list *ports,
                                kolt_stream_ranking *ranking) {
    const auto table = fetch_table<ha_table_entry>(bridge);
    if (!table) {
        KOLT_ERROR("get ha table");
        return 0;
    }
    kolt_rank_streams(ranking, table.entries, clients->span(), *ports);
    (void)kolt_get_maximal_ha_entries_from_fcache(clients, KOLT_MAX_STREAMS, ports); // without a flow cache, none
    return 1;
}

int kolt_get_client_list_ha_entries(const char *bridge, kolt_client_list *clients, const kolt_interface_list *ports,
                                    kolt_stream_ranking *ranking) {
    const int result = kolt_get_maximal_ha_entries(bridge, clients, ports, ranking);
    if (result == 0)
        KOLT_ERROR("update ha entires failed");
    return result;
}

int kolt_update_stream_entries_stats(const char *bridge) {
    void *table = nullptr;
    uint32_t count = 0;
    if (kolt_get_duon_bridge_table(bridge, TABLE_HA, &table, &count) != 1)
        KOLT_ERROR("update ha entires failed");
    const int result = kolt_update_fcache_flow_list(0, 0, 0, 0);
    if (result != 1)
        KOLT_ERROR("update flow cache list failed");
    bridgeFreeTableBuf(table); // null when the fetch failed, which the library allows
    return result;
}
