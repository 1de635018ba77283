// The three watched sockets: opening them, draining them.
#include "core/hub/netlink_sockets.h"

#include "core/config.h"
#include "core/container_of.h"
#include "core/hub/dispatch.h"
#include "core/hub/link_notification.h"
#include "core/hub/netlink_request.h"
#include "core/log.h"
#include "core/names.h"
#include "probes/ports.h"

#include <cstring>
#include <duon_bridge.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr uint16_t REQUEST_NEIGHBOUR_REGISTRATION = 13;
constexpr int BRIDGE_EVENTS = 3;

// How a watched socket is opened.
struct watched_socket {
    const char *operation; // that the log is to name
    int protocol;
    uint32_t groups;
    uloop_fd_handler handler;
    bool close_on_failure;
};

// Ends the process for the step that failed.
[[noreturn]] void refuse(const watched_socket &how, int fd, const char *step) {
    const int error = errno;
    if (how.close_on_failure)
        (void)close(fd);
    errno = error;
    KOLT_FATAL_ERRNO_AS(how.operation, "%s", step);
}

// A socket that was overrun has lost messages, which nobody can bring back. Told of it as an error, the loop would take
// the socket out, and all later messages were lost too.
void go_on_when_overrun(int fd) {
    const int on = 1;
    (void)setsockopt(fd, SOL_NETLINK, NETLINK_NO_ENOBUFS, &on, sizeof on); // go_on_watching() is there for the error
}

void open_watched(uloop_fd *watcher, const watched_socket &how) {
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, how.protocol);
    if (fd < 0)
        KOLT_FATAL_ERRNO_AS(how.operation, "%s", "socket");
    go_on_when_overrun(fd);
    const sockaddr_nl own{
        .nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = static_cast<uint32_t>(getpid()), .nl_groups = how.groups};
    if (bind(fd, reinterpret_cast<const sockaddr *>(&own), sizeof own) != 0)
        refuse(how, fd, "bind");
    *watcher = uloop_fd{};
    watcher->cb = how.handler;
    watcher->fd = fd;
    if (uloop_fd_add(watcher, ULOOP_READ) < 0)
        refuse(how, fd, "uloop_fd_add");
}

// Receives the next datagram that holds a whole netlink message into `buffer` and returns the message; null when
// there is nothing left to receive. What is malformed is passed over.
template <size_t Size> nlmsghdr *next_message(int fd, uint8_t (&buffer)[Size]) {
    for (;;) {
        memset(buffer, 0, Size);
        const ssize_t received = recv(fd, buffer, Size, MSG_DONTWAIT);
        if (received <= 0)
            return nullptr;
        auto *message = reinterpret_cast<nlmsghdr *>(buffer);
        if (received >= NLMSG_HDRLEN && message->nlmsg_len >= NLMSG_HDRLEN &&
            message->nlmsg_len <= static_cast<size_t>(received))
            return message;
    }
}

// Delivers the first message of every waiting datagram as an event.
void deliver_messages(kolt_event_ctx *ev, int fd, kolt_event_kind kind) {
    alignas(nlmsghdr) uint8_t buffer[KOLT_NETLINK_BUFFER_SIZE];
    while (nlmsghdr *message = next_message(fd, buffer)) {
        kolt_event event{.type = message->nlmsg_type,
                         .len = message->nlmsg_len - static_cast<uint32_t>(NLMSG_HDRLEN),
                         .data = buffer + NLMSG_HDRLEN};
        event_run_cb(ev, kind, &event);
    }
}

// The loop takes out a watcher whose socket reports an error. Whatever it was, the messages that come are still wanted.
void go_on_watching(uloop_fd *watcher) {
    if (!watcher->registered)
        (void)uloop_fd_add(watcher, ULOOP_READ); // it could be watched before, and can be again
}

void receive_bridge(uloop_fd *watcher, unsigned int /*events*/) {
    deliver_messages(KOLT_CONTAINER_OF(watcher, kolt_event_ctx, bridge_fd), watcher->fd, KOLT_EVENT_BRIDGE);
    go_on_watching(watcher);
}

void receive_neighbour(uloop_fd *watcher, unsigned int /*events*/) {
    deliver_messages(KOLT_CONTAINER_OF(watcher, kolt_event_ctx, neigh_fd), watcher->fd, KOLT_EVENT_NEIGHBOUR);
    go_on_watching(watcher);
}

void receive_link_notification(uloop_fd *watcher, unsigned int /*events*/) {
    alignas(nlmsghdr) uint8_t buffer[KOLT_NETLINK_BUFFER_SIZE];
    while (const nlmsghdr *message = next_message(watcher->fd, buffer)) {
        if (message->nlmsg_type == RTM_NEWLINK)
            nl_wifi_newlink_handle(message);
    }
    go_on_watching(watcher);
}

} // namespace

void event_bridge_set_event(config *config) {
    for (uint32_t i = 0; i < config->bridge_num; i++) {
        const kolt_name_text bridge(config->bridges[i].name);
        if (kolt_check_active_bridge(bridge.text) == 0)
            continue;
        if (bridgeSetEventInfo(bridge.text, getpid(), BRIDGE_EVENTS, KOLT_BRIDGE_PROTOCOL) < 0)
            KOLT_ERROR("bridgeSetEventInfo");
    }
}

void event_bridge_init(kolt_event_ctx *ev) {
    open_watched(&ev->bridge_fd, {.operation = __func__,
                                  .protocol = KOLT_NETLINK_BRIDGE,
                                  .groups = 0,
                                  .handler = receive_bridge,
                                  .close_on_failure = false});
    event_bridge_set_event(event_config(ev));
}

void event_wifi_init(kolt_event_ctx *ev) {
    open_watched(&ev->wifi_fd, {.operation = __func__,
                                .protocol = NETLINK_ROUTE,
                                .groups = RTMGRP_LINK,
                                .handler = receive_link_notification,
                                .close_on_failure = true});
}

void event_neighbor_init(kolt_event_ctx *ev) {
    open_watched(&ev->neigh_fd, {.operation = __func__,
                                 .protocol = KOLT_NETLINK_NEIGHBOUR,
                                 .groups = 0,
                                 .handler = receive_neighbour,
                                 .close_on_failure = false});
    struct {
        nlmsghdr header;
        uint32_t pid;
    } message{};
    message.pid = static_cast<uint32_t>(getpid());
    // An unanswered registration leaves the daemon without neighbour messages, with which it can run.
    (void)kolt_netlink_msg(REQUEST_NEIGHBOUR_REGISTRATION, &message, sizeof message.pid, KOLT_NETLINK_REQUEST);
}
