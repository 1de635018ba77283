#include "probes/client_index.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

constexpr unsigned int BUCKET_BITS = 10;
constexpr size_t BUCKETS = size_t{1} << BUCKET_BITS; // four times as many as there can be clients

uint16_t buckets[BUCKETS]; // numbers
uint8_t numbered_macs[KOLT_MAX_LISTED_CLIENTS][KOLT_MAC_SIZE];
uint16_t number_count;

size_t bucket_of(const uint8_t *mac) {
    uint32_t low;
    memcpy(&low, mac + 2, sizeof low);
    const uint32_t mixed = (low ^ uint32_t{mac[0]} << 8 ^ uint32_t{mac[1]} << 16) * 0x9E3779B1U;
    return mixed >> (32 - BUCKET_BITS); // MACs of one maker differ in their last octets, which reach only the top bits
}

// The bucket of a MAC, or the empty one where it would go. There is always an empty one.
uint16_t &find_bucket(const uint8_t *mac) {
    size_t bucket = bucket_of(mac);
    while (buckets[bucket] != KOLT_NO_CLIENT && kolt_mac_equal(numbered_macs[buckets[bucket]], mac) == 0)
        bucket = (bucket + 1) & (BUCKETS - 1);
    return buckets[bucket];
}

} // namespace

void kolt_index_clients(const kolt_client *clients, uint8_t count) {
    std::fill(std::begin(buckets), std::end(buckets), KOLT_NO_CLIENT);
    number_count = 0;
    for (uint8_t i = 0; i < count; i++) {
        uint16_t &bucket = find_bucket(clients[i].mac);
        if (bucket != KOLT_NO_CLIENT)
            continue;
        bucket = number_count++;
        memcpy(numbered_macs[bucket], clients[i].mac, KOLT_MAC_SIZE);
    }
}

uint16_t kolt_client_number(const uint8_t *mac) {
    return number_count == 0 ? KOLT_NO_CLIENT : find_bucket(mac);
}
