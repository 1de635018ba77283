// The busiest streams of the clients, ranked from the HA table and completed from the flow cache.
#pragma once

#include "probes/clients.h"

#include <cstdint>

constexpr uint8_t KOLT_MAX_STREAMS_OF_PORT = 10; // of one port in a client's top list

// Fills the clients' stream records from the bridge's HA table and the flow cache; 1, or 0 after a message when the HA
// table cannot be fetched.
int kolt_get_maximal_ha_entries(const char *bridge, kolt_client_list *clients, const kolt_interface_list *ports);

// The same, with a message of its own on failure.
int kolt_get_client_list_ha_entries(const char *bridge, kolt_client_list *clients, const kolt_interface_list *ports);

// Has the flow cache refresh its flow list; 1, or 0 after a message.
int kolt_update_stream_entries_stats(const char *bridge);

// Ranks the streams of every client of the list, in list order, into the clients' records, at most KOLT_MAX_STREAMS a
// client; updates the table as it merges reverse streams into their forward ones. Records behind a client's last ranked
// stream stay as they are.
void kolt_rank_streams(ha_table_entry *table, uint32_t count, const kolt_client_list *clients,
                       const kolt_interface_list *ports);

// The same for one client of the list that the table was indexed for last, and at most `limit` (up to 20) streams.
void kolt_collect_client_ha_entries(ha_table_entry *table, uint32_t count, kolt_client *client,
                                    const kolt_interface_list *ports, uint8_t limit);

// Puts `stream` into a top list of `limit` slots, ordered by counter_b, the earlier stream first among equals; at most
// KOLT_MAX_STREAMS_OF_PORT streams of one port. The list borrows the streams.
void kolt_insert_top_stream(ha_table_entry **list, uint8_t limit, ha_table_entry *stream);

// 1 when `entry` is not null and not all zero, else 0.
int kolt_check_ha_entry_valid(const ha_entry *entry);

// 1 when some client of the list with the stream's source MAC is not behind a relay port, else 0.
int kolt_check_nonrelay_client(const ha_table_entry *entry, const kolt_client_list *clients);

// 1 when the stream's port is a nonrelay port of the list, else 0.
int kolt_check_stream_port_norelay(const ha_table_entry *entry, const kolt_interface_list *ports);
