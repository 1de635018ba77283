// The driver's station table: one block of lines a station, of which only the complete ones count.
#include "adaptors/rtk/rtk_stations.h"

#include "adaptors/rtk/rtk_driver_file.h"
#include "core/log.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr int STATE_ASSOCIATED = 1 << 0;

enum seen : unsigned int {
    SEEN_MAC = 1U << 0,
    SEEN_STATE = 1U << 1,
    SEEN_TX = 1U << 2,
    SEEN_RX = 1U << 3,
    SEEN_RSSI = 1U << 4,
    SEEN_ALL = SEEN_MAC | SEEN_STATE | SEEN_TX | SEEN_RX | SEEN_RSSI,
};

// What has been read of one station so far.
struct station_block {
    unsigned int seen = 0;
    int state = 0;
    wlan_link link;
};

bool parse_mac(const char *at, uint8_t *mac) {
    unsigned int octets[KOLT_MAC_SIZE];
    if (sscanf(at, "hwaddr: %02x%02x%02x%02x%02x%02x", &octets[0], &octets[1], &octets[2], &octets[3], &octets[4],
               &octets[5]) != static_cast<int>(KOLT_MAC_SIZE))
        return false;
    for (size_t i = 0; i < KOLT_MAC_SIZE; i++)
        mac[i] = static_cast<uint8_t>(octets[i]);
    return true;
}

void parse_state(const char *at, station_block *block) {
    if (sscanf(at, "state: %d", &block->state) == 1)
        block->seen |= SEEN_STATE;
}

void parse_rssi(const char *at, station_block *block) {
    int rssi;
    if (sscanf(at, "rssi: %d", &rssi) != 1)
        return;
    block->link.rssi = static_cast<uint8_t>(rssi);
    block->seen |= SEEN_RSSI;
}

// Parses what stands behind a rate's key: a mode word and the number, or the number alone.
void parse_rate(const char *text, uint16_t *rate, station_block *block, seen which) {
    int value;
    if (sscanf(text, " %*s %d", &value) != 1 && sscanf(text, " %d", &value) != 1)
        return;
    *rate = static_cast<uint16_t>(value);
    block->seen |= which;
}

// Takes from a line what the first of the known keys in it tells; false when the line is to be passed over entirely.
bool read_station_line(const char *line, station_block *block) {
    constexpr char TX_KEY[] = "current_tx_rate:";
    constexpr char RX_KEY[] = "current_rx_rate:";
    const char *at;
    if ((at = strstr(line, "hwaddr:")) != nullptr)
        block->seen |= parse_mac(at, block->link.mac) ? SEEN_MAC : 0U;
    else if (strstr(line, "ft_state:") != nullptr)
        return false; // it contains the key of the next one, which it is not
    else if ((at = strstr(line, "state:")) != nullptr)
        parse_state(at, block);
    else if ((at = strstr(line, TX_KEY)) != nullptr)
        parse_rate(at + sizeof TX_KEY - 1, &block->link.tx_rate, block, SEEN_TX);
    else if ((at = strstr(line, RX_KEY)) != nullptr)
        parse_rate(at + sizeof RX_KEY - 1, &block->link.rx_rate, block, SEEN_RX);
    else if ((at = strstr(line, "rssi:")) != nullptr)
        parse_rssi(at, block);
    else if (strstr(line, "stat_info...") != nullptr)
        block->seen = 0;
    return true;
}

// The number of stations that the table's first line announces; 0 when it is no such line.
int announced_stations(rtk_driver_file *table) {
    char buffer[RTK_LINE_SIZE];
    const char *line = rtk_next_line(table, buffer);
    const char *header = line ? strstr(line, "-- STA info table --") : nullptr;
    int active = 0;
    if (header == nullptr || sscanf(header, "-- STA info table -- (active: %d)", &active) != 1)
        return 0;
    return active;
}

uint8_t read_stations(rtk_driver_file *table, wlan_link *links, int announced) {
    char buffer[RTK_LINE_SIZE];
    station_block block;
    uint8_t count = 0;
    while (count < announced && count < WLAN_MAX_LINKS) {
        const char *line = rtk_next_line(table, buffer);
        if (line == nullptr)
            break;
        if (!read_station_line(line, &block) || block.seen != SEEN_ALL || (block.state & STATE_ASSOCIATED) == 0)
            continue;
        block.link.activity = links[count].activity;
        links[count++] = block.link;
        block.seen = 0;
    }
    return count;
}

} // namespace

uint8_t wlan_get_links_rtk(const char *ifname, wlan_link *links, kolt_link_type type) {
    rtk_driver_file table = rtk_open_driver_file(ifname, type, "sta_info");
    if (!table.lines) {
        KOLT_ERROR("popen cmd %s", table.command);
        return 0;
    }
    return read_stations(&table, links, announced_stations(&table));
}
