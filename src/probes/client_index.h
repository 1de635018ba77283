// The MACs of a client list, numbered, so that the bridge's tables are walked once a period and not once a client.
#pragma once

#include "probes/clients.h"

#include <cstdint>

constexpr uint16_t KOLT_NO_CLIENT = UINT16_MAX;

// Numbers the different MACs among the clients from 0 on, in order. Valid until the next list is indexed.
void kolt_index_clients(const kolt_client *clients, uint8_t count);

// The number of a MAC, below KOLT_MAX_LISTED_CLIENTS; KOLT_NO_CLIENT when no client has it.
uint16_t kolt_client_number(const uint8_t *mac);
