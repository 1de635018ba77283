// The watched sockets when there is more to tell than they can hold. Link notifications come from the kernel; those of
// the bridges and of the neighbours are opened on the protocol that every kernel has for programs.
#include "hub_test.h"
#include "netlink_bytes.h"

#include "core/handle.h"
#include "core/hub/dispatch.h"
#include "core/hub/netlink_sockets.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <linux/netlink.h>
#include <net/if.h>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// What the kernel had to drop on a socket so far, which is the column before the last one of the socket's line.
uint32_t lost_messages(int fd) {
    struct stat status {};
    EXPECT_EQ(fstat(fd, &status), 0);
    std::ifstream file("/run/proc/self/net/netlink");
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream columns(line);
        const lines words{std::istream_iterator<std::string>(columns), {}};
        if (words.size() == 10 && words[9] == std::to_string(status.st_ino))
            return static_cast<uint32_t>(std::stoul(words[8]));
    }
    ADD_FAILURE() << "the kernel lists no such socket";
    return 0;
}

class LinkSocket : public hub_test {
protected:
    LinkSocket() {
        l_ev = &node.ev;
    }
    // Each change is told to whoever listens for link notifications.
    static void change_the_loopback_interface(int times) {
        const unique_fd any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        ifreq request{};
        strcpy(request.ifr_name, "lo");
        for (int i = 0; i < times; i++) {
            request.ifr_flags = static_cast<short>(i % 2 == 0 ? IFF_UP : 0);
            ASSERT_EQ(ioctl(any.get(), SIOCSIFFLAGS, &request), 0);
        }
    }
};

struct told_socket {
    const char *name;
    int protocol;
    void (*init)(kolt_event_ctx *ev);
    uloop_fd kolt_event_ctx::*watcher;
};

// A kernel tells its listeners whether or not they have room; a process with no more right than that is refused.
class ToldSocket : public hub_test, public testing::WithParamInterface<told_socket> {
protected:
    static constexpr int MANY = 2000; // of which a socket holds some hundred
    static constexpr unsigned GROUP = 1;

    ToldSocket() {
        netlink.instead[GetParam().protocol] = NETLINK_USERSOCK;
        subscribe(&subscriber);
        GetParam().init(&node.ev);
        sender.reset(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_USERSOCK));
        EXPECT_EQ(setsockopt(watcher().fd, SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &GROUP, sizeof GROUP), 0);
    }
    uloop_fd &watcher() {
        return node.ev.*GetParam().watcher;
    }
    // 0, or the reason why the message was refused.
    int send_message(uint32_t port, uint32_t groups) {
        const sockaddr_nl target{.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = port, .nl_groups = groups};
        const std::string message = netlink_message(5, "thirteenbytes");
        // The kernel's own call: the library's is faked here.
        const long sent = syscall(SYS_sendto, sender.get(), message.data(), message.size(), 0, &target, sizeof target);
        return sent < 0 ? errno : 0;
    }
    // As the kernel tells its listeners. That nobody has the port 0 shows afterwards.
    void tell_all(int times) {
        for (int i = 0; i < times; i++)
            ASSERT_EQ(send_message(0, 1U << (GROUP - 1)), ECONNREFUSED);
    }
    recording_subscriber subscriber{'s'};
    unique_fd sender;
};

} // namespace

// The kernel's own socket, which loses messages and is not heard to complain.
TEST_F(LinkSocket, OverrunLeavesItReadableAndWithoutAnError) {
    event_wifi_init(&node.ev);
    change_the_loopback_interface(2000);
    EXPECT_GT(lost_messages(node.ev.wifi_fd.fd), 0U) << "the socket was not overrun";
    pollfd watched{.fd = node.ev.wifi_fd.fd, .events = POLLIN, .revents = 0};
    ASSERT_EQ(poll(&watched, 1, 0), 1);
    EXPECT_EQ(watched.revents, POLLIN);
}

TEST_F(LinkSocket, IsHeardAgainAfterAnOverrun) {
    event_wifi_init(&node.ev);
    for (int round = 0; round < 2; round++) {
        change_the_loopback_interface(2000);
        EXPECT_GT(lost_messages(node.ev.wifi_fd.fd), 0U) << "the socket was not overrun";
        uloop_run_timeout(0);
        EXPECT_TRUE(node.ev.wifi_fd.registered);
        EXPECT_FALSE(node.ev.wifi_fd.error);
        pollfd watched{.fd = node.ev.wifi_fd.fd, .events = POLLIN, .revents = 0};
        EXPECT_EQ(poll(&watched, 1, 0), 0) << "what had come was not taken in one pass";
    }
}

TEST_P(ToldSocket, OverrunLeavesItReadableAndWithoutAnError) {
    tell_all(MANY);
    EXPECT_GT(lost_messages(watcher().fd), 0U) << "the socket was not overrun";
    pollfd watched{.fd = watcher().fd, .events = POLLIN, .revents = 0};
    ASSERT_EQ(poll(&watched, 1, 0), 1);
    EXPECT_EQ(watched.revents, POLLIN);
}

TEST_P(ToldSocket, TellsWhatFoundRoomAndIsHeardAgainAfterAnOverrun) {
    for (int round = 0; round < 2; round++) {
        const uint32_t lost_before = lost_messages(watcher().fd);
        subscriber.events.clear();
        tell_all(MANY);
        uloop_run_timeout(0);
        const uint32_t lost = lost_messages(watcher().fd) - lost_before;
        EXPECT_GT(lost, 0U) << "the socket was not overrun";
        EXPECT_EQ(subscriber.events.size(), MANY - lost);
        EXPECT_TRUE(watcher().registered);
        EXPECT_FALSE(watcher().error);
    }
    subscriber.events.clear();
    tell_all(1);
    uloop_run_timeout(0);
    EXPECT_EQ(subscriber.events.size(), 1U);
}

// Another process is told that there is no room, and nothing of its messages is lost.
TEST_P(ToldSocket, ProcessIsRefusedWhatFindsNoRoom) {
    const auto port = static_cast<uint32_t>(getpid());
    size_t taken = 0;
    int refusal = 0;
    while (taken < MANY && (refusal = send_message(port, 0)) == 0)
        taken++;
    EXPECT_EQ(refusal, EAGAIN);
    EXPECT_EQ(lost_messages(watcher().fd), 0U);
    uloop_run_timeout(0);
    EXPECT_EQ(subscriber.events.size(), taken);
    EXPECT_EQ(send_message(port, 0), 0);
}

INSTANTIATE_TEST_SUITE_P(Sockets, ToldSocket,
                         testing::Values(told_socket{"Bridge", 39, event_bridge_init, &kolt_event_ctx::bridge_fd},
                                         told_socket{"Neighbour", 53, event_neighbor_init, &kolt_event_ctx::neigh_fd}),
                         [](const testing::TestParamInfo<told_socket> &row) { return row.param.name; });
