// Open addressing over a table that is never more than a quarter full.
#include "probes/streams/client_index.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

size_t bucket_of(const uint8_t *mac) {
    uint32_t low;
    memcpy(&low, mac + 2, sizeof low);
    const uint32_t mixed = (low ^ uint32_t{mac[0]} << 8 ^ uint32_t{mac[1]} << 16) * 0x9E3779B1U;
    return mixed >>
           (32 -
            KOLT_CLIENT_BUCKET_BITS); // MACs of one maker differ in their last octets, which reach only the top bits
}

// The bucket of a MAC, or the empty one where it would go. There is always an empty one.
size_t find_bucket(const kolt_client_index &index, const uint8_t *mac) {
    size_t bucket = bucket_of(mac);
    while (index.buckets[bucket] != KOLT_NO_CLIENT && kolt_mac_equal(index.macs[index.buckets[bucket]], mac) == 0)
        bucket = (bucket + 1) & (KOLT_CLIENT_BUCKETS - 1);
    return bucket;
}

} // namespace

void kolt_client_index::assign(std::span<const kolt_client> clients) {
    std::fill(std::begin(buckets), std::end(buckets), KOLT_NO_CLIENT);
    count = 0;
    for (const kolt_client &client : clients) {
        uint16_t &number = buckets[find_bucket(*this, client.mac)];
        if (number != KOLT_NO_CLIENT)
            continue;
        number = count++;
        memcpy(macs[number], client.mac, KOLT_MAC_SIZE);
    }
}

uint16_t kolt_client_index::number_of(const uint8_t *mac) const {
    return count == 0 ? KOLT_NO_CLIENT : buckets[find_bucket(*this, mac)];
}
