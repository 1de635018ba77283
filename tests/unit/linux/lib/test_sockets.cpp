// The netlink protocols that a stock kernel lacks, and everything else, which is libc's.
#include "linux/support/library_test.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>

namespace {

int domain_of(int fd) {
    int domain = 0;
    socklen_t size = sizeof domain;
    EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size), 0);
    return domain;
}

int bind_netlink(int fd, uint32_t pid) {
    const sockaddr_nl address{.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = pid, .nl_groups = 0};
    return bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

ssize_t send_to_kernel(int fd, const std::string &bytes) {
    const sockaddr_nl kernel{.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = 0};
    return sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&kernel), sizeof kernel);
}

class event_socket_test : public library_test, public testing::WithParamInterface<int> {};

TEST_P(event_socket_test, receives_the_events_of_its_protocol) {
    server_process server;
    const unique_fd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, GetParam()));
    ASSERT_TRUE(fd);
    EXPECT_EQ(bind_netlink(fd.get(), static_cast<uint32_t>(getpid())), 0);
    EXPECT_EQ(server.calls(),
              lines{"event_socket_added(" + std::to_string(GetParam()) + ", " + std::to_string(getpid()) + ")"});
    EXPECT_EQ(server.send_event(GetParam(), 5, "payload"), 1);
    EXPECT_EQ(received(fd.get()), netlink_message(5, "payload"));
    EXPECT_EQ(server.send_event(GetParam() == 39 ? 53 : 39, 5, "payload"), 0);
}

TEST_P(event_socket_test, is_refused_without_kolt_bridged) {
    EXPECT_EQ(socket(AF_NETLINK, SOCK_RAW, GetParam()), -1);
    EXPECT_EQ(errno, EPROTONOSUPPORT);
}

TEST_P(event_socket_test, takes_the_flags_of_its_type) {
    const server_process server;
    const unique_fd plain(socket(AF_NETLINK, SOCK_RAW, GetParam()));
    EXPECT_EQ(fcntl(plain.get(), F_GETFD), 0);
    EXPECT_EQ(fcntl(plain.get(), F_GETFL) & O_NONBLOCK, 0);
    const unique_fd flagged(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, GetParam()));
    EXPECT_EQ(fcntl(flagged.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(flagged.get(), F_GETFL) & O_NONBLOCK, O_NONBLOCK);
}

TEST_P(event_socket_test, leads_nowhere_for_what_is_sent) {
    const server_process server;
    const unique_fd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK, GetParam()));
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(send_to_kernel(fd.get(), "lost"), -1);
}

TEST_P(event_socket_test, leaves_nothing_open_behind) {
    const server_process server;
    unique_fd(socket(AF_NETLINK, SOCK_RAW, GetParam())).reset();
    const size_t before = open_descriptors(); // the library's end goes with the next look
    for (int i = 0; i < 50; i++)
        EXPECT_TRUE(unique_fd(socket(AF_NETLINK, SOCK_RAW, GetParam())));
    EXPECT_EQ(open_descriptors(), before);
}

INSTANTIATE_TEST_SUITE_P(protocols, event_socket_test, testing::Values(39, 53));

class request_socket_test : public library_test {};

TEST_F(request_socket_test, carries_a_request_and_its_answer) {
    server_process server;
    const unique_fd fd(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, 52));
    ASSERT_TRUE(fd);
    EXPECT_EQ(bind_netlink(fd.get(), 4711), 0);
    const int size = 20;
    EXPECT_EQ(setsockopt(fd.get(), SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof size), 0);
    EXPECT_EQ(setsockopt(fd.get(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size), 0);
    EXPECT_EQ(send_to_kernel(fd.get(), netlink_message(13, raw(uint32_t{4711}))), 20);
    EXPECT_EQ(received(fd.get()).size(), 36U);
    EXPECT_EQ(server.calls(), lines{"register_neighbours(4711)"});
}

TEST_F(request_socket_test, is_refused_without_kolt_bridged) {
    EXPECT_EQ(socket(AF_NETLINK, SOCK_DGRAM, 52), -1);
    EXPECT_EQ(errno, EPROTONOSUPPORT);
}

TEST_F(request_socket_test, takes_the_flags_of_its_type) {
    const server_process server;
    const unique_fd plain(socket(AF_NETLINK, SOCK_DGRAM, 52));
    EXPECT_EQ(fcntl(plain.get(), F_GETFD), 0);
    EXPECT_EQ(fcntl(plain.get(), F_GETFL) & O_NONBLOCK, 0);
    timeval timeout{.tv_sec = 1, .tv_usec = 1};
    socklen_t size = sizeof timeout;
    EXPECT_EQ(getsockopt(plain.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, &size), 0);
    EXPECT_EQ(timeout.tv_sec + timeout.tv_usec, 0);
    const unique_fd flagged(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 52));
    EXPECT_EQ(fcntl(flagged.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(flagged.get(), F_GETFL) & O_NONBLOCK, O_NONBLOCK);
}

TEST_F(request_socket_test, of_a_kolt_bridged_that_died_fails_without_a_signal) {
    server_process server;
    const unique_fd fd(socket(AF_NETLINK, SOCK_DGRAM, 52));
    server.process().end();
    EXPECT_EQ(send_to_kernel(fd.get(), netlink_message(13, "1234")), -1);
    EXPECT_EQ(send_to_kernel(fd.get(), netlink_message(13, "1234")), -1);
}

class other_socket_test : public library_test {
protected:
    server_process server_;
};

TEST_F(other_socket_test, is_what_libc_makes_of_it) {
    struct other {
        int domain;
        int type;
        int protocol;
    };
    for (const other &kind : {other{AF_NETLINK, SOCK_RAW, 0}, other{AF_INET, SOCK_DGRAM, 0},
                              other{AF_UNIX, SOCK_STREAM, 0}, other{AF_PACKET, SOCK_RAW, 0}}) {
        const unique_fd fd(socket(kind.domain, kind.type, kind.protocol));
        ASSERT_TRUE(fd) << kind.domain;
        EXPECT_EQ(domain_of(fd.get()), kind.domain);
    }
    EXPECT_EQ(socket(AF_NETLINK, SOCK_RAW, 31), -1);
    EXPECT_EQ(errno, EPROTONOSUPPORT);
    EXPECT_EQ(socket(AF_NETLINK, SOCK_STREAM, 39), -1);
    EXPECT_EQ(socket(AF_INET, SOCK_DGRAM, 39), -1);
    EXPECT_EQ(server_.calls(), lines{});
}

TEST_F(other_socket_test, is_bound_and_written_to_by_libc) {
    const unique_fd route(socket(AF_NETLINK, SOCK_RAW, 0));
    EXPECT_EQ(bind_netlink(route.get(), 4711), 0);
    sockaddr_nl own{};
    socklen_t size = sizeof own;
    EXPECT_EQ(getsockname(route.get(), reinterpret_cast<sockaddr *>(&own), &size), 0);
    EXPECT_EQ(own.nl_pid, 4711U);
    EXPECT_EQ(send_to_kernel(route.get(), netlink_message(NLMSG_NOOP, "")), 16);
    const unique_fd named(socket(AF_UNIX, SOCK_DGRAM, 0));
    const sockaddr_un address = socket_address("/run/named");
    EXPECT_EQ(bind(named.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    const unique_fd sender(socket(AF_UNIX, SOCK_DGRAM, 0));
    EXPECT_EQ(sendto(sender.get(), "x", 1, 0, reinterpret_cast<const sockaddr *>(&address), sizeof address), 1);
    EXPECT_EQ(received(named.get()), "x");
}

} // namespace
