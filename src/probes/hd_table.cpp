// An entry is moved by adding it again with another interface.
#include "probes/hd_table.h"

#include "core/log.h"
#include "probes/bridge_tables.h"

#include <net/if.h>

kolt_link_record *kolt_get_link_stats_by_port(link_records &records, uint32_t ifindex) {
    char name[IF_NAMESIZE] = {};
    if (if_indextoname(ifindex, name) == nullptr) {
        KOLT_ERROR("get interface name");
        return nullptr;
    }
    for (kolt_link_record &record : records) {
        if (kolt_name_equal(record.name, name))
            return &record;
    }
    return nullptr;
}

int kolt_update_hd_table(const char *bridge, link_records &records, kolt_link_type target) {
    const auto table = fetch_table<hd_entry>(bridge);
    if (!table) {
        KOLT_ERROR("get hd table");
        return 0;
    }
    const kolt_name_text target_name(target < records.size() ? records[target].name : "");
    for (const hd_entry &entry : table.entries) {
        const kolt_link_record *record = kolt_get_link_stats_by_port(records, entry.port);
        if (record == nullptr || record->index >= records.size() || records[record->index].flag != 0)
            continue;
        // A refused entry stays where it is until the next link change; the library has its own say on why.
        (void)kolt_add_hd_entry(bridge, entry.second_mac, entry.client_mac, target_name.text);
    }
    return 1;
}
