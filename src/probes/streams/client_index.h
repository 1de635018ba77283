// The clients of a list by their MACs, numbered, so that a table of any length is matched to them in one walk.
#pragma once

#include "probes/streams/client.h"

#include <cstddef>
#include <cstdint>
#include <span>

constexpr uint16_t KOLT_NO_CLIENT = UINT16_MAX;
constexpr unsigned int KOLT_CLIENT_BUCKET_BITS = 10;
constexpr size_t KOLT_CLIENT_BUCKETS = size_t{1} << KOLT_CLIENT_BUCKET_BITS; // four times as many as there are clients

struct kolt_client_index {
    uint16_t buckets[KOLT_CLIENT_BUCKETS] = {}; // numbers
    uint8_t macs[KOLT_MAX_LISTED_CLIENTS][KOLT_MAC_SIZE] = {};
    uint16_t count = 0;

    // Numbers the distinct MACs of at most KOLT_MAX_LISTED_CLIENTS clients in the order of the list, from 0. What was
    // numbered before is forgotten.
    void assign(std::span<const kolt_client> clients);

    // The number of a MAC; KOLT_NO_CLIENT when no client has it.
    [[nodiscard]] uint16_t number_of(const uint8_t *mac) const;
};
