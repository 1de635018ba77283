// Bus messages, built byte by byte: what any sender could send, well-formed or not.
#pragma once

#include "core/ubus.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

// The lowest `size` bytes of `value`, highest first.
inline std::string big_endian(uint64_t value, int size) {
    std::string bytes;
    for (int shift = (size - 1) * 8; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

class blobmsg_builder {
public:
    // An attribute of blobmsg type `type` (3 string, 5 int32, ...) with these value bytes.
    blobmsg_builder &add(uint32_t type, std::string_view name, std::string_view value) {
        std::string payload = big_endian(name.size(), 2) + std::string(name) + '\0';
        payload.resize((payload.size() + 3) / 4 * 4);
        payload += value;
        return raw(big_endian(0x80000000U | type << 24 | (payload.size() + 4), 4) + payload);
    }
    blobmsg_builder &text(std::string_view name, std::string_view value) {
        return add(3, name, std::string(value) + '\0');
    }
    blobmsg_builder &int32(std::string_view name, uint32_t value) {
        return add(5, name, big_endian(value, 4));
    }
    // Bytes as they are, padded to the next attribute.
    blobmsg_builder &raw(std::string_view bytes) {
        members_ += bytes;
        members_.resize((members_.size() + 3) / 4 * 4);
        return *this;
    }

    // The enclosing message; it belongs to the builder.
    blob_attr *message() {
        const std::string bytes = big_endian(7U << 24 | (members_.size() + 4), 4) + members_;
        words_.assign(bytes.size() / 4, 0);
        memcpy(words_.data(), bytes.data(), bytes.size());
        return reinterpret_cast<blob_attr *>(words_.data());
    }

private:
    std::string members_;
    std::vector<uint32_t> words_; // aligned as an attribute wants it, and no byte longer
};
