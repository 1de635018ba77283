/*
 * The calls that tell the time or wait for it, which stand before libc's in symbol lookup. poll and select are not
 * among them: the daemon waits in them for answers that come at once, and is not idle meanwhile.
 */
#include "clock.h"

#include <cerrno>
#include <climits>

#define INTERPOSED extern "C" [[gnu::visibility("default")]]

namespace {

constexpr uint64_t NS_PER_MS = 1000000;
constexpr uint64_t CALENDAR = 1700000000 * NS_PER_S; // what the calendar shows at the origin of the monotonic clock

int remaining_ms(uint64_t deadline) {
    if (deadline == NEVER) {
        return -1;
    }
    const uint64_t left = (remaining_ns(deadline) + NS_PER_MS - 1) / NS_PER_MS;
    return left < INT_MAX ? static_cast<int>(left) : INT_MAX;
}

int wait_for_events(int fd, epoll_event *events, int capacity, int timeout, const sigset_t *mask) {
    uint64_t deadline = NEVER;
    if (timeout >= 0) {
        deadline = now_ns() + static_cast<uint64_t>(timeout) * NS_PER_MS;
    }
    while (time_is_granted()) {
        const int ready = libc().epoll_pwait(fd, events, capacity, 0, mask);
        if (ready != 0 || now_ns() >= deadline) {
            return ready;
        }
        if (!await_grant(fd, deadline, mask)) {
            return -1;
        }
    }
    return libc().epoll_pwait(fd, events, capacity, remaining_ms(deadline), mask);
}

// The error that cut the sleep short, or 0.
int sleep_until(uint64_t deadline) {
    const int saved = errno;
    int error = 0;
    while (error == 0 && time_is_granted() && now_ns() < deadline) {
        error = await_grant(-1, deadline, nullptr) ? 0 : errno;
    }
    errno = saved;
    if (error == 0 && remaining_ns(deadline) > 0) {
        const timespec left = to_timespec(remaining_ns(deadline));
        error = libc().clock_nanosleep(CLOCK_MONOTONIC, 0, &left, nullptr);
    }
    return error;
}

int sleep_for(const timespec &request, timespec *remaining) {
    const uint64_t deadline = now_ns() + to_ns(request);
    const int error = sleep_until(deadline);
    if (error != 0 && remaining != nullptr) {
        *remaining = to_timespec(remaining_ns(deadline));
    }
    return error;
}

// What libc would refuse is left to it.
bool is_valid(const timespec *request) {
    return request != nullptr && request->tv_sec >= 0 && request->tv_nsec >= 0 &&
           static_cast<uint64_t>(request->tv_nsec) < NS_PER_S;
}

// What a clock shows at the origin of the monotonic clock; false for those that measure something else.
bool find_origin(clockid_t clock, uint64_t *origin) {
    switch (clock) {
    case CLOCK_MONOTONIC:
    case CLOCK_MONOTONIC_COARSE:
    case CLOCK_MONOTONIC_RAW:
    case CLOCK_BOOTTIME:
        *origin = 0;
        return true;
    case CLOCK_REALTIME:
    case CLOCK_REALTIME_COARSE:
        *origin = CALENDAR;
        return true;
    default:
        return false;
    }
}

} // namespace

INTERPOSED int clock_gettime(clockid_t clock, timespec *now) noexcept {
    uint64_t origin = 0;
    if (!time_is_ours() || !find_origin(clock, &origin)) {
        return libc().clock_gettime(clock, now);
    }
    *now = to_timespec(origin + now_ns());
    return 0;
}

INTERPOSED int gettimeofday(timeval *now, void *zone) noexcept {
    if (!time_is_ours()) {
        return libc().gettimeofday(now, zone);
    }
    if (zone != nullptr) {
        *static_cast<struct timezone *>(zone) = {};
    }
    const timespec time = to_timespec(CALENDAR + now_ns());
    now->tv_sec = time.tv_sec;
    now->tv_usec = static_cast<suseconds_t>(time.tv_nsec / 1000);
    return 0;
}

INTERPOSED time_t time(time_t *now) noexcept {
    if (!time_is_ours()) {
        return libc().time(now);
    }
    const time_t seconds = to_timespec(CALENDAR + now_ns()).tv_sec;
    if (now != nullptr) {
        *now = seconds;
    }
    return seconds;
}

INTERPOSED int nanosleep(const timespec *request, timespec *remaining) {
    if (!time_is_ours() || !is_valid(request)) {
        return libc().nanosleep(request, remaining);
    }
    const int error = sleep_for(*request, remaining);
    if (error != 0) {
        errno = error;
    }
    return error == 0 ? 0 : -1;
}

INTERPOSED int clock_nanosleep(clockid_t clock, int flags, const timespec *request, timespec *remaining) {
    uint64_t origin = 0;
    if (!time_is_ours() || !is_valid(request) || !find_origin(clock, &origin)) {
        return libc().clock_nanosleep(clock, flags, request, remaining);
    }
    if ((flags & TIMER_ABSTIME) == 0) {
        return sleep_for(*request, remaining);
    }
    const uint64_t deadline = to_ns(*request);
    return sleep_until(deadline > origin ? deadline - origin : 0);
}

INTERPOSED unsigned sleep(unsigned seconds) {
    if (!time_is_ours()) {
        return libc().sleep(seconds);
    }
    timespec left{};
    left.tv_sec = static_cast<time_t>(seconds);
    return sleep_for(left, &left) == 0 ? 0 : static_cast<unsigned>(left.tv_sec);
}

INTERPOSED int usleep(useconds_t microseconds) {
    if (!time_is_ours()) {
        return libc().usleep(microseconds);
    }
    const timespec request = to_timespec(uint64_t{microseconds} * 1000);
    return nanosleep(&request, nullptr);
}

INTERPOSED int epoll_wait(int fd, epoll_event *events, int capacity, int timeout) {
    if (!time_is_ours()) {
        return libc().epoll_wait(fd, events, capacity, timeout);
    }
    return wait_for_events(fd, events, capacity, timeout, nullptr);
}

INTERPOSED int epoll_pwait(int fd, epoll_event *events, int capacity, int timeout, const sigset_t *mask) {
    if (!time_is_ours()) {
        return libc().epoll_pwait(fd, events, capacity, timeout, mask);
    }
    return wait_for_events(fd, events, capacity, timeout, mask);
}
