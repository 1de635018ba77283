// The clients behind a bridge's ports, and their busiest streams.
#pragma once

#include "core/config.h"
#include "probes/bridge_tables.h"
#include "core/names.h"

#include <cstddef>
#include <cstdint>

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
    uint32_t type = 0; // of the port's link
    uint8_t relay = 0;
    uint32_t port = 0;    // kernel interface index of the port that it was learnt on
    uint32_t hd_port = 0; // of the port that it is pinned to, KOLT_NO_HD_PORT when it is not
    ha_entry ha[KOLT_MAX_STREAMS];
};

struct kolt_client_list {
    uint8_t count = 0;
    kolt_client *clients = nullptr; // the caller's
};

// Writes one client for every match of a non-local forwarding entry with a port of the list into `clients` (room for
// KOLT_MAX_CLIENTS) and returns how many, at most 255; 0 after a message when the table cannot be fetched.
uint8_t kolt_get_fdb_client_list(const char *bridge, kolt_client *clients, const kolt_interface_list *ports);

// Sets the HD port of every client that has an HD entry; 1, or 0 after a message.
int kolt_get_hd_client_list(const char *bridge, kolt_client *clients, uint8_t count);

// The forwarding table's clients, completed with their HD ports; returns how many.
uint8_t kolt_get_client_list(const char *bridge, const kolt_interface_list *ports, kolt_client *clients);

// 1 when the list holds a client with this MAC behind a relay port, else 0, also for a null argument.
int kolt_check_relay_stream(const kolt_client_list *list, const uint8_t *mac);
