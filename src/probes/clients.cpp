#include "probes/clients.h"

#include "core/log.h"
#include "probes/client_index.h"
#include "probes/table_buffer.h"

#include <algorithm>
#include <cstring>
#include <net/if.h>

namespace {

constexpr uint32_t EXAMINED_FDB_ENTRIES = 256;

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
    void *buffer = nullptr;
    uint32_t entry_count = 0;
    if (kolt_get_duon_bridge_table(bridge, KOLT_TABLE_FDB, &buffer, &entry_count) == 0) {
        KOLT_ERROR("get fdb table");
        return 0;
    }
    const table_buffer table(buffer);
    const auto *entries = static_cast<const fdb_entry *>(buffer);
    const port_index index = index_ports(ports);
    uint8_t count = 0;
    for (uint32_t i = 0; i < std::min(entry_count, EXAMINED_FDB_ENTRIES); i++) {
        const uint32_t ifindex = entries[i].port_high * 256U + entries[i].port_low;
        for (uint8_t k = 0; k < ports->count; k++) {
            if (entries[i].is_local == 1 || index.ifindex[k] != ifindex || count == KOLT_MAX_LISTED_CLIENTS)
                continue;
            fill_client(&clients[count], entries[i], ifindex, *ports->interfaces[k]);
            count++;
        }
    }
    return count;
}

int kolt_get_hd_client_list(const char *bridge, kolt_client *clients, uint8_t count) {
    void *buffer = nullptr;
    uint32_t entry_count = 0;
    if (kolt_get_duon_bridge_table(bridge, KOLT_TABLE_HD, &buffer, &entry_count) == 0) {
        KOLT_ERROR("get hd table");
        return 0;
    }
    const table_buffer table(buffer);
    const auto *entries = static_cast<const hd_entry *>(buffer);
    const hd_entry *first_entries[KOLT_MAX_LISTED_CLIENTS] = {}; // by the client's number
    kolt_index_clients(clients, count);
    for (uint32_t i = 0; i < entry_count; i++) {
        const uint16_t number = kolt_client_number(entries[i].client_mac);
        if (number != KOLT_NO_CLIENT && first_entries[number] == nullptr)
            first_entries[number] = &entries[i];
    }
    for (uint8_t i = 0; i < count; i++) {
        if (const hd_entry *entry = first_entries[kolt_client_number(clients[i].mac)])
            clients[i].hd_port = entry->port;
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
    for (uint8_t i = 0; i < list->count; i++) {
        if (kolt_mac_equal(list->clients[i].mac, mac) == 1 && list->clients[i].relay != 0)
            return 1;
    }
    return 0;
}
