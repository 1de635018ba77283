// Hardware addresses of interfaces, and of the gateway by the ARP table.
#include "probe_test.h"

#include "probes/addresses.h"

#include <arpa/inet.h>
#include <cstring>
#include <fcntl.h>
#include <net/if_arp.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr mac_address UNTOUCHED{0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
constexpr mac_address GATEWAY{0x00, 0x1B, 0x2C, 0x3D, 0x4E, 0xFF};
constexpr char LAN_FILE[] = "/tmp/runtime_ip_info_lan";

// The number that the next descriptor gets.
int next_descriptor() {
    const int next = dup(0);
    close(next);
    return next;
}

int socket_option(int fd, int option) {
    int value = -1;
    socklen_t size = sizeof value;
    (void)getsockopt(fd, SOL_SOCKET, option, &value, &size);
    return value;
}

void add_arp_entry(const std::string &device, const char *ip, const mac_address &mac) {
    arpreq request{};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(ip);
    memcpy(&request.arp_pa, &address, sizeof address);
    request.arp_ha.sa_family = ARPHRD_ETHER;
    memcpy(request.arp_ha.sa_data, mac.data(), mac.size());
    request.arp_flags = ATF_PERM | ATF_COM;
    memcpy(request.arp_dev, device.c_str(), device.size());
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int result = ioctl(fd, SIOCSARP, &request);
    close(fd);
    if (result != 0)
        throw std::runtime_error("cannot add an ARP entry");
}

class Addresses : public probe {
protected:
    void SetUp() override {
        remove_file(LAN_FILE);
    }
    mac_address mac_ = UNTOUCHED;
};

TEST_F(Addresses, InterfaceMacIsTheKernels) {
    test_interface tap("br-lan");
    const mac_address mac{0x02, 0x00, 0x5E, 0x80, 0xFF, 0x01};
    tap.set_mac(mac.data());
    netlink.other_sockets.clear();
    EXPECT_EQ(kolt_get_bridge_mac("br-lan", mac_.data()), 1);
    EXPECT_EQ(mac_, mac);
    EXPECT_EQ(netlink.other_sockets, (std::vector<fake_netlink::opened>{{AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0}}));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Addresses, InterfaceMacOfALongNameIsAskedForByItsFirstSixteenCharacters) {
    test_interface tap("abcdefghijklmno");
    const mac_address mac{0x02, 0, 0, 0, 0, 0x0F};
    tap.set_mac(mac.data());
    EXPECT_EQ(kolt_get_bridge_mac("abcdefghijklmno", mac_.data()), 1);
    EXPECT_EQ(mac_, mac);
    // A name field without a terminator, and something else behind it; the kernel looks at fifteen characters.
    const char field[32] = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p', '!'};
    mac_ = UNTOUCHED;
    EXPECT_EQ(kolt_get_bridge_mac(field, mac_.data()), 1);
    EXPECT_EQ(mac_, mac);
}

TEST_F(Addresses, UnknownInterfaceLeavesTheSocketOpen) {
    const size_t before = open_descriptors();
    const int kept = next_descriptor();
    EXPECT_EQ(kolt_get_bridge_mac("none0", mac_.data()), 0);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_bridge_mac", "Error: ioctl"}));
    EXPECT_EQ(mac_, UNTOUCHED);
    EXPECT_EQ(open_descriptors(), before + 1);
    EXPECT_EQ(socket_option(kept, SO_DOMAIN), AF_INET);
    EXPECT_EQ(socket_option(kept, SO_TYPE), SOCK_STREAM);
    EXPECT_EQ(fcntl(kept, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(close(kept), 0);
}

TEST_F(Addresses, EveryFailureLeavesASocketOpen) {
    const size_t before = open_descriptors();
    const int first = next_descriptor();
    EXPECT_EQ(kolt_get_bridge_mac("none0", mac_.data()), 0);
    const int second = next_descriptor();
    EXPECT_EQ(kolt_get_bridge_mac("", mac_.data()), 0);
    EXPECT_EQ(open_descriptors(), before + 2);
    close(first);
    close(second);
}

TEST_F(Addresses, InterfaceMacWithoutASocketIsLogged) {
    const test_interface tap("br-lan");
    {
        const no_descriptors none;
        EXPECT_EQ(kolt_get_bridge_mac("br-lan", mac_.data()), 0);
    }
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_bridge_mac", "Error: socket"}));
    EXPECT_EQ(mac_, UNTOUCHED);
}

TEST_F(Addresses, ArpEntryOnTheLanBridgeIsFound) {
    const test_interface tap("br-lan");
    add_arp_entry("br-lan", "192.168.0.1", GATEWAY);
    add_arp_entry("br-lan", "192.168.0.2", {2, 2, 2, 2, 2, 2});
    netlink.other_sockets.clear();
    EXPECT_EQ(kolt_get_gw_mac_from_arp("192.168.0.1", mac_.data()), 1);
    EXPECT_EQ(mac_, GATEWAY);
    EXPECT_EQ(netlink.other_sockets, (std::vector<fake_netlink::opened>{{AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0}}));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Addresses, ArpEntryOnAnotherInterfaceIsNotFound) {
    const test_interface bridge("br-lan");
    const test_interface other("br-guest");
    add_arp_entry("br-guest", "192.168.0.1", GATEWAY);
    EXPECT_EQ(kolt_get_gw_mac_from_arp("192.168.0.1", mac_.data()), 0);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_gw_mac_from_arp", "Error: ioctl"}));
    EXPECT_EQ(mac_, UNTOUCHED);
}

TEST_F(Addresses, ArpFailuresAreLoggedAndCloseTheSocket) {
    const size_t before = open_descriptors();
    EXPECT_EQ(kolt_get_gw_mac_from_arp("192.168.0.1", mac_.data()), 0) << "no bridge";
    const test_interface bridge("br-lan");
    EXPECT_EQ(kolt_get_gw_mac_from_arp("192.168.0.1", mac_.data()), 0) << "no entry";
    EXPECT_EQ(kolt_get_gw_mac_from_arp("gateway", mac_.data()), 0) << "no address";
    EXPECT_EQ(kolt_get_gw_mac_from_arp("", mac_.data()), 0) << "empty";
    EXPECT_EQ(kolt_get_gw_mac_from_arp("1192.168.100.254", mac_.data()), 0) << "too long";
    EXPECT_EQ(logged(), std::vector<log_line>(5, {LOG_ERR, "kolt_get_gw_mac_from_arp", "Error: ioctl"}));
    EXPECT_EQ(open_descriptors(), before + 1) << "the tap, and nothing else";
    EXPECT_EQ(mac_, UNTOUCHED);
}

TEST_F(Addresses, ArpWithoutASocketIsLogged) {
    const test_interface bridge("br-lan");
    add_arp_entry("br-lan", "192.168.0.1", GATEWAY);
    {
        const no_descriptors none;
        EXPECT_EQ(kolt_get_gw_mac_from_arp("192.168.0.1", mac_.data()), 0);
    }
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_gw_mac_from_arp", "Error: create socket failed"}));
    EXPECT_EQ(mac_, UNTOUCHED);
}

TEST_F(Addresses, ArpOfNullArgumentsOpensNothing) {
    EXPECT_EQ(kolt_get_gw_mac_from_arp(nullptr, mac_.data()), 0);
    EXPECT_EQ(kolt_get_gw_mac_from_arp("192.168.0.1", nullptr), 0);
    EXPECT_EQ(kolt_get_gw_mac_from_arp(nullptr, nullptr), 0);
    EXPECT_THAT(netlink.other_sockets, IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Addresses, GatewayMacIsThatOfTheLanGateway) {
    const test_interface bridge("br-lan");
    add_arp_entry("br-lan", "192.168.0.1", GATEWAY);
    write_file(LAN_FILE, R"({"lan_gw": "192.168.0.1"})");
    EXPECT_EQ(kolt_get_gw_mac(mac_.data()), 1);
    EXPECT_EQ(mac_, GATEWAY);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Addresses, GatewayAddressMayBeAsLongAsAnyIs) {
    const test_interface bridge("br-lan");
    add_arp_entry("br-lan", "192.168.100.254", GATEWAY);
    write_file(LAN_FILE, R"({"lan_gw": "192.168.100.254"})");
    EXPECT_EQ(kolt_get_gw_mac(mac_.data()), 1);
    EXPECT_EQ(mac_, GATEWAY);
}

TEST_F(Addresses, GatewayWithoutAnArpEntryLeavesTheOutputUntouched) {
    const test_interface bridge("br-lan");
    add_arp_entry("br-lan", "192.168.0.2", GATEWAY);
    write_file(LAN_FILE, R"({"lan_gw": "192.168.0.1"})");
    EXPECT_EQ(kolt_get_gw_mac(mac_.data()), 0);
    EXPECT_EQ(mac_, UNTOUCHED);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_gw_mac_from_arp", "Error: ioctl"}));
}

TEST_F(Addresses, GatewayThatIsNotToldIsNotLookedUp) {
    const test_interface bridge("br-lan");
    add_arp_entry("br-lan", "192.168.0.1", GATEWAY);
    netlink.other_sockets.clear();
    EXPECT_EQ(kolt_get_gw_mac(mac_.data()), 0);
    for (const char *text : {"{", "{}", R"({"lan_gw": null})", R"(["192.168.0.1"])"}) {
        write_file(LAN_FILE, text);
        EXPECT_EQ(kolt_get_gw_mac(mac_.data()), 0) << text;
    }
    EXPECT_EQ(mac_, UNTOUCHED);
    EXPECT_THAT(netlink.other_sockets, IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Addresses, GatewayTextsThatFillTheirFieldAreHarmless) {
    const test_interface bridge("br-lan");
    for (const char *text : {"1192.168.100.254", "192.168.100.254 and more"}) {
        write_file(LAN_FILE, std::string(R"({"lan_gw": ")") + text + "\"}");
        EXPECT_EQ(kolt_get_gw_mac(mac_.data()), 0) << text;
    }
    EXPECT_EQ(mac_, UNTOUCHED);
}

} // namespace
