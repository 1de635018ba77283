#include "probes/forward_streams.h"

#include "probes/growing_array.h"

#include <algorithm>
#include <cstring>

namespace {

kolt_growing_array<ha_table_entry *> buckets;
size_t bucket_mask; // the number of buckets in use, a power of two, less 1

// What a forward stream and its reverse stream have in common: the far end, and both ports.
size_t bucket_of(const uint8_t *far_mac, uint16_t far_port, uint16_t near_port) {
    uint32_t low;
    memcpy(&low, far_mac + 2, sizeof low);
    const uint32_t ports = uint32_t{far_port} << 16 | near_port;
    uint32_t mixed = (low * 0x9E3779B1U ^ ports) * 0x85EBCA6BU;
    mixed = (mixed ^ mixed >> 16) * 0x9E3779B1U; // the far MAC's last octet has reached only the top bits so far
    mixed ^= mixed >> 15;
    return mixed & bucket_mask;
}

bool is_forward_of(const ha_table_entry &forward, const ha_table_entry &reverse) {
    return kolt_mac_equal(forward.src_addr, reverse.dst_addr) == 1 && forward.src_port == reverse.dst_port &&
           forward.dst_port == reverse.src_port;
}

bool have_same_ends(const ha_table_entry &a, const ha_table_entry &b) {
    return kolt_mac_equal(a.src_addr, b.src_addr) == 1 && a.src_port == b.src_port && a.dst_port == b.dst_port;
}

void add(ha_table_entry *stream) {
    size_t bucket = bucket_of(stream->src_addr, stream->src_port, stream->dst_port);
    while (buckets.elements[bucket] != nullptr) {
        if (have_same_ends(*buckets.elements[bucket], *stream))
            return;
        bucket = (bucket + 1) & bucket_mask;
    }
    buckets.elements[bucket] = stream;
}

} // namespace

bool kolt_index_forward_streams(ha_table_entry *const *streams, uint32_t count) {
    size_t size = 2;
    while (size < size_t{count} * 2)
        size *= 2;
    if (!buckets.reserve(size))
        return false;
    bucket_mask = size - 1;
    std::fill_n(buckets.elements, size, nullptr);
    for (uint32_t i = 0; i < count; i++)
        add(streams[i]);
    return true;
}

ha_table_entry *kolt_find_forward_stream(const ha_table_entry &reverse) {
    size_t bucket = bucket_of(reverse.dst_addr, reverse.dst_port, reverse.src_port);
    while (ha_table_entry *forward = buckets.elements[bucket]) {
        if (is_forward_of(*forward, reverse))
            return forward;
        bucket = (bucket + 1) & bucket_mask;
    }
    return nullptr;
}
