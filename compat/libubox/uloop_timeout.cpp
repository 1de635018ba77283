// Timers: one list, ordered by due time.

#include "uloop_internal.h"

#include <climits>
#include <ctime>

namespace {

list_head timeouts = {&timeouts, &timeouts};

constexpr int64_t US_PER_MS = 1000;
constexpr int64_t US_PER_S = 1000000;

int64_t to_us(const timeval &time) {
    return static_cast<int64_t>(time.tv_sec) * US_PER_S + time.tv_usec;
}

int64_t now_us() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail with this clock
    return static_cast<int64_t>(now.tv_sec) * US_PER_S + now.tv_nsec / 1000;
}

uloop_timeout *first_timeout() {
    return list_empty(&timeouts) ? nullptr : list_first_entry(&timeouts, uloop_timeout, list);
}

} // namespace

int uloop_timeout_add(struct uloop_timeout *timeout) {
    if (timeout->pending)
        return -1;
    list_head *before = timeouts.next;
    while (before != &timeouts && to_us(container_of(before, uloop_timeout, list)->time) <= to_us(timeout->time))
        before = before->next;
    list_add_tail(&timeout->list, before);
    timeout->pending = true;
    return 0;
}

int uloop_timeout_set(struct uloop_timeout *timeout, int msecs) {
    (void)uloop_timeout_cancel(timeout); // an idle one has nothing to cancel
    const int64_t due = now_us() + (msecs > 0 ? msecs * US_PER_MS : 0);
    timeout->time.tv_sec = static_cast<time_t>(due / US_PER_S);
    timeout->time.tv_usec = static_cast<suseconds_t>(due % US_PER_S);
    return uloop_timeout_add(timeout);
}

int uloop_timeout_cancel(struct uloop_timeout *timeout) {
    if (!timeout->pending)
        return -1;
    list_del(&timeout->list);
    timeout->pending = false;
    return 0;
}

void uloop_process_timeouts() {
    const int64_t now = now_us(); // taken once, so that a timer that re-arms itself with 0 cannot hold the loop here
    for (uloop_timeout *timeout = first_timeout(); timeout && to_us(timeout->time) <= now; timeout = first_timeout()) {
        (void)uloop_timeout_cancel(timeout); // it is pending
        if (timeout->cb)
            timeout->cb(timeout);
        if (__atomic_load_n(&uloop_cancelled, __ATOMIC_RELAXED))
            return;
    }
}

int uloop_next_timeout() {
    const uloop_timeout *timeout = first_timeout();
    if (!timeout)
        return -1;
    const int64_t left = to_us(timeout->time) - now_us();
    if (left <= 0)
        return 0;
    const int64_t rounded = (left + US_PER_MS - 1) / US_PER_MS;
    return rounded > INT_MAX ? INT_MAX : static_cast<int>(rounded);
}

void uloop_clear_timeouts() {
    while (uloop_timeout *timeout = first_timeout())
        (void)uloop_timeout_cancel(timeout); // it is pending
}
