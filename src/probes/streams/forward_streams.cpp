// Open addressing over a table that is never more than half full.
#include "probes/streams/forward_streams.h"

#include <algorithm>
#include <cstring>

namespace {

// What a forward stream and its reverse stream have in common: the far end, and both ports.
size_t mix(const uint8_t *far_mac, uint16_t far_port, uint16_t near_port) {
    uint32_t low;
    memcpy(&low, far_mac + 2, sizeof low);
    const uint32_t ports = uint32_t{far_port} << 16 | near_port;
    uint32_t mixed = (low * 0x9E3779B1U ^ ports) * 0x85EBCA6BU;
    mixed = (mixed ^ mixed >> 16) * 0x9E3779B1U; // the far MAC's last octet has reached only the top bits so far
    mixed ^= mixed >> 15;
    return mixed;
}

bool is_forward_of(const ha_table_entry &forward, const ha_table_entry &reverse) {
    return kolt_mac_equal(forward.src_addr, reverse.dst_addr) == 1 && forward.src_port == reverse.dst_port &&
           forward.dst_port == reverse.src_port;
}

bool have_same_ends(const ha_table_entry &a, const ha_table_entry &b) {
    return kolt_mac_equal(a.src_addr, b.src_addr) == 1 && a.src_port == b.src_port && a.dst_port == b.dst_port;
}

void add(kolt_forward_streams *index, ha_table_entry *stream) {
    size_t bucket = mix(stream->src_addr, stream->src_port, stream->dst_port) & index->bucket_mask;
    while (index->buckets.elements[bucket] != nullptr) {
        if (have_same_ends(*index->buckets.elements[bucket], *stream))
            return;
        bucket = (bucket + 1) & index->bucket_mask;
    }
    index->buckets.elements[bucket] = stream;
}

} // namespace

bool kolt_forward_streams::assign(std::span<ha_table_entry *const> streams) {
    size_t size = 2;
    while (size < streams.size() * 2)
        size *= 2;
    if (!buckets.reserve(size))
        return false;
    bucket_mask = size - 1;
    std::fill_n(buckets.elements, size, nullptr);
    for (ha_table_entry *stream : streams)
        add(this, stream);
    return true;
}

ha_table_entry *kolt_forward_streams::answered_by(const ha_table_entry &reverse) const {
    size_t bucket = mix(reverse.dst_addr, reverse.dst_port, reverse.src_port) & bucket_mask;
    while (ha_table_entry *forward = buckets.elements[bucket]) {
        if (is_forward_of(*forward, reverse))
            return forward;
        bucket = (bucket + 1) & bucket_mask;
    }
    return nullptr;
}
