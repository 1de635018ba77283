// Every request has a socket of its own, so that a late reply to one can never be taken for the next one's.
#include "core/hub/netlink_request.h"

#include "core/handle.h"
#include "core/log.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr uint16_t REQUEST_NOTIFY = 14;
constexpr int64_t REPLY_TIMEOUT_MS = 1000;

uint32_t port_id; // of this process, 0 until the first request

int64_t now_ms() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail with this clock
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// True when there is something to read before `deadline`; signals do not shorten the wait.
bool wait_for_reply_until(int fd, int64_t deadline) {
    pollfd watched{.fd = fd, .events = POLLIN, .revents = 0};
    for (;;) {
        const int64_t left = deadline - now_ms();
        const int ready = poll(&watched, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready >= 0 || errno != EINTR)
            return ready > 0;
    }
}

bool wait_for_reply(int fd, kolt_wait_budget *budget) {
    const int64_t begin = now_ms();
    if (budget == nullptr)
        return wait_for_reply_until(fd, begin + REPLY_TIMEOUT_MS);
    const bool came = wait_for_reply_until(fd, begin + std::min(REPLY_TIMEOUT_MS, budget->left_ms));
    budget->left_ms = std::max<int64_t>(0, budget->left_ms - (now_ms() - begin));
    return came;
}

int exchange_message(int fd, nlmsghdr *message, kolt_wait_budget *budget) {
    const sockaddr_nl kernel{.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = 0};
    const auto size = static_cast<int>(message->nlmsg_len);
    constexpr char OPERATION[] = "kolt_netlink_msg";

    if (setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof size) != 0) {
        KOLT_ERROR_AS(OPERATION, "Setsockopt SO_SNDBUF: ");
        return 0;
    }
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0) {
        KOLT_ERROR_AS(OPERATION, "Setsockopt SO_RCVBUF: ");
        return 0;
    }
    if (sendto(fd, message, message->nlmsg_len, 0, reinterpret_cast<const sockaddr *>(&kernel), sizeof kernel) <= 0) {
        KOLT_ERROR_AS(OPERATION, "netlink socket send failed\n");
        return 0;
    }
    if (!wait_for_reply(fd, budget))
        return 0;
    if (recv(fd, message, static_cast<size_t>(size), MSG_WAITALL) <= 0) {
        KOLT_ERROR_AS(OPERATION, "netlink socket receive failed\n");
        return 0;
    }
    return 1;
}

} // namespace

int kolt_netlink_msg(uint16_t type, void *buffer, uint32_t payload_length, int protocol, kolt_wait_budget *budget) {
    if (port_id == 0)
        port_id = static_cast<uint32_t>(getpid());

    unique_fd fd(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, protocol));
    if (!fd) {
        KOLT_ERROR("netlink socket create failed\n");
        return 0;
    }
    if (fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) | O_NONBLOCK) < 0) {
        KOLT_ERROR("fcntl():");
        return 0;
    }
    const sockaddr_nl own{.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = port_id, .nl_groups = 0};
    // Refused while another socket of this process holds the port id; the kernel then picks one, and the reply comes.
    (void)bind(fd.get(), reinterpret_cast<const sockaddr *>(&own), sizeof own);

    auto *message = static_cast<nlmsghdr *>(buffer);
    message->nlmsg_len = NLMSG_ALIGN(static_cast<uint32_t>(NLMSG_HDRLEN) + payload_length);
    message->nlmsg_type = type;
    message->nlmsg_flags = 0;
    message->nlmsg_pid = port_id;
    const int result = exchange_message(fd.get(), message, budget);
    if (fd.get() == 0)
        (void)fd.release(); // a daemon's standard input, whatever took its place, is not a request's to close
    return result;
}

int kolt_send_notify_msg(const void *record, kolt_wait_budget *budget) {
    struct {
        nlmsghdr header;
        uint8_t payload[KOLT_NOTIFY_SIZE];
    } message{};
    memcpy(message.payload, record, sizeof message.payload);
    return kolt_netlink_msg(REQUEST_NOTIFY, &message, sizeof message.payload, KOLT_NETLINK_REQUEST, budget);
}
