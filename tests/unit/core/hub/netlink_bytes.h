// Netlink messages, built byte by byte.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

template <class Integer> std::string host_order(Integer value) {
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

// The 16-byte header, with whatever length it is to claim.
inline std::string netlink_header(uint32_t length, uint16_t type, uint16_t flags = 0, uint32_t sequence = 0,
                                  uint32_t pid = 0) {
    return host_order(length) + host_order(type) + host_order(flags) + host_order(sequence) + host_order(pid);
}

inline std::string netlink_message(uint16_t type, std::string_view payload) {
    return netlink_header(static_cast<uint32_t>(16 + payload.size()), type) + std::string(payload);
}

// The 16-byte interface-info header.
inline std::string link_info(uint32_t index) {
    return host_order(uint32_t{0}) + host_order(index) + std::string(8, '\0');
}

// A route attribute that claims `length`, unpadded.
inline std::string claimed_attribute(uint16_t length, uint16_t type, std::string_view data) {
    return host_order(length) + host_order(type) + std::string(data);
}

// A well-formed route attribute with its padding.
inline std::string attribute(uint16_t type, std::string_view data) {
    std::string bytes = claimed_attribute(static_cast<uint16_t>(4 + data.size()), type, data);
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return bytes;
}

constexpr uint16_t WIRELESS = 11;
constexpr uint16_t EXPIRED = 0x8C04;

// A wireless event record that claims `length`, with `size` bytes in all.
inline std::string claimed_record(uint16_t length, uint16_t command, size_t size) {
    std::string bytes = host_order(length) + host_order(command);
    bytes.resize(size);
    return bytes;
}

inline std::string record(uint16_t command, uint16_t length = 8) {
    return claimed_record(length, command, length);
}
