// A driver operation table for the end-to-end tests of what this program's own platform lacks: the Realtek table with
// every empty operation filled. Their results are the numbers in files of DRIVER_DIR that bear the operations' names,
// or 1 without a file, and each call is a line of the file "journal" there: its name, its arguments, "=" and its
// result.
#include "adaptors/rtk/rtk_flow_hash.h"
#include "adaptors/rtk/rtk_stations.h"
#include "adaptors/rtk/rtk_wlan.h"
#include "adaptors/wlan_platform.h"
#include "probes/streams/client.h"

#include <arpa/inet.h>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <unistd.h>

#define DRIVER_DIR "/run/kolt-node/driver/"
#define MAC_FORMAT "%02x:%02x:%02x:%02x:%02x:%02x"

namespace {

constexpr size_t LINE_SIZE = 512;

int result_of(const char *operation) {
    char path[LINE_SIZE];
    (void)snprintf(path, sizeof path, DRIVER_DIR "%s", operation);
    int result = 1;
    if (FILE *file = fopen(path, "re")) {
        if (fscanf(file, "%d", &result) != 1)
            result = 1;
        (void)fclose(file);
    }
    return result;
}

void write_line(const char *line, int length) {
    const int fd = open(DRIVER_DIR "journal", O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return;
    const ssize_t written = write(fd, line, static_cast<size_t>(length));
    (void)written; // a lost line is found missing by the test
    (void)close(fd);
}

[[gnu::format(printf, 2, 3)]] int journal(int result, const char *text, ...) {
    char call[LINE_SIZE];
    va_list arguments;
    va_start(arguments, text);
    (void)vsnprintf(call, sizeof call, text, arguments);
    va_end(arguments);
    char line[LINE_SIZE + 16];
    write_line(line, snprintf(line, sizeof line, "%s = %d\n", call, result));
    return result;
}

bool parse_mac(const char *text, uint8_t *mac) {
    return sscanf(text, "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4], &mac[5]) ==
           static_cast<int>(KOLT_MAC_SIZE);
}

// A line of the file "flows": source and destination MAC, source and destination address, source and destination port,
// protocol, the interface index of the path, bytes, packets, flow index, stream kind, carried value.
bool parse_flow(const char *line, ha_entry *flow) {
    char macs[2][18];
    char addresses[2][16];
    if (sscanf(line,
               "%17s %17s %15s %15s %" SCNu16 " %" SCNu16 " %" SCNu32 " %" SCNu32 " %" SCNu32 " %" SCNu32 " %" SCNu32
               " %" SCNu16 " %" SCNu32,
               macs[0], macs[1], addresses[0], addresses[1], &flow->src_port, &flow->dst_port, &flow->protocol,
               &flow->port, &flow->num_bytes, &flow->num_pkts, &flow->flow_idx, &flow->stream_kind,
               &flow->carried_value) != 13)
        return false;
    flow->src_ip = inet_addr(addresses[0]);
    flow->dst_ip = inet_addr(addresses[1]);
    flow->is_fcache = 1;
    return parse_mac(macs[0], flow->src_addr) && parse_mac(macs[1], flow->dst_addr);
}

// Puts a flow behind the streams of the client that it goes to.
void add_flow(const kolt_client_list &list, uint8_t limit, const ha_entry &flow) {
    for (uint8_t i = 0; i < list.count; i++) {
        kolt_client &client = list.clients[i];
        if (kolt_mac_equal(client.mac, flow.dst_addr) == 0)
            continue;
        uint8_t slot = 0;
        while (slot < limit && kolt_check_ha_entry_valid(&client.ha[slot]) != 0)
            slot++;
        if (slot < limit)
            client.ha[slot] = flow;
        return;
    }
}

int get_maximal_ha_entries(kolt_client_list *clients, uint8_t limit, const kolt_interface_list *ports) {
    if (FILE *file = fopen(DRIVER_DIR "flows", "re")) {
        char line[LINE_SIZE];
        ha_entry flow;
        while (fgets(line, sizeof line, file) != nullptr) {
            if (parse_flow(line, &flow))
                add_flow(*clients, limit, flow);
        }
        (void)fclose(file);
    }
    return journal(result_of("get_maximal_ha_entries_from_fcache"), "get_maximal_ha_entries_from_fcache %d %d %d",
                   clients->count, limit, ports->count);
}

// A line of the file "counters": interface index, received packets and bytes, sent packets and bytes.
int get_if_stat(uint32_t ifindex, uint32_t *rx_packets, uint32_t *rx_bytes, uint32_t *tx_packets, uint32_t *tx_bytes) {
    if (FILE *file = fopen(DRIVER_DIR "counters", "re")) {
        uint32_t values[5];
        while (fscanf(file, "%" SCNu32 " %" SCNu32 " %" SCNu32 " %" SCNu32 " %" SCNu32, &values[0], &values[1],
                      &values[2], &values[3], &values[4]) == 5) {
            if (values[0] != ifindex)
                continue;
            *rx_packets = values[1];
            *rx_bytes = values[2];
            *tx_packets = values[3];
            *tx_bytes = values[4];
        }
        (void)fclose(file);
    }
    return journal(result_of("get_if_stat_from_fcache"), "get_if_stat_from_fcache %" PRIu32, ifindex);
}

int is_5g_low_noise(uint16_t rate, uint8_t utilization, uintptr_t /*word*/) {
    return journal(result_of("is_5g_low_noise"), "is_5g_low_noise %d %d", rate, utilization);
}

int get_links(const char *ifname, wlan_link *links, kolt_link_type type) {
    return journal(wlan_get_links_rtk(ifname, links, type), "get_links %.16s %" PRIu32, ifname,
                   static_cast<uint32_t>(type));
}

int flush_all() {
    return journal(result_of("flush_all_fcache_flow"), "flush_all_fcache_flow");
}

int flush_entry(uint32_t flow_idx) {
    return journal(result_of("flush_fcache_flow_entry"), "flush_fcache_flow_entry %" PRIu32, flow_idx);
}

int update_flow_list(uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) {
    return journal(result_of("update_fcache_flow_list"),
                   "update_fcache_flow_list %" PRIuPTR " %" PRIuPTR " %" PRIuPTR " %" PRIuPTR, a, b, c, d);
}

void flush_by_ha(const kolt_fc_flow_key *key, uint8_t path) {
    const uint8_t *src = key->src_mac;
    const uint8_t *dst = key->dst_mac;
    (void)journal(0, "flush_fc_flow_by_ha " MAC_FORMAT " " MAC_FORMAT " %d %d %" PRIu32 " %" PRIu32 " %d", src[0],
                  src[1], src[2], src[3], src[4], src[5], dst[0], dst[1], dst[2], dst[3], dst[4], dst[5], key->src_port,
                  key->dst_port, key->protocol, key->zero, path);
}

int flush_by_mac(const uint8_t *mac, uintptr_t word) {
    return journal(result_of("flush_fc_flow_by_mac"), "flush_fc_flow_by_mac " MAC_FORMAT " %" PRIuPTR, mac[0], mac[1],
                   mac[2], mac[3], mac[4], mac[5], word);
}

int configure_mode(kolt_work_mode mode) {
    return journal(result_of("configure_fc_mode"), "configure_fc_mode %" PRIu32, static_cast<uint32_t>(mode));
}

constexpr wlan_platform PLATFORM = {
    .get_uplink_rate = wlan_get_uplink_rate_rtk,
    .get_channel_utilization = wlan_get_channel_utilization_rtk,
    .activate_links = wlan_activate_links_rtk,
    .activate_links_for_ap = wlan_activate_links_for_ap_rtk,
    .delete_wds_entry = wlan_delete_wds_entry_rtk,
    .get_util_adjustment = wlan_get_util_adjustment_rtk,
    .is_5g_low_noise = is_5g_low_noise,
    .get_links = get_links,
    .reserved = nullptr,
    .flush_all_fcache_flow = flush_all,
    .flush_fcache_flow_entry = flush_entry,
    .update_fcache_flow_list = update_flow_list,
    .get_maximal_ha_entries_from_fcache = get_maximal_ha_entries,
    .flush_fc_flow_by_ha = flush_by_ha,
    .flush_fc_flow_by_mac = flush_by_mac,
    .get_if_stat_from_fcache = get_if_stat,
    .cal_hash_and_set_ha = kolt_cal_hash_and_set_ha_rtk,
    .configure_fc_mode = configure_mode,
};

} // namespace

const wlan_platform *wlan_platform_ops = &PLATFORM;
