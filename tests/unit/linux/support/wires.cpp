// Interfaces by route netlink, frames by packet sockets.
#include "linux/support/wires.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/if_ether.h>
#include <linux/if_link.h>
#include <linux/if_packet.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <sys/mount.h>
#include <sys/socket.h>

namespace {

[[noreturn]] void fail(const std::string &what, int error) {
    throw std::runtime_error(what + ": " + strerror(error));
}

class route_request {
public:
    route_request(uint16_t type, uint16_t flags) : header_(mnl_nlmsg_put_header(buffer_)) {
        header_->nlmsg_type = type;
        header_->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
    }
    route_request(uint16_t type, uint16_t flags, uint32_t index, unsigned interface_flags = 0)
        : route_request(type, flags) {
        put_interface(index, interface_flags);
    }

    void put_interface(uint32_t index, unsigned interface_flags) {
        auto *link = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(header_, sizeof(ifinfomsg)));
        link->ifi_index = static_cast<int>(index);
        link->ifi_flags = link->ifi_change = interface_flags;
    }

    nlmsghdr *message() {
        return header_;
    }

    void send(const std::string &what) {
        const std::unique_ptr<mnl_socket, int (*)(mnl_socket *)> socket(mnl_socket_open(NETLINK_ROUTE),
                                                                        mnl_socket_close);
        char reply[4096];
        if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0 ||
            mnl_socket_sendto(socket.get(), header_, header_->nlmsg_len) < 0)
            fail(what, errno);
        const ssize_t size = mnl_socket_recvfrom(socket.get(), reply, sizeof reply);
        if (size < 0 ||
            mnl_cb_run(reply, static_cast<size_t>(size), 0, mnl_socket_get_portid(socket.get()), nullptr, nullptr) < 0)
            fail(what, errno);
    }

private:
    alignas(nlmsghdr) char buffer_[1024]{};
    nlmsghdr *header_;
};

// The head that asks for where the bytes of a frame are to stand (its own header is not C++).
struct page_request {
    uint8_t flags = 0;
    uint8_t gso_type = 0;
    uint16_t hdr_len = 0;
    uint16_t gso_size = 0;
    uint16_t csum_start = 0;
    uint16_t csum_offset = 0;
};

uint32_t index_of(const std::string &name) {
    const uint32_t index = if_nametoindex(name.c_str());
    if (index == 0)
        fail(name, errno);
    return index;
}

} // namespace

void wait_for_forwarding(const std::string &port) {
    const std::string path = "/sys/class/net/" + port + "/brport/state";
    for (int tries = 0; tries < 200; tries++) {
        std::string state;
        std::ifstream(path) >> state;
        if (state == "3")
            return;
        usleep(10000);
    }
    throw std::runtime_error(port + " does not forward: " + path);
}

void make_wire(const std::string &near, const std::string &far, uint32_t mtu, uint32_t near_index) {
    route_request request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, near_index);
    nlmsghdr *message = request.message();
    mnl_attr_put_strz(message, IFLA_IFNAME, near.c_str());
    mnl_attr_put_u32(message, IFLA_MTU, mtu);
    nlattr *info = mnl_attr_nest_start(message, IFLA_LINKINFO);
    mnl_attr_put_strz(message, IFLA_INFO_KIND, "veth");
    nlattr *data = mnl_attr_nest_start(message, IFLA_INFO_DATA);
    nlattr *peer = mnl_attr_nest_start(message, VETH_INFO_PEER);
    request.put_interface(0, 0);
    mnl_attr_put_strz(message, IFLA_IFNAME, far.c_str());
    mnl_attr_put_u32(message, IFLA_MTU, mtu);
    mnl_attr_nest_end(message, peer);
    mnl_attr_nest_end(message, data);
    mnl_attr_nest_end(message, info);
    request.send("cannot make the wire " + near);
}

void make_bridge(const std::string &name, bool own_address) {
    const uint8_t mac[] = {0x02, 0, 0, 0, 0xb0, static_cast<uint8_t>(name.back())};
    route_request request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, 0);
    mnl_attr_put_strz(request.message(), IFLA_IFNAME, name.c_str());
    if (own_address)
        mnl_attr_put(request.message(), IFLA_ADDRESS, sizeof mac, mac);
    nlattr *info = mnl_attr_nest_start(request.message(), IFLA_LINKINFO);
    mnl_attr_put_strz(request.message(), IFLA_INFO_KIND, "bridge");
    nlattr *data = mnl_attr_nest_start(request.message(), IFLA_INFO_DATA);
    mnl_attr_put_u8(request.message(), IFLA_BR_MCAST_SNOOPING, 0);
    mnl_attr_nest_end(request.message(), data);
    mnl_attr_nest_end(request.message(), info);
    request.send("cannot make the bridge " + name);
}

void set_address(const std::string &name, const std::array<uint8_t, 6> &mac) {
    route_request request(RTM_SETLINK, 0, index_of(name));
    mnl_attr_put(request.message(), IFLA_ADDRESS, mac.size(), mac.data());
    request.send("cannot give an address to " + name);
}

void put_into_bridge(const std::string &port, const std::string &bridge) {
    route_request request(RTM_SETLINK, 0, index_of(port));
    mnl_attr_put_u32(request.message(), IFLA_MASTER, index_of(bridge));
    request.send("cannot put " + port + " into " + bridge);
}

void take_out_of_bridge(const std::string &port) {
    route_request request(RTM_SETLINK, 0, index_of(port));
    mnl_attr_put_u32(request.message(), IFLA_MASTER, 0);
    request.send("cannot take " + port + " out of its bridge");
}

// Without addresses of its own, a wire carries nothing but what a test sends.
void bring_up(const std::string &name) {
    route_request quiet(RTM_SETLINK, 0, index_of(name));
    nlattr *families = mnl_attr_nest_start(quiet.message(), IFLA_AF_SPEC);
    nlattr *inet6 = mnl_attr_nest_start(quiet.message(), AF_INET6);
    mnl_attr_put_u8(quiet.message(), IFLA_INET6_ADDR_GEN_MODE, IN6_ADDR_GEN_MODE_NONE);
    mnl_attr_nest_end(quiet.message(), inet6);
    mnl_attr_nest_end(quiet.message(), families);
    quiet.send("cannot quiet " + name);
    route_request(RTM_SETLINK, 0, index_of(name), IFF_UP).send("cannot bring up " + name);
}

void bring_down(const std::string &name) {
    route_request request(RTM_SETLINK, 0, index_of(name));
    static_cast<ifinfomsg *>(mnl_nlmsg_get_payload(request.message()))->ifi_change = IFF_UP;
    request.send("cannot bring down " + name);
}

void rename_interface(const std::string &name, const std::string &to) {
    route_request request(RTM_SETLINK, 0, index_of(name));
    mnl_attr_put_strz(request.message(), IFLA_IFNAME, to.c_str());
    request.send("cannot rename " + name);
}

void remove_interface(const std::string &name) {
    route_request(RTM_DELLINK, 0, index_of(name)).send("cannot remove " + name);
}

void put_ingress_qdisc(const std::string &name) {
    route_request request(RTM_NEWQDISC, NLM_F_CREATE | NLM_F_EXCL);
    auto *head = static_cast<tcmsg *>(mnl_nlmsg_put_extra_header(request.message(), sizeof(tcmsg)));
    head->tcm_ifindex = static_cast<int>(index_of(name));
    head->tcm_handle = TC_H_MAKE(TC_H_INGRESS, 0);
    head->tcm_parent = TC_H_INGRESS;
    mnl_attr_put_strz(request.message(), TCA_KIND, "ingress");
    request.send("cannot put an ingress qdisc on " + name);
}

wire_end::wire_end(const std::string &name, uint16_t ethertype)
    : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ethertype))) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ethertype);
    address.sll_ifindex = static_cast<int>(index_of(name));
    if (socket_ < 0 || bind(socket_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        fail("cannot listen to " + name, errno);
}

wire_end::~wire_end() {
    if (socket_ >= 0)
        close(socket_);
}

wire_end::wire_end(wire_end &&other) noexcept : socket_(other.socket_) {
    other.socket_ = -1;
}

void wire_end::send(const std::string &frame) const {
    if (::send(socket_, frame.data(), frame.size(), 0) != static_cast<ssize_t>(frame.size()))
        fail("cannot send", errno);
}

void wire_end::send_in_pages(const std::string &frame) const {
    const page_request head{.hdr_len = ETH_HLEN};
    const int on = 1;
    const int off = 0;
    if (setsockopt(socket_, SOL_PACKET, PACKET_VNET_HDR, &on, sizeof on) != 0)
        fail("PACKET_VNET_HDR", errno);
    send(std::string(reinterpret_cast<const char *>(&head), sizeof head) + frame);
    setsockopt(socket_, SOL_PACKET, PACKET_VNET_HDR, &off, sizeof off);
}

std::string wire_end::receive(int wait_ms) const {
    pollfd watched{socket_, POLLIN, 0};
    while (poll(&watched, 1, wait_ms) == 1) {
        char frame[16384];
        sockaddr_ll from{};
        socklen_t from_size = sizeof from;
        const ssize_t size = recvfrom(socket_, frame, sizeof frame, 0, reinterpret_cast<sockaddr *>(&from), &from_size);
        if (size >= 0 && from.sll_pkttype != PACKET_OUTGOING)
            return {frame, static_cast<size_t>(size)};
    }
    return {};
}

size_t wire_end::count_arrived(int quiet_ms) const {
    size_t count = 0;
    while (count < STORM && !receive(quiet_ms).empty())
        count++;
    return count;
}

bridged_wires::bridged_wires(size_t ports, uint32_t mtu, size_t first) : first_(first) {
    // It shows the namespace of whoever mounts it; the second bridge finds it mounted.
    if (mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0 && errno != EBUSY)
        fail("cannot mount /sys", errno);
    // Not all of the frames would get past a firewall, which bridges ask on some machines.
    for (const char *family : {"iptables", "ip6tables", "arptables"})
        std::ofstream(std::string("/proc/sys/net/bridge/bridge-nf-call-") + family) << 0;
    const std::string bridge = "br" + std::to_string(first);
    make_bridge(bridge);
    bring_up(bridge);
    for (size_t place = first; place < first + ports; place++) {
        const std::string near = "p" + std::to_string(place);
        const std::string far = "e" + std::to_string(place);
        make_wire(near, far, mtu);
        put_into_bridge(near, bridge);
        bring_up(near);
        bring_up(far);
        ends_.emplace_back(far);
    }
    for (size_t place = first; place < first + ports; place++)
        wait_for_forwarding("p" + std::to_string(place));
    for (const wire_end &end : ends_)
        (void)end.count_arrived(1);
}

uint32_t bridged_wires::port(size_t place) const {
    return index_of("p" + std::to_string(first_ + place));
}

const wire_end &bridged_wires::end(size_t place) const {
    return ends_.at(place);
}

void bridged_wires::close_ends() {
    ends_.clear();
}
