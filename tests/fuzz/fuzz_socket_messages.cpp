// Any bytes as datagrams on the three sockets that the daemon watches. Each is a byte and a part: bits 0 and 1 choose
// the socket, bit 2 has the header made of 16 bits more that are the message's type, bit 3 lets it wait for the next
// one.
#include "core/hub/netlink_sockets.h"
#include "core/log.h"
#include "support/daemon.h"

#include <linux/netlink.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr size_t MOST_MESSAGES = 32;
constexpr char OPTIONS[] = "config tolmux tolmux\noption eth_HasNeigh 1\noption TrafficEthActive 1\n";
constexpr char MODE[] = "{\"work_mode\":\"RE\"}";

bytes bytes_of(const char *text) {
    return {reinterpret_cast<const uint8_t *>(text), strlen(text)};
}

std::vector<uint8_t> with_header(uint16_t type, bytes payload) {
    nlmsghdr header{};
    header.nlmsg_len = static_cast<uint32_t>(sizeof header + payload.size());
    header.nlmsg_type = type;
    std::vector<uint8_t> message(header.nlmsg_len);
    memcpy(message.data(), &header, sizeof header);
    std::copy(payload.begin(), payload.end(), message.begin() + sizeof header);
    return message;
}

std::vector<uint8_t> next_datagram(fuzz_input *input, bool needs_header) {
    const uint16_t type = needs_header ? input->number<uint16_t>() : uint16_t{0};
    const bytes content = input->part();
    return needs_header ? with_header(type, content) : std::vector<uint8_t>(content.begin(), content.end());
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input{{data, size}};
    constexpr int SOCKETS[] = {KOLT_NETLINK_BRIDGE, NETLINK_ROUTE, KOLT_NETLINK_NEIGHBOUR, KOLT_NETLINK_BRIDGE};
    daemon_anew();
    serve_file("/etc/config/tolmux", bytes_of(OPTIONS));
    serve_file("/tmp/work_mode", bytes_of(MODE));
    for (size_t i = 0; i < MOST_MESSAGES && !input.left.empty(); i++) {
        const uint8_t how = input.byte();
        const std::vector<uint8_t> datagram = next_datagram(&input, (how & 4) != 0);
        const int protocol = SOCKETS[how & 3];
        const bool sent = datagram.empty() || sockets_deliver(protocol, datagram); // netlink has none of no length
        if (!sent || (how & 8) == 0)
            daemon_receive(protocol);
    }
    for (const int protocol : SOCKETS)
        daemon_receive(protocol);
    require(log_level == KOLT_LOG_DUMP && open_pipes == 0);
    return 0;
}
