// Other processes of the node at the kernel's own netlink: what one without rights can do to the daemon, and what it
// cannot.
#include "core/fatal.h"
#include "hub_test.h"
#include "netlink_bytes.h"

#include "core/handle.h"
#include "core/hub/netlink_sockets.h"

#include <cerrno>
#include <functional>
#include <linux/capability.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using ForeignSender = hub_test;
using ForeignSenderDeathTest = hub_test;

bool give_up_all_rights() {
    __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3]{};
    return syscall(SYS_capset, &header, none) == 0;
}

// Runs in a process of its own, which has no rights; its result is the exit status.
int without_rights(const std::function<int()> &act) {
    const pid_t child = fork();
    if (child == 0)
        _exit(give_up_all_rights() ? act() : 255);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

sockaddr_nl address_of(uint32_t port) {
    return {.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = port, .nl_groups = 0};
}

// Sends a link message to a port; 0, or the reason why that was refused.
int send_link_message(uint32_t port) {
    const unique_fd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    const std::string message = netlink_message(RTM_NEWLINK, std::string(sizeof(ifinfomsg), '\0'));
    const sockaddr_nl target = address_of(port);
    // The kernel's own call: the library's is faked here.
    const long sent = syscall(SYS_sendto, fd.get(), message.data(), message.size(), 0, &target, sizeof target);
    return sent < 0 ? errno : 0;
}

// Takes a port of route netlink and keeps it; 0, or the reason why that was refused.
int take_port(uint32_t port) {
    static unique_fd taken;
    taken.reset(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    const sockaddr_nl own = address_of(port);
    return bind(taken.get(), reinterpret_cast<const sockaddr *>(&own), sizeof own) == 0 ? 0 : errno;
}

} // namespace

TEST_F(ForeignSender, WithoutRightsCannotSendALinkMessage) {
    event_wifi_init(&node.ev);
    const auto port = static_cast<uint32_t>(getpid());
    EXPECT_EQ(without_rights([port] { return send_link_message(port); }), EPERM);
    serve_waiting();
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

// The handler cannot tell it from the kernel's: "config_index_to_name fail" shows that it was taken.
TEST_F(ForeignSender, WithTheRightToConfigureTheNetworkCan) {
    event_wifi_init(&node.ev);
    EXPECT_EQ(send_link_message(static_cast<uint32_t>(getpid())), 0);
    serve_waiting();
    EXPECT_THAT(logged_texts(), testing::ElementsAre("Error: config_index_to_name fail"));
}

// Nothing guards a port's number, so a process that guesses it stops the start. The next one has another number.
TEST_F(ForeignSenderDeathTest, WithoutRightsCanTakeTheDaemonsPortBeforeItStarts) {
    const auto start = [this] {
        int ends[2];
        if (pipe(ends) != 0)
            return;
        const auto port = static_cast<uint32_t>(getpid());
        if (fork() == 0) {
            const int refused = give_up_all_rights() ? take_port(port) : 255;
            (void)!write(ends[1], refused == 0 ? "y" : "n", 1);
            close(ends[1]);
            sleep(2);
            _exit(0);
        }
        char taken = 0;
        if (read(ends[0], &taken, 1) == 1 && taken == 'y')
            event_wifi_init(&node.ev);
    };
    EXPECT_FATAL(start(), "event_wifi_init", "Fatal(Address already in use): bind");
}
