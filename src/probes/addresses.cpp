// Addresses by ioctl, on a socket that is opened for the question.
#include "probes/addresses.h"

#include "core/handle.h"
#include "core/log.h"
#include "core/names.h"
#include "probes/node_state.h"

#include <arpa/inet.h>
#include <cstring>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

constexpr char LAN_BRIDGE[] = "br-lan";

} // namespace

int kolt_get_bridge_mac(const char *ifname, uint8_t *mac) {
    unique_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        KOLT_ERROR("socket");
        return 0;
    }
    ifreq request{};
    kolt_copy_name(request.ifr_name, ifname);
    if (ioctl(fd.get(), SIOCGIFHWADDR, &request) != 0) {
        KOLT_ERROR("ioctl");
        (void)fd.release(); // left open on this path: the daemon's descriptor use is part of what it promises
        return 0;
    }
    memcpy(mac, request.ifr_hwaddr.sa_data, KOLT_MAC_SIZE);
    return 1;
}

int kolt_get_gw_mac_from_arp(const char *ip, uint8_t *mac) {
    if (ip == nullptr || mac == nullptr)
        return 0;
    const unique_fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        KOLT_ERROR("create socket failed");
        return 0;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(ip);
    arpreq request{};
    static_assert(sizeof address == sizeof request.arp_pa);
    memcpy(&request.arp_pa, &address, sizeof address);
    memcpy(request.arp_dev, LAN_BRIDGE, sizeof LAN_BRIDGE);
    if (ioctl(fd.get(), SIOCGARP, &request) != 0) {
        KOLT_ERROR("ioctl");
        return 0;
    }
    memcpy(mac, request.arp_ha.sa_data, KOLT_MAC_SIZE);
    return 1;
}

int kolt_get_gw_mac(uint8_t *mac) {
    char field[KOLT_NAME_SIZE] = {};
    return kolt_get_lan_gw_ip(field) == 1 && kolt_get_gw_mac_from_arp(kolt_name_text(field).text, mac) == 1 ? 1 : 0;
}
