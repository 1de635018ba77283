// The clients behind a bridge's ports.
#pragma once

#include "core/interface_list.h"
#include "probes/streams/client.h"

#include <cstdint>

// Writes one client for every match of a non-local forwarding entry with a port of the list into `clients` (room for
// KOLT_MAX_CLIENTS) and returns how many, at most 255; 0 after a message when the table cannot be fetched.
uint8_t kolt_get_fdb_client_list(const char *bridge, kolt_client *clients, const kolt_interface_list *ports);

// Sets the HD port of every client that has an HD entry; 1, or 0 after a message.
int kolt_get_hd_client_list(const char *bridge, kolt_client *clients, uint8_t count);

// The forwarding table's clients, completed with their HD ports; returns how many.
uint8_t kolt_get_client_list(const char *bridge, const kolt_interface_list *ports, kolt_client *clients);

// 1 when the list holds a client with this MAC behind a relay port, else 0, also for a null argument. Nothing in the
// daemon asks so far.
int kolt_check_relay_stream(const kolt_client_list *list, const uint8_t *mac);
