// Entries of the bridge's tables as the bytes that the library hands out, written at their offsets; whatever has no
// meaning is filled with noise.
#pragma once

#include "mac_address.h"

#include <array>
#include <cstdint>
#include <cstring>

enum library_code { HD_CODE = 1, FDB_CODE = 2, HA_CODE = 8 };

template <size_t Size> struct raw_entry {
    std::array<uint8_t, Size> bytes;

    raw_entry() {
        bytes.fill(0xA7);
    }
    template <class Value> raw_entry &put(size_t offset, const Value &value) {
        memcpy(bytes.data() + offset, &value, sizeof value);
        return *this;
    }
    template <class Value> [[nodiscard]] Value get(size_t offset) const {
        Value value;
        memcpy(&value, bytes.data() + offset, sizeof value);
        return value;
    }
};

inline raw_entry<16> raw_fdb(const mac_address &mac, uint32_t port, uint8_t is_local = 0) {
    raw_entry<16> entry;
    entry.put(0, mac).put(6, static_cast<uint8_t>(port % 256)).put(7, is_local);
    return entry.put(12, static_cast<uint8_t>(port / 256));
}

inline raw_entry<24> raw_hd(const mac_address &client, const mac_address &second, uint32_t port) {
    raw_entry<24> entry;
    return entry.put(0, client).put(6, second).put(12, port);
}

struct stream_fields {
    mac_address src{};
    mac_address dst{};
    uint32_t port = 0;
    uint32_t counter_a = 1;
    uint32_t counter_b = 1;
    uint16_t src_port = 0;
    uint16_t dst_port = 0;
    uint8_t flags = 0;
    uint16_t hash = 0;
    uint16_t kind = 0;
    uint32_t c1 = 0;
    uint32_t c2 = 0;
    uint32_t reverse_a = 0;
    uint32_t reverse_b = 0;
    uint32_t carried = 0;
};

inline raw_entry<100> raw_ha(const stream_fields &stream) {
    raw_entry<100> entry;
    entry.put(0, stream.hash).put(2, stream.src).put(8, stream.dst).put(20, stream.src_port).put(22, stream.dst_port);
    entry.put(24, stream.kind).put(28, stream.port).put(60, stream.counter_a).put(64, stream.counter_b);
    entry.put(68, stream.c1).put(72, stream.c2).put(76, stream.reverse_a).put(80, stream.reverse_b);
    return entry.put(84, stream.carried).put(88, stream.flags);
}
