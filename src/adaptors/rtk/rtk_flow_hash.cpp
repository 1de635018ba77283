// A multiplying hash, folded to the 256 buckets of the HA table.
#include "adaptors/rtk/rtk_flow_hash.h"

#include "probes/bridge_tables.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace {

uint32_t ha_hash_step(uint32_t a, uint32_t b, uint32_t acc) {
    return acc * 33 + (a ^ b);
}

// Four bytes, the first one lowest.
uint32_t little_endian(const uint8_t *bytes) {
    return bytes[0] | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
}

uint32_t mac_word(const uint8_t *mac) {
    return little_endian(mac + 2);
}

// An address's bytes as they lie in memory, which is network order, read the other way round.
uint32_t unconverted(uint32_t address) {
    return little_endian(reinterpret_cast<const uint8_t *>(&address));
}

} // namespace

uint8_t kolt_ha_hash_rtk(const kolt_flow &flow) {
    uint32_t acc = ha_hash_step(mac_word(flow.dst_mac), mac_word(flow.src_mac), 0);
    if (flow.protocol == IPPROTO_TCP || flow.protocol == IPPROTO_UDP) {
        acc = ha_hash_step(flow.protocol, 0, acc);
        acc = ha_hash_step(ntohl(flow.dst_ip), ntohs(flow.dst_port), acc);
        acc = ha_hash_step(ntohl(flow.src_ip), ntohs(flow.src_port), acc);
    } else {
        // The hardware takes these addresses unconverted, unlike the ones above.
        acc = ha_hash_step(unconverted(flow.dst_ip), unconverted(flow.src_ip), acc);
    }
    acc ^= acc >> 16;
    acc ^= acc >> 8;
    return static_cast<uint8_t>(acc);
}

int kolt_cal_hash_and_set_ha_rtk(const char *bridge, uint32_t protocol, uint32_t src_ip, uint32_t dst_ip,
                                 uint16_t src_port, uint16_t dst_port, const uint8_t *src_mac, const uint8_t *dst_mac,
                                 const char *ifname, uint16_t stream_kind, uint32_t carried_value) {
    const uint8_t hash = kolt_ha_hash_rtk({.src_ip = src_ip,
                                           .dst_ip = dst_ip,
                                           .src_port = src_port,
                                           .dst_port = dst_port,
                                           .src_mac = src_mac,
                                           .dst_mac = dst_mac,
                                           .protocol = static_cast<uint8_t>(protocol)});
    return kolt_set_ha_entry(bridge, hash, src_mac, dst_mac, src_port, dst_port, ifname, stream_kind, carried_value);
}
