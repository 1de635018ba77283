// The socket of link notifications when the kernel has more to tell than it can hold.
#include "hub_test.h"

#include "core/handle.h"
#include "core/hub/dispatch.h"
#include "core/hub/netlink_sockets.h"

#include <cstring>
#include <linux/sock_diag.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

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
    // What the kernel had to drop on this socket so far.
    static uint32_t lost_messages(int fd) {
        uint32_t memory[SK_MEMINFO_VARS] = {};
        socklen_t size = sizeof memory;
        EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_MEMINFO, memory, &size), 0);
        return memory[SK_MEMINFO_DROPS];
    }
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
