// Frames as bytes, well made and otherwise.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "bpf/records.h"

using mac_address = std::array<uint8_t, 6>;

constexpr mac_address CLIENT = {0x02, 0, 0, 0, 0, 0xc1};
constexpr mac_address SERVER = {0x06, 0x12, 0x34, 0x56, 0x78, 0x9a};
constexpr mac_address BROADCAST = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
constexpr mac_address NEIGHBOURS = {0x01, 0x80, 0xc2, 0, 0, 0x0e};

std::string ethernet_frame(const mac_address &to, const mac_address &from, uint16_t ethertype,
                           const std::string &payload = std::string(46, 'x'));

// A TCP or UDP frame from SERVER to CLIENT, ports 5000 and 80, unless told otherwise.
struct ip_frame {
    mac_address to = CLIENT;
    mac_address from = SERVER;
    uint8_t version = 4;
    uint8_t protocol = 17;
    uint16_t src_port = 5000;
    uint16_t dst_port = 80;
    uint8_t src_host = 1; // last byte of the IP address
    uint8_t dst_host = 2;
    size_t payload = 18;

    [[nodiscard]] std::string bytes() const;
    // The same of the frame that goes the other way.
    [[nodiscard]] ip_frame answer() const;
};

// `bytes` with one of them overwritten.
std::string with_byte(std::string bytes, size_t offset, uint8_t value);

std::string probe(const mac_address &from, uint8_t kind = KOLT_NEIGHBOUR_PROBE);
