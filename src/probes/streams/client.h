// A bridge's clients and their busiest streams, as records.
#pragma once

#include "core/link_type.h"
#include "core/names.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

constexpr size_t KOLT_MAX_CLIENTS = 256;         // room in a client array
constexpr uint8_t KOLT_MAX_LISTED_CLIENTS = 255; // what its 8-bit count can tell
constexpr uint8_t KOLT_MAX_STREAMS = 20;         // of one client
constexpr uint32_t KOLT_NO_HD_PORT = 65535;

// One ranked stream of a client; all zero is empty.
struct ha_entry {
    uint8_t src_addr[KOLT_MAC_SIZE] = {};
    uint8_t dst_addr[KOLT_MAC_SIZE] = {};
    uint32_t port = 0; // kernel interface index of its path
    uint16_t hash = 0;
    uint16_t stream_kind = 0;
    uint32_t carried_value = 0;
    uint32_t num_bytes = 0; // both directions
    uint32_t num_pkts = 0;
    uint32_t num_txbytes = 0;
    uint32_t num_txpkts = 0;
    uint32_t num_rxbytes = 0;
    uint32_t num_rxpkts = 0;
    uint32_t flow_idx = 0; // flow_idx, is_fcache, src_ip and dst_ip are the flow cache's to fill
    uint8_t is_fcache = 0;
    uint8_t estimated = 0;
    uint16_t src_port = 0;
    uint16_t dst_port = 0;
    uint16_t reserved = 0;
    uint32_t protocol = 0; // IP protocol number
    uint32_t src_ip = 0;   // network order
    uint32_t dst_ip = 0;
};
static_assert(sizeof(ha_entry) == 72);

struct kolt_client {
    uint8_t mac[KOLT_MAC_SIZE] = {};
    kolt_link_type type = KOLT_LINK_ETHERNET; // of the port's link
    uint8_t relay = 0;
    uint32_t port = 0;    // kernel interface index of the port that it was learnt on
    uint32_t hd_port = 0; // of the port that it is pinned to, KOLT_NO_HD_PORT when it is not
    ha_entry ha[KOLT_MAX_STREAMS];

    [[nodiscard]] bool is_relay() const {
        return relay == 1;
    }
    // Any other flag than 0 and 1 makes it neither.
    [[nodiscard]] bool is_nonrelay() const {
        return relay == 0;
    }
};

struct kolt_client_list {
    uint8_t count = 0;
    kolt_client *clients = nullptr; // the caller's

    [[nodiscard]] std::span<kolt_client> span() const {
        return {clients, count};
    }
};

// 1 when `entry` is not null and not all zero, else 0.
[[nodiscard]] inline int kolt_check_ha_entry_valid(const ha_entry *entry) {
    constexpr ha_entry EMPTY;
    return entry != nullptr && memcmp(entry, &EMPTY, sizeof EMPTY) != 0 ? 1 : 0;
}
