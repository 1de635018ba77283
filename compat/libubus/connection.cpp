// The connection: opening, sending, receiving from the event loop, closing.

#include "client.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

int64_t now_ms() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail with this clock
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void end_loop_if_attached(ubus_context *ctx) {
    if (ctx->sock.registered)
        uloop_end();
}

// Receives one message and handles it; false when there is none, or none any more.
bool handle_received(ubus_context *ctx) {
    const wire_result result = wire_receive(ctx->sock.fd, *ctx->input);
    if (result == wire_result::BROKEN)
        ubus_connection_broken(ctx);
    if (result != wire_result::COMPLETE)
        return false;
    const ubus_msghdr header = wire_header(*ctx->input);
    blob_attr *body = wire_take_body(*ctx->input); // out of the way of requests that the callback makes
    ubus_dispatch(ctx, header, body);
    free(body);
    return true;
}

// One message a turn of the loop: a handler may take seconds, and what is due meanwhile, a timer above all, comes
// between two of them. After a hang-up there is no other turn, because the loop has taken the socket out.
void handle_socket(uloop_fd *sock, unsigned) {
    ubus_context *ctx = container_of(sock, ubus_context, sock);
    do {
        if (!ubus_dispatch_pending(ctx) && !handle_received(ctx))
            return;
    } while (!sock->registered && !ubus_loop_ending());
}

void handle_pending_timer(uloop_timeout *timer) {
    ubus_dispatch_pending(container_of(timer, ubus_context, pending_timer));
}

// Waits for a broker whose queue is full, without an end, as for its greeting. A signal ends the wait unless its
// handler has the call restarted; one with a time-out would never be restarted.
int open_socket(const char *path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(address.sun_path, path, strlen(path));
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Blocks until there is something to receive. A signal ends the wait unless its handler has the call restarted.
bool wait_for_greeting(int fd) {
    char first;
    return recv(fd, &first, sizeof first, MSG_PEEK) >= 0; // the end of the stream is for whoever receives it
}

bool receive_greeting(ubus_context *ctx) {
    wire_result result = wire_receive(ctx->sock.fd, *ctx->input);
    while (result == wire_result::MORE) {
        if (!wait_for_greeting(ctx->sock.fd))
            return false;
        result = wire_receive(ctx->sock.fd, *ctx->input);
    }
    errno = EPROTO; // the reason of every failure below
    if (result != wire_result::COMPLETE)
        return false;
    const ubus_msghdr header = wire_header(*ctx->input);
    wire_reset(*ctx->input);
    ctx->local_id = header.peer;
    return header.type == UBUS_MSG_HELLO && header.peer != 0 && fcntl(ctx->sock.fd, F_SETFL, O_NONBLOCK) == 0;
}

bool send_all(int fd, const void *bytes, size_t len, int64_t deadline) {
    const auto *next = static_cast<const char *>(bytes);
    while (len > 0) {
        const ssize_t sent = send(fd, next, len, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        if (sent < 0 && errno == EAGAIN && !ubus_wait(fd, POLLOUT, deadline))
            return false;
        if (sent > 0) {
            next += sent;
            len -= static_cast<size_t>(sent);
        }
    }
    return true;
}

} // namespace

struct ubus_context *ubus_connect(const char *path) {
    if (uloop_init() != 0)
        return nullptr;
    const int fd = open_socket(path ? path : UBUS_UNIX_SOCKET);
    return fd >= 0 ? ubus_adopt(fd) : nullptr;
}

ubus_context *ubus_adopt(int fd) {
    auto *ctx = static_cast<ubus_context *>(calloc(1, sizeof(ubus_context)));
    if (!ctx) {
        close(fd);
        return nullptr;
    }
    INIT_LIST_HEAD(&ctx->objects);
    INIT_LIST_HEAD(&ctx->pending);
    ctx->connection_lost = end_loop_if_attached;
    ctx->pending_timer.cb = handle_pending_timer;
    ctx->sock.cb = handle_socket;
    ctx->sock.fd = fd;
    ctx->input = static_cast<ubus_wire_input *>(calloc(1, sizeof(ubus_wire_input)));
    if (ctx->input && receive_greeting(ctx))
        return ctx;
    const int reason = errno;
    ubus_free(ctx);
    errno = reason;
    return nullptr;
}

void ubus_free(struct ubus_context *ctx) {
    if (!ctx)
        return;
    (void)uloop_fd_delete(&ctx->sock);               // closing takes it out of the loop anyway
    (void)uloop_timeout_cancel(&ctx->pending_timer); // mostly idle
    close(ctx->sock.fd);
    ubus_drop_pending(ctx);
    if (ctx->input)
        wire_reset(*ctx->input);
    free(ctx->input);
    free(ctx);
}

int64_t ubus_deadline() {
    return now_ms() + UBUS_PATIENCE_MS;
}

bool ubus_expired(int64_t deadline) {
    return now_ms() >= deadline;
}

bool ubus_loop_ending() {
    return __atomic_load_n(&uloop_cancelled, __ATOMIC_RELAXED);
}

bool ubus_wait(int fd, short events, int64_t deadline) {
    for (;;) {
        const int64_t left = deadline - now_ms();
        if (left <= 0)
            return false;
        pollfd entry = {fd, events, 0};
        const int ready = poll(&entry, 1, static_cast<int>(left));
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return false;
        // What ended the loop may have cut the connection as well, which is then the answer.
        if (ready < 0 && ubus_loop_ending())
            return poll(&entry, 1, 0) > 0;
    }
}

bool ubus_send_message(ubus_context *ctx, ubus_msg_type type, uint16_t seq, uint32_t peer, const blob_attr *body) {
    if (!wire_can_send(body))
        return false;
    auto header = wire_encode_header(type, seq, peer);
    iovec parts[] = {{header.data(), header.size()}, {const_cast<blob_attr *>(body), blob_raw_len(body)}};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    const ssize_t sent = sendmsg(ctx->sock.fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    const size_t done = sent > 0 ? static_cast<size_t>(sent) : 0; // whatever was wrong, send_all() meets it again
    const size_t done_header = done < header.size() ? done : header.size();
    const size_t done_body = done - done_header;
    const int64_t deadline = ubus_deadline();
    return send_all(ctx->sock.fd, &header[0] + done_header, header.size() - done_header, deadline) &&
           send_all(ctx->sock.fd, reinterpret_cast<const char *>(body) + done_body, blob_raw_len(body) - done_body,
                    deadline);
}

void ubus_connection_broken(ubus_context *ctx) {
    (void)shutdown(ctx->sock.fd, SHUT_RDWR); // all further reading finds the end of the stream
    if (ctx->lost)
        return;
    ctx->lost = true;
    if (ctx->connection_lost)
        ctx->connection_lost(ctx);
}
