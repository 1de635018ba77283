#include "lib/connection.h"

#include "lib/passed_descriptor.h"
#include "lib/reply.h"
#include "lib/socket_identity.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

constexpr int PATIENCE_MS = 2000;
constexpr int IMPATIENCE_MS = 100; // once it was silent: a caller makes dozens of calls in a row

struct {
    int fd = -1;
    socket_identity identity;
    pid_t owner = 0; // the process that connected
    uint32_t sequence = 0;
    bool impatient = false;
} state;

deadline call_deadline() {
    return deadline::in_ms(state.impatient ? IMPATIENCE_MS : PATIENCE_MS);
}

// Waits until the connection is ready for `events`; false, and impatient from then on, when that takes too long.
bool wait_for(int fd, short events, const deadline &until) {
    pollfd watched{.fd = fd, .events = events, .revents = 0};
    for (;;) {
        const int ready = poll(&watched, 1, until.left_ms());
        if (ready > 0)
            return true;
        if (ready == 0)
            state.impatient = true;
        if (ready == 0 || errno != EINTR)
            return false;
    }
}

// After a fork the other process goes on using the connection: closing this one's share does it no harm.
void hang_up() {
    if (state.identity.is(state.fd))
        (void)close(state.fd);
    state.fd = -1;
    state.identity = {};
}

bool is_connected() {
    return state.fd >= 0 && state.owner == getpid() && state.identity.is(state.fd);
}

// A kolt-bridged that hangs leaves its connections waiting to be taken in, until there is no more room for them.
bool connect_until(int fd, const deadline &until) {
    constexpr sockaddr_un ADDRESS{.sun_family = AF_UNIX, .sun_path = KOLT_BRIDGED_SOCKET};
    for (;;) {
        const long left = std::max(until.left_ms(), 1);
        const timeval timeout{.tv_sec = left / 1000, .tv_usec = left % 1000 * 1000};
        if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) != 0)
            return false;
        if (connect(fd, reinterpret_cast<const sockaddr *>(&ADDRESS), sizeof ADDRESS) == 0)
            break;
        if (errno == EAGAIN)
            state.impatient = true;
        if (errno != EINTR)
            return false;
    }
    constexpr timeval NO_TIMEOUT{};
    return setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &NO_TIMEOUT, sizeof NO_TIMEOUT) == 0;
}

unique_fd connect_as(connection_kind kind, const deadline &until) {
    unique_fd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const connection_hello hello{.magic = REQUESTS_MAGIC, .version = REQUESTS_VERSION, .kind = kind};
    if (!fd || !connect_until(fd.get(), until) ||
        send(fd.get(), &hello, sizeof hello, MSG_NOSIGNAL | MSG_DONTWAIT) != static_cast<ssize_t>(sizeof hello))
        fd.reset();
    return fd;
}

bool ensure_connected(const deadline &until) {
    if (is_connected())
        return true;
    hang_up();
    unique_fd fd = connect_as(CONNECTION_CALLS, until);
    if (!fd)
        return false;
    state.identity = socket_identity::of(fd.get());
    state.fd = fd.release();
    state.owner = getpid();
    if (bridged_greet(until))
        return true;
    hang_up();
    return false;
}

bool send_request(const deadline &until, const call_request &request, int passed) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    iovec part{.iov_base = const_cast<call_request *>(&request), .iov_len = sizeof request};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    if (passed >= 0) {
        header.msg_control = control;
        header.msg_controllen = sizeof control;
        cmsghdr *rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof passed);
        memcpy(CMSG_DATA(rights), &passed, sizeof passed);
    }
    for (;;) {
        if (sendmsg(state.fd, &header, MSG_NOSIGNAL | MSG_DONTWAIT) == static_cast<ssize_t>(sizeof request))
            return true;
        if (errno != EINTR && (errno != EAGAIN || !wait_for(state.fd, POLLOUT, until)))
            return false;
    }
}

bool receive_reply(const deadline &until, const call_request &request, call_answer *answer) {
    uint8_t bytes[sizeof(call_reply) + 1]; // one more than a reply has, so that a longer one shows
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    iovec part{.iov_base = bytes, .iov_len = sizeof bytes};
    for (;;) {
        if (!wait_for(state.fd, POLLIN, until))
            return false;
        msghdr header{};
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control;
        header.msg_controllen = CMSG_LEN(sizeof(int)); // the space would be enough for two descriptors
        const ssize_t size = recvmsg(state.fd, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        if (size < 0 && (errno == EAGAIN || errno == EINTR))
            continue;
        if (size < 0)
            return false;
        answer->table = take_descriptor(&header); // an empty message can bring one too
        return (header.msg_flags & MSG_CTRUNC) == 0 &&
               read_reply(bytes, static_cast<size_t>(size), static_cast<bool>(answer->table), request, &answer->reply);
    }
}

bool copy_name(char (&copy)[REQUEST_NAME_SIZE], const char *name) {
    if (name == nullptr)
        return true;
    const size_t length = strnlen(name, REQUEST_NAME_SIZE);
    if (length == REQUEST_NAME_SIZE)
        return false;
    memcpy(copy, name, length);
    return true;
}

} // namespace

named_request::named_request(call_code call, const char *bridge, const char *ifname, const char *other_name) {
    request.call = call;
    valid = copy_name(request.bridge, bridge) && copy_name(request.ifname, ifname) &&
            copy_name(request.other_name, other_name) && request.bridge[0] != '\0';
}

call_outcome bridged_exchange(const deadline &until, call_request request, int passed, call_answer *answer) {
    request.sequence = ++state.sequence;
    if (!send_request(until, request, passed))
        return call_outcome::UNSENT;
    if (!receive_reply(until, request, answer))
        return call_outcome::LOST;
    state.impatient = false;
    return call_outcome::ANSWERED;
}

bool bridged_call(call_request request, int passed, call_answer *answer) {
    const deadline until = call_deadline();
    constexpr int ATTEMPTS = 2; // a kolt-bridged that was started anew meanwhile is no failure
    for (int i = 0; i < ATTEMPTS; i++) {
        if (!ensure_connected(until))
            return false;
        const call_outcome outcome = bridged_exchange(until, request, passed, answer);
        if (outcome == call_outcome::ANSWERED)
            return true;
        hang_up();
        if (outcome == call_outcome::LOST)
            return false;
    }
    return false;
}

int bridged_result(const named_request &request) {
    call_answer answer;
    return request.valid && bridged_call(request.request, -1, &answer) && answer.reply.result == 0 ? 0 : -1;
}

void bridged_refresh() {
    if (is_connected()) {
        // Nobody speaks unasked: what can be received is the end, or rubbish.
        char byte;
        if (recv(state.fd, &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN)
            return;
        hang_up();
    }
    (void)ensure_connected(call_deadline()); // the call that follows finds out again
}

unique_fd bridged_connect(connection_kind kind) {
    return connect_as(kind, call_deadline());
}
