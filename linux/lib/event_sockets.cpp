#include "lib/event_sockets.h"

#include "lib/connection.h"
#include "lib/socket_identity.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>

namespace {

constexpr int MAX_SOCKETS = 8;

struct kept_socket {
    int32_t protocol = 0; // 0: the place is free
    pid_t pid = 0;        // of the process that opened it
    int open_end = -1;
    int kept_end = -1;
    socket_identity open_identity;
    socket_identity kept_identity;
};
kept_socket sockets[MAX_SOCKETS];

call_request offer(int32_t protocol, pid_t pid) {
    call_request request{};
    request.call = CALL_ADD_EVENT_SOCKET;
    request.values[0] = protocol;
    request.values[1] = pid;
    return request;
}

// Shutting it down is how kolt-bridged, which has a copy, learns that nobody listens any more. After a fork the other
// process may.
void close_kept_end(const kept_socket &socket) {
    if (!socket.kept_identity.is(socket.kept_end))
        return;
    if (socket.pid == getpid())
        (void)shutdown(socket.kept_end, SHUT_RDWR); // cannot fail for a socket of a pair
    (void)close(socket.kept_end);
}

// Closing is not watched: what the process has closed since is found out when it matters.
void forget_closed() {
    for (kept_socket &socket : sockets) {
        if (socket.protocol == 0 || socket.open_identity.is(socket.open_end))
            continue;
        close_kept_end(socket);
        socket = {};
    }
}

kept_socket *free_place() {
    forget_closed();
    for (kept_socket &socket : sockets) {
        if (socket.protocol == 0)
            return &socket;
    }
    return nullptr;
}

// Makes the pair. The process cannot write into its end, as there is no kernel behind it.
bool open_pair(unique_fd *open_end, unique_fd *kept_end, int flags) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | (flags & SOCK_NONBLOCK), 0, ends) != 0)
        return false;
    open_end->reset(ends[0]);
    kept_end->reset(ends[1]);
    if (shutdown(kept_end->get(), SHUT_RD) != 0)
        return false;
    return (flags & SOCK_CLOEXEC) != 0 || fcntl(open_end->get(), F_SETFD, 0) == 0;
}

bool hand_over(int32_t protocol, int kept_end) {
    call_answer answer;
    if (bridged_call(offer(protocol, getpid()), kept_end, &answer) && answer.reply.result == 0)
        return true;
    errno = EPROTONOSUPPORT;
    return false;
}

} // namespace

int open_event_socket(int32_t protocol, int flags) {
    kept_socket *place = free_place();
    if (place == nullptr) {
        errno = ENOBUFS;
        return -1;
    }
    unique_fd open_end;
    unique_fd kept_end;
    if (!open_pair(&open_end, &kept_end, flags) || !hand_over(protocol, kept_end.get()))
        return -1;
    place->protocol = protocol;
    place->pid = getpid();
    place->open_identity = socket_identity::of(open_end.get());
    place->kept_identity = socket_identity::of(kept_end.get());
    place->open_end = open_end.release();
    place->kept_end = kept_end.release();
    return place->open_end;
}

bool bridged_greet(const deadline &until) {
    forget_closed();
    for (const kept_socket &socket : sockets) {
        if (socket.protocol == 0 || !socket.kept_identity.is(socket.kept_end))
            continue;
        call_answer answer;
        if (bridged_exchange(until, offer(socket.protocol, socket.pid), socket.kept_end, &answer) !=
            call_outcome::ANSWERED)
            return false;
    }
    return true;
}
