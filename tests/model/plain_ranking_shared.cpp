// The model for callers that are not written in C++: ports as bare indexes, and records whose layout is fixed here.
#include "plain_ranking.h"

#include <cstddef>

static_assert(sizeof(kolt_client) == 1464);
static_assert(offsetof(kolt_client, relay) == 12);
static_assert(offsetof(kolt_client, hd_port) == 20);
static_assert(offsetof(kolt_client, ha) == 24);
static_assert(offsetof(ha_entry, num_bytes) == 24);

extern "C" void plain_rank(ha_table_entry *table, uint32_t streams, kolt_client *clients, uint32_t count,
                           const uint32_t *nonrelay_ports, uint32_t port_count);

// Ranks the streams of the clients as plain_rank_streams does. The ports are the kernel indexes of those that are
// nonrelay, at most as many as a bridge has.
void plain_rank(ha_table_entry *table, uint32_t streams, kolt_client *clients, uint32_t count,
                const uint32_t *nonrelay_ports, uint32_t port_count) {
    config_interface records[CONFIG_MAX_INTERFACES];
    kolt_port_list ports;
    for (uint32_t i = 0; i < port_count && i < CONFIG_MAX_INTERFACES; i++) {
        records[i].ifindex = nonrelay_ports[i];
        ports.add(&records[i]);
    }
    plain_rank_streams({table, streams}, {clients, count}, ports.list());
}
