// Builds frames byte by byte.
#include "linux/support/frames.h"

#include <utility>

namespace {

std::string number(uint64_t value, size_t size) {
    std::string bytes;
    while (size-- > 0)
        bytes += static_cast<char>(value >> (8 * size));
    return bytes;
}

std::string text_of(const mac_address &mac) {
    return {mac.begin(), mac.end()};
}

std::string with_checksum(std::string header) {
    uint32_t sum = 0;
    for (size_t at = 0; at < header.size(); at += 2)
        sum += static_cast<uint32_t>(static_cast<uint8_t>(header[at]) << 8 | static_cast<uint8_t>(header[at + 1]));
    sum = (sum & 0xffff) + (sum >> 16);
    return header.replace(10, 2, number(~(sum + (sum >> 16)), 2));
}

std::string ip_header(const ip_frame &frame, size_t content) {
    if (frame.version == 4)
        return with_checksum(number(0x45, 1) + number(0, 1) + number(20 + content, 2) + number(0x12344000, 4) +
                             number(64, 1) + number(frame.protocol, 1) + number(0, 2) +
                             number(0x0a000000U + frame.src_host, 4) + number(0x0a000000U + frame.dst_host, 4));
    const std::string network = number(0xfd00'0000'0000'0000, 8) + number(0, 7);
    return number(0x60000000, 4) + number(content, 2) + number(frame.protocol, 1) + number(64, 1) + network +
           number(frame.src_host, 1) + network + number(frame.dst_host, 1);
}

std::string transport(const ip_frame &frame) {
    const std::string ports = number(frame.src_port, 2) + number(frame.dst_port, 2);
    if (frame.protocol == 17)
        return ports + number(8 + frame.payload, 2) + number(0, 2) + std::string(frame.payload, 'x');
    return ports + number(0, 8) + number(0x5010'ffff, 4) + number(0, 4) + std::string(frame.payload, 'x');
}

} // namespace

std::string ethernet_frame(const mac_address &to, const mac_address &from, uint16_t ethertype,
                           const std::string &payload) {
    return text_of(to) + text_of(from) + number(ethertype, 2) + payload;
}

std::string ip_frame::bytes() const {
    const std::string content = transport(*this);
    return ethernet_frame(to, from, version == 4 ? 0x0800 : 0x86dd, ip_header(*this, content.size()) + content);
}

ip_frame ip_frame::answer() const {
    ip_frame other = *this;
    std::swap(other.to, other.from);
    std::swap(other.src_port, other.dst_port);
    std::swap(other.src_host, other.dst_host);
    return other;
}

std::string with_byte(std::string bytes, size_t offset, uint8_t value) {
    bytes.at(offset) = static_cast<char>(value);
    return bytes;
}

std::string probe(const mac_address &from, uint8_t kind) {
    return ethernet_frame(NEIGHBOURS, from, KOLT_NEIGHBOUR_ETHERTYPE,
                          number(KOLT_NEIGHBOUR_VERSION, 1) + number(kind, 1) + number(0x1122334455667788, 8) +
                              number(7, 4) + number(99, 4) + number(0, 8) + number(0, 2) + std::string(18, '\0'));
}
