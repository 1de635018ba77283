// Random tables, the same at every run.
#include "period_tables.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>

namespace {

constexpr uint32_t FAR_HOSTS = 1000;
constexpr uint16_t HTTPS = 443;

void make_mac(uint8_t *mac, uint8_t kind, uint32_t number) {
    const uint8_t octets[KOLT_MAC_SIZE] = {
        0x02, kind, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
    memcpy(mac, octets, sizeof octets);
}

// Tables know the order in which they were filled, not who a stream belongs to.
ha_table_entry make_stream(uint32_t number, uint32_t clients, uint32_t busy, std::mt19937 &random) {
    ha_table_entry stream{};
    stream.hash = static_cast<uint16_t>(random() & 255U);
    make_mac(stream.src_addr, 0x40, static_cast<uint32_t>(random()) % FAR_HOSTS);
    make_mac(stream.dst_addr, 0x30, static_cast<uint32_t>(random()) % clients);
    stream.src_port = HTTPS;
    stream.dst_port = static_cast<uint16_t>(1024 + number);
    stream.port = busy;
    stream.counter_a = 1000 + static_cast<uint32_t>(random()) % 9000;
    stream.counter_b = stream.counter_a * 1200;
    return stream;
}

ha_table_entry make_answer(const ha_table_entry &stream) {
    ha_table_entry answer = stream;
    memcpy(answer.src_addr, stream.dst_addr, sizeof answer.src_addr);
    memcpy(answer.dst_addr, stream.src_addr, sizeof answer.dst_addr);
    answer.src_port = stream.dst_port;
    answer.dst_port = stream.src_port;
    answer.counter_a = stream.counter_a / 2;
    answer.counter_b = answer.counter_a * 60;
    answer.flags = HA_MERGEABLE;
    return answer;
}

template <class Entry> void write_table(const char *bridge, const char *kind, const std::vector<Entry> &entries) {
    const std::string path = std::string("/run/kolt-node/bridges/") + bridge + "/" + kind;
    FILE *file = fopen(path.c_str(), "wb");
    if (file == nullptr || fwrite(entries.data(), sizeof(Entry), entries.size(), file) != entries.size() ||
        fclose(file) != 0) {
        perror(path.c_str());
        exit(EXIT_FAILURE);
    }
}

} // namespace

period_tables make_tables(uint32_t clients, uint32_t streams, uint32_t busy, uint32_t best) {
    std::mt19937 random(clients * 65537 + streams);
    period_tables tables;
    for (uint32_t i = 0; i < clients; i++) {
        fdb_entry &seen = tables.fdb.emplace_back();
        make_mac(seen.mac, 0x30, i);
        seen.port_low = static_cast<uint8_t>(busy);
        seen.port_high = static_cast<uint8_t>(busy >> 8);
        hd_entry &pinned = tables.hd.emplace_back();
        make_mac(pinned.client_mac, 0x30, i);
        pinned.port = best;
    }
    for (uint32_t i = 0; i < streams; i += 2) {
        tables.ha.push_back(make_stream(i, clients, busy, random));
        if (i + 1 < streams)
            tables.ha.push_back(make_answer(tables.ha.back()));
    }
    for (size_t i = tables.ha.size(); i > 1; i--)
        std::swap(tables.ha[i - 1], tables.ha[random() % i]);
    return tables;
}

void write_tables(const char *bridge, const period_tables &tables) {
    write_table(bridge, "fdb", tables.fdb);
    write_table(bridge, "hd", tables.hd);
    write_table(bridge, "ha", tables.ha);
}
