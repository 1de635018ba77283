#include "clock.h"

#include "script.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

constexpr char ADDRESS[] = "\0kolt-node.clock";
constexpr uint64_t FOREVER_S = 5000000000;
constexpr int HIGH_DESCRIPTOR = 512; // out of the way of those that the process opens itself

enum class time_source {
    UNDECIDED,
    REAL,
    SIMULATED,
    CONTINUED // real time again, shifted so that it follows on the simulated time
};

time_source source;
int connection = -1;
pid_t owner;           // the process that the connection belongs to
uint64_t simulated_ns; // the last moment of simulated time
uint64_t shift_ns;     // what real time lacks to follow on it, modulo 2^64
uint64_t last_number;
wait_message last_said;

template <typename function> void find_next(function **call, const char *name) {
    *call = reinterpret_cast<function *>(dlsym(RTLD_NEXT, name));
}

uint64_t real_ns() {
    timespec now{};
    (void)libc().clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail with this clock
    return to_ns(now);
}

int connect_simulator() {
    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, ADDRESS, sizeof(ADDRESS) - 1);
    const size_t size = offsetof(sockaddr_un, sun_path) + sizeof(ADDRESS) - 1;
    if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr *>(&address), static_cast<socklen_t>(size)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

int move_away(int fd) {
    for (int lowest = HIGH_DESCRIPTOR; lowest > fd; lowest /= 2) {
        const int moved = fcntl(fd, F_DUPFD_CLOEXEC, lowest);
        if (moved >= 0) {
            close(fd);
            return moved;
        }
    }
    return fd;
}

void end_simulation() {
    shift_ns = simulated_ns - real_ns();
    source = time_source::CONTINUED;
    close(connection);
    connection = -1;
}

// Takes one grant; false without one.
bool take_grant(int flags) {
    grant_message grant;
    const ssize_t size = recv(connection, &grant, sizeof(grant), flags);
    if (size < 0 && (errno == EINTR || errno == EAGAIN)) {
        return false;
    }
    if (size != sizeof(grant)) {
        end_simulation();
        return false;
    }
    simulated_ns = grant.now > simulated_ns ? grant.now : simulated_ns;
    last_number = grant.number;
    return true;
}

void start_simulation(int fd) {
    connection = move_away(fd);
    owner = getpid();
    source = time_source::SIMULATED;
    while (source == time_source::SIMULATED && !take_grant(0)) {
    }
    if (source != time_source::SIMULATED) {
        source = time_source::REAL; // it closed without a word: there was no simulated time
    }
}

void decide() {
    const int saved = errno;
    source = time_source::REAL; // also for whatever is called from here
    const int fd = access(NODE_DIR "/clock", F_OK) == 0 ? connect_simulator() : -1;
    if (fd >= 0) {
        start_simulation(fd);
    }
    errno = saved;
}

// False when there is no room for the message now. Other failures are found by reading.
bool say(uint64_t deadline) {
    const wait_message message{simulated_ns, deadline, last_number};
    if (memcmp(&message, &last_said, sizeof(message)) == 0) {
        return true;
    }
    if (send(connection, &message, sizeof(message), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
        return errno != EAGAIN;
    }
    last_said = message;
    return true;
}

bool say_and_poll(int fd, uint64_t deadline, const sigset_t *mask) {
    const bool said = say(deadline);
    pollfd watched[] = {{connection, POLLIN, 0}, {fd, POLLIN, 0}};
    if (!said) {
        watched[0].events |= POLLOUT;
    }
    if (ppoll(watched, 2, nullptr, mask) < 0) {
        return false;
    }
    if (watched[0].revents != 0) {
        while (source == time_source::SIMULATED && take_grant(MSG_DONTWAIT)) {
        }
    }
    return true;
}

} // namespace

const libc_calls &libc() {
    static libc_calls calls;
    if (calls.clock_gettime == nullptr) {
        find_next(&calls.gettimeofday, "gettimeofday");
        find_next(&calls.time, "time");
        find_next(&calls.nanosleep, "nanosleep");
        find_next(&calls.clock_nanosleep, "clock_nanosleep");
        find_next(&calls.sleep, "sleep");
        find_next(&calls.usleep, "usleep");
        find_next(&calls.epoll_wait, "epoll_wait");
        find_next(&calls.epoll_pwait, "epoll_pwait");
        find_next(&calls.clock_gettime, "clock_gettime");
    }
    return calls;
}

uint64_t to_ns(const timespec &time) {
    const auto seconds = static_cast<uint64_t>(time.tv_sec);
    return seconds < FOREVER_S ? seconds * NS_PER_S + static_cast<uint64_t>(time.tv_nsec) : FOREVER_S * NS_PER_S;
}

timespec to_timespec(uint64_t ns) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(ns / NS_PER_S);
    time.tv_nsec = static_cast<long>(ns % NS_PER_S);
    return time;
}

uint64_t now_ns() {
    return source == time_source::SIMULATED ? simulated_ns : real_ns() + shift_ns;
}

uint64_t remaining_ns(uint64_t deadline) {
    const uint64_t now = now_ns();
    return deadline > now ? deadline - now : 0;
}

bool time_is_ours() {
    if (source == time_source::UNDECIDED) {
        decide();
    }
    if (source == time_source::SIMULATED && getpid() != owner) {
        const int saved = errno;
        end_simulation();
        errno = saved;
    }
    return source != time_source::REAL;
}

bool time_is_granted() {
    return source == time_source::SIMULATED;
}

// Signals are let in by ppoll alone: one that is sent when the simulator knows of the wait is never lost.
bool await_grant(int fd, uint64_t deadline, const sigset_t *mask) {
    const int saved = errno;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    (void)sigprocmask(SIG_SETMASK, &all, &before); // cannot fail with these arguments
    const bool undisturbed = say_and_poll(fd, deadline, mask != nullptr ? mask : &before);
    const int error = errno;
    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
    errno = undisturbed ? saved : error;
    return undisturbed;
}
