// Any bytes as the three tables of a bridge. For each of them, FDB, HD and HA: a byte (bit 0: the bridge refuses it),
// the number of entries that it says it has, the number that it says the second time (0: the same), and the entries,
// which may be fewer.
#include "adaptors/wlan_platform.h"
#include "core/log.h"
#include "core_log.h"
#include "probes/bridge_tables.h"
#include "probes/clients.h"
#include "probes/hd_table.h"
#include "probes/ports.h"
#include "probes/stream_list.h"
#include "support/platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

const wlan_platform *wlan_platform_ops;

namespace {

// As in the module: a block for the records of all clients, which are as good as new in each period.
kolt_client *new_clients(uint8_t used) {
    static kolt_client *const clients = new kolt_client[KOLT_MAX_CLIENTS];
    std::fill_n(clients, used, kolt_client{});
    return clients;
}

void read_table(fuzz_input *input, platform_table *table) {
    table->fails = (input->byte() & 1) != 0;
    table->count = input->number<uint32_t>();
    table->second = input->number<uint32_t>();
    table->entries = input->part();
}

void check_client(const kolt_client &client, const kolt_interface_list &ports) {
    const auto same = [&client](const config_interface *port) {
        return port->ifindex == client.port && port->type == client.type && port->relay == client.relay;
    };
    const port_span all = ports.span();
    require(std::any_of(all.begin(), all.end(), same));
}

// The busiest first, at most ten of a port, all of them to this client by a nonrelay port.
void check_streams(const kolt_client &client, const kolt_interface_list &ports) {
    const std::span<const ha_entry> streams(client.ha);
    uint8_t same_port[PLATFORM_INTERFACES + 1] = {};
    for (size_t i = 0; i < streams.size() && kolt_check_ha_entry_valid(&streams[i]) == 1; i++) {
        const ha_entry &stream = streams[i];
        require(stream.num_bytes != 0 && stream.num_pkts != 0);
        require(i == 0 || streams[i - 1].num_bytes >= stream.num_bytes);
        require(kolt_mac_equal(stream.dst_addr, client.mac) == 1);
        require(kolt_check_norelay_port(stream.port, &ports) == 1 && stream.port <= PLATFORM_INTERFACES);
        require(client.hd_port != KOLT_NO_HD_PORT);
        same_port[stream.port]++;
        require(same_port[stream.port] <= 10);
    }
}

void point_elsewhere(const config &record, kolt_link_type target) {
    link_records records;
    for (size_t i = 0; i < records.size(); i++)
        kolt_copy_name(records[i].name, record.interfaces[2 * i].name);
    (void)kolt_update_hd_table("br-lan", records, target);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input{{data, size}};
    static config record;
    static kolt_stream_ranking ranking; // as in the module, its memory stays
    log_level = KOLT_LOG_QUIET;
    platform_reset();
    platform_configure(&record);
    read_table(&input, &platform.fdb);
    read_table(&input, &platform.hd);
    read_table(&input, &platform.ha);

    kolt_port_list active;
    require(kolt_get_active_ports(&record, "br-lan", &active) == PLATFORM_INTERFACES - 1);
    const kolt_interface_list ports = active.list();
    static uint8_t used;
    kolt_client *clients = new_clients(used);
    used = kolt_get_client_list("br-lan", &ports, clients);
    kolt_client_list list{.count = used, .clients = clients};
    (void)kolt_get_client_list_ha_entries("br-lan", &list, &ports, &ranking);
    for (const kolt_client &client : list.span()) {
        check_client(client, ports);
        check_streams(client, ports);
    }
    (void)kolt_update_stream_entries_stats("br-lan");
    point_elsewhere(record, static_cast<kolt_link_type>(size % 6));
    return 0;
}
