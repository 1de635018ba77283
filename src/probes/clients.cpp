// The forwarding table and the HD table, each walked once and matched to the ports, or to the clients, by an index.
#include "probes/clients.h"

#include "core/log.h"
#include "probes/bridge_tables.h"
#include "probes/streams/client_index.h"

#include <algorithm>
#include <cstring>
#include <net/if.h>

namespace {

constexpr size_t EXAMINED_FDB_ENTRIES = 256;

struct port_index {
    uint32_t ifindex[UINT8_MAX]; // as many as a list can count
};

// Asks the kernel once a port, not once a port and forwarding entry.
port_index index_ports(const kolt_interface_list *ports) {
    port_index index{};
    for (uint8_t i = 0; i < ports->count; i++)
        index.ifindex[i] = if_nametoindex(kolt_name_text(ports->interfaces[i]->name).text);
    return index;
}

void fill_client(kolt_client *client, const fdb_entry &entry, uint32_t ifindex, const config_interface &port) {
    memcpy(client->mac, entry.mac, sizeof client->mac);
    client->type = port.type;
    client->relay = port.relay;
    client->port = ifindex;
    client->hd_port = KOLT_NO_HD_PORT;
}

} // namespace

uint8_t kolt_get_fdb_client_list(const char *bridge, kolt_client *clients, const kolt_interface_list *ports) {
    const auto table = fetch_table<fdb_entry>(bridge);
    if (!table) {
        KOLT_ERROR("get fdb table");
        return 0;
    }
    const port_index index = index_ports(ports);
    uint8_t count = 0;
    for (const fdb_entry &entry : table.entries.first(std::min(table.entries.size(), EXAMINED_FDB_ENTRIES))) {
        const uint32_t ifindex = entry.port_high * 256U + entry.port_low;
        for (uint8_t k = 0; k < ports->count; k++) {
            if (entry.is_local == 1 || index.ifindex[k] != ifindex || count == KOLT_MAX_LISTED_CLIENTS)
                continue;
            fill_client(&clients[count], entry, ifindex, *ports->interfaces[k]);
            count++;
        }
    }
    return count;
}

int kolt_get_hd_client_list(const char *bridge, kolt_client *clients, uint8_t count) {
    const auto table = fetch_table<hd_entry>(bridge);
    if (!table) {
        KOLT_ERROR("get hd table");
        return 0;
    }
    const hd_entry *first_entries[KOLT_MAX_LISTED_CLIENTS] = {}; // by the client's number
    const std::span<kolt_client> listed(clients, count);
    kolt_client_index index;
    index.assign(listed);
    for (const hd_entry &entry : table.entries) {
        const uint16_t number = index.number_of(entry.client_mac);
        if (number != KOLT_NO_CLIENT && first_entries[number] == nullptr)
            first_entries[number] = &entry;
    }
    for (kolt_client &client : listed) {
        if (const hd_entry *entry = first_entries[index.number_of(client.mac)])
            client.hd_port = entry->port;
    }
    return 1;
}

uint8_t kolt_get_client_list(const char *bridge, const kolt_interface_list *ports, kolt_client *clients) {
    const uint8_t count = kolt_get_fdb_client_list(bridge, clients, ports);
    if (kolt_get_hd_client_list(bridge, clients, count) == 0)
        KOLT_ERROR("update hd & hc port");
    return count;
}

int kolt_check_relay_stream(const kolt_client_list *list, const uint8_t *mac) {
    if (list == nullptr || mac == nullptr)
        return 0;
    for (const kolt_client &client : list->span()) {
        if (kolt_mac_equal(client.mac, mac) == 1 && !client.is_nonrelay()) // any mark counts here, not 1 alone
            return 1;
    }
    return 0;
}
