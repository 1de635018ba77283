// Making bridges, links and frames.
#include "linux/support/network.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <linux/if.h>
#include <linux/if_ether.h>
#include <linux/if_link.h>
#include <linux/if_packet.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <poll.h>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

extern "C" unsigned if_nametoindex(const char *name); // <net/if.h> does not go with <linux/if.h>

namespace {

using namespace std::chrono_literals;

// Too small for IPv6, so that the far end sends nothing of its own accord.
constexpr uint32_t FAR_MTU = 1200;

void must(int error, const std::string &what) {
    if (error != 0)
        throw std::runtime_error(what + ": " + strerror(error));
}

void change(rtnl_message &message, const std::string &what) {
    rtnl_socket rtnl;
    must(rtnl.open(), "route netlink");
    must(rtnl.request(message), what);
}

uint32_t index_of(const std::string &name) {
    return if_nametoindex(name.c_str());
}

void make_link(const std::string &near, const std::string &far) {
    rtnl_message message(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    nlmsghdr *header = message.header;
    message.head<ifinfomsg>();
    mnl_attr_put_strz(header, IFLA_IFNAME, near.c_str());
    nlattr *info = mnl_attr_nest_start(header, IFLA_LINKINFO);
    mnl_attr_put_strz(header, IFLA_INFO_KIND, "veth");
    nlattr *data = mnl_attr_nest_start(header, IFLA_INFO_DATA);
    nlattr *peer = mnl_attr_nest_start(header, VETH_INFO_PEER);
    message.head<ifinfomsg>();
    mnl_attr_put_strz(header, IFLA_IFNAME, far.c_str());
    mnl_attr_put_u32(header, IFLA_MTU, FAR_MTU);
    mnl_attr_nest_end(header, peer);
    mnl_attr_nest_end(header, data);
    mnl_attr_nest_end(header, info);
    change(message, "make " + near);
}

int listen_to(uint32_t index) {
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ALL));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(index);
    must(fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ? errno : 0, "packet socket");
    return fd;
}

// The kernel's files about interfaces show the namespace in which they were mounted.
void mount_sys() {
    static const bool MOUNTED = mount("sysfs", "/sys", "sysfs", 0, nullptr) == 0;
    if (!MOUNTED)
        throw std::runtime_error("cannot mount /sys");
}

void wait_for(const std::function<bool()> &wanted, const std::string &otherwise) {
    for (int turn = 0; !wanted(); turn++) {
        if (turn == 3000)
            throw std::runtime_error(otherwise);
        std::this_thread::sleep_for(1ms);
    }
}

std::string file_of(const std::string &interface, const std::string &file) {
    return "/sys/class/net/" + interface + "/" + file;
}

} // namespace

void set_master(uint32_t port, uint32_t bridge) {
    rtnl_message message(RTM_SETLINK, 0);
    message.head<ifinfomsg>()->ifi_index = static_cast<int>(port);
    mnl_attr_put_u32(message.header, IFLA_MASTER, bridge);
    change(message, "set master");
}

void set_up(uint32_t index, bool up) {
    rtnl_message message(RTM_SETLINK, 0);
    auto *head = message.head<ifinfomsg>();
    head->ifi_index = static_cast<int>(index);
    head->ifi_change = IFF_UP;
    head->ifi_flags = up ? IFF_UP : 0;
    change(message, "set up or down");
}

void set_mtu(uint32_t index, uint32_t mtu) {
    rtnl_message message(RTM_SETLINK, 0);
    message.head<ifinfomsg>()->ifi_index = static_cast<int>(index);
    mnl_attr_put_u32(message.header, IFLA_MTU, mtu);
    change(message, "set the MTU");
}

void rename_interface(uint32_t index, const std::string &name) {
    rtnl_message message(RTM_SETLINK, 0);
    message.head<ifinfomsg>()->ifi_index = static_cast<int>(index);
    mnl_attr_put_strz(message.header, IFLA_IFNAME, name.c_str());
    change(message, "rename to " + name);
}

void delete_interface(const std::string &name) {
    rtnl_message message(RTM_DELLINK, 0);
    message.head<ifinfomsg>()->ifi_index = static_cast<int>(index_of(name));
    change(message, "delete " + name);
}

test_link::test_link(const std::string &near, const std::string &far) : near_(near), far_(far) {
    make_link(near, far);
    set_up(test_link::far(), true);
    set_up(test_link::near(), true);
    wait_until_up();
    socket_ = listen_to(test_link::far());
}

void test_link::wait_until_up() const {
    wait_for([this] { return setting(near_, "operstate") == "up" && setting(far_, "operstate") == "up"; },
             near_ + " has no carrier");
}

test_link::test_link(test_link &&other) noexcept
    : near_(std::move(other.near_)), far_(std::move(other.far_)), socket_(other.socket_) {
    other.socket_ = -1;
}

test_link::~test_link() {
    if (socket_ < 0)
        return;
    close(socket_);
    if (far() != 0)
        delete_interface(far_);
}

uint32_t test_link::near() const {
    return index_of(near_);
}

uint32_t test_link::far() const {
    return index_of(far_);
}

void test_link::send(std::string_view frame) const {
    must(::send(socket_, frame.data(), frame.size(), 0) < 0 ? errno : 0, "send a frame");
}

std::string test_link::sent_frame(uint16_t ethertype, int wait_ms) const {
    pollfd watched{socket_, POLLIN, 0};
    while (poll(&watched, 1, wait_ms) == 1) {
        char frame[4096];
        sockaddr_ll from{};
        socklen_t from_size = sizeof from;
        const ssize_t size = recvfrom(socket_, frame, sizeof frame, 0, reinterpret_cast<sockaddr *>(&from), &from_size);
        if (size > 13 && from.sll_pkttype != PACKET_OUTGOING && static_cast<uint8_t>(frame[12]) == ethertype >> 8 &&
            static_cast<uint8_t>(frame[13]) == (ethertype & 0xFF))
            return {frame, static_cast<size_t>(size)};
    }
    return {};
}

test_bridge::test_bridge(const std::string &name) : name_(name) {
    mount_sys();
    rtnl_message message(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    message.head<ifinfomsg>();
    mnl_attr_put_strz(message.header, IFLA_IFNAME, name.c_str());
    nlattr *info = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
    mnl_attr_put_strz(message.header, IFLA_INFO_KIND, "bridge");
    mnl_attr_nest_end(message.header, info);
    change(message, "make " + name);
    set_up(index(), true);
}

test_bridge::~test_bridge() {
    if (index() != 0)
        delete_interface(name_);
}

uint32_t test_bridge::index() const {
    return index_of(name_);
}

void test_bridge::add(uint32_t port) const {
    set_master(port, index());
    char name[IFNAMSIZ] = {};
    for (const auto &entry : std::filesystem::directory_iterator(file_of(name_, "brif")))
        if (index_of(entry.path().filename()) == port)
            strncpy(name, entry.path().filename().c_str(), sizeof name - 1);
    wait_for([&] { return setting(name, "brport/state") == "3"; }, "the port does not forward");
}

void test_bridge::set(const std::string &setting, const std::string &value) const {
    std::ofstream file(file_of(name_, "bridge/" + setting));
    file << value;
    if (!file.flush())
        throw std::runtime_error("cannot set " + setting);
}

std::string setting(const std::string &interface, const std::string &file) {
    std::string text = bytes_of(interface, file);
    while (!text.empty() && isspace(static_cast<unsigned char>(text.back())) != 0)
        text.pop_back();
    return text;
}

std::string bytes_of(const std::string &interface, const std::string &file) {
    mount_sys();
    std::ifstream stream(file_of(interface, file), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

mac_address mac_of(const std::string &interface) {
    mac_address mac{};
    sscanf(setting(interface, "address").c_str(), "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &mac[0], &mac[1], &mac[2], &mac[3],
           &mac[4], &mac[5]);
    return mac;
}

std::string ethernet_frame(const mac_address &to, const mac_address &from, uint16_t ethertype,
                           std::string_view payload) {
    std::string frame(to.begin(), to.end());
    frame.append(from.begin(), from.end());
    frame += static_cast<char>(ethertype >> 8);
    frame += static_cast<char>(ethertype);
    return frame.append(payload);
}

kernel_test::kernel_test() : descriptors_(open_descriptors()) {
    must(rtnl_.open(), "route netlink");
}

kernel_test::~kernel_test() {
    rtnl_.close();
    EXPECT_EQ(open_descriptors(), descriptors_);
}
