// One frame of an EtherType that nobody answers.
#include "probes/link_activation.h"

#include "core/handle.h"
#include "core/log.h"
#include "core/names.h"
#include "probes/addresses.h"

#include <arpa/inet.h>
#include <cstring>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>

namespace {

constexpr uint16_t ETHERTYPE_ACTIVATION = 0x893A;
constexpr int ATTEMPTS = 3;

struct activation_frame {
    uint8_t destination[KOLT_MAC_SIZE] = {};
    uint8_t source[KOLT_MAC_SIZE] = {};
    uint16_t ethertype = 0; // network order
    uint8_t filler[1010] = {};
};
static_assert(sizeof(activation_frame) == 1024);

} // namespace

int kolt_activate_link(const char *ifname, const uint8_t *mac) {
    if (ifname == nullptr || mac == nullptr)
        return 0;
    const unique_fd fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETHERTYPE_ACTIVATION)));
    if (!fd) {
        KOLT_ERROR("create socket failed");
        return 0;
    }
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETHERTYPE_ACTIVATION);
    address.sll_ifindex = static_cast<int>(if_nametoindex(kolt_name_text(ifname).text));
    memcpy(address.sll_addr, mac, KOLT_MAC_SIZE);

    activation_frame frame;
    memcpy(frame.destination, mac, sizeof frame.destination);
    (void)kolt_get_bridge_mac(ifname, frame.source); // an unknown source is no reason not to wake the link
    frame.ethertype = htons(ETHERTYPE_ACTIVATION);

    for (int attempt = 0; attempt < ATTEMPTS; attempt++) {
        const ssize_t sent =
            sendto(fd.get(), &frame, sizeof frame, 0, reinterpret_cast<const sockaddr *>(&address), sizeof address);
        KOLT_DUMP("send dummy packet, ifname: %.16s, if_mac: %02X-%02X len: %d", ifname, frame.source[4],
                  frame.source[5], static_cast<int>(sent));
        if (sent > 0)
            break;
    }
    return 1;
}
