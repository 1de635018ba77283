// The loop itself and its descriptor watchers, on epoll.

#include "uloop_internal.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

bool uloop_cancelled;

namespace {

int poll_fd = -1;
int wake_fd = -1; // written by the signal handlers, so that a signal just before epoll_wait is not slept through

int control(int operation, uloop_fd *sock, unsigned flags) {
    epoll_event event = {};
    event.data.ptr = sock;
    event.events = EPOLLRDHUP;
    if (flags & ULOOP_READ)
        event.events |= EPOLLIN;
    if (flags & ULOOP_WRITE)
        event.events |= EPOLLOUT;
    if (flags & ULOOP_EDGE_TRIGGER)
        event.events |= EPOLLET;
    return epoll_ctl(poll_fd, operation, sock->fd, &event);
}

bool set_non_blocking(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

// Hands one event to its watcher. One that has failed or hung up is taken out first, so that the loop does not spin on
// what nobody clears; its callback may add it again.
void deliver(uloop_fd *sock, uint32_t events) {
    if (events & (EPOLLERR | EPOLLHUP)) {
        (void)uloop_fd_delete(sock); // the call below is all that is left to do for it
        sock->error = true;
    }
    if (events & EPOLLRDHUP)
        sock->eof = true;
    unsigned ready = 0;
    if (events & EPOLLIN)
        ready |= ULOOP_READ;
    if (events & EPOLLOUT)
        ready |= ULOOP_WRITE;
    if (sock->cb)
        sock->cb(sock, ready);
}

// Waits for one event and delivers it. One at a time, because a callback may remove or release any other watcher.
void wait_for_event(int timeout) {
    epoll_event event = {};
    if (epoll_wait(poll_fd, &event, 1, timeout) <= 0)
        return;
    auto *sock = static_cast<uloop_fd *>(event.data.ptr);
    if (sock) {
        deliver(sock, event.events);
        return;
    }
    uint64_t count = 0;
    (void)!read(wake_fd, &count, sizeof(count)); // only the waking matters
}

bool open_wake_fd() {
    wake_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    epoll_event event = {};
    event.events = EPOLLIN;
    return wake_fd >= 0 && epoll_ctl(poll_fd, EPOLL_CTL_ADD, wake_fd, &event) == 0;
}

void close_loop() {
    if (wake_fd >= 0)
        close(wake_fd);
    if (poll_fd >= 0)
        close(poll_fd);
    wake_fd = -1;
    poll_fd = -1;
}

} // namespace

int uloop_init(void) {
    if (poll_fd >= 0)
        return 0;
    poll_fd = epoll_create1(EPOLL_CLOEXEC);
    if (poll_fd < 0 || !open_wake_fd()) {
        close_loop();
        return -1;
    }
    uloop_install_signals(wake_fd);
    return 0;
}

int uloop_run_timeout(int timeout) {
    __atomic_store_n(&uloop_cancelled, false, __ATOMIC_RELAXED);
    (void)uloop_take_signal();
    if (poll_fd < 0)
        return 0;
    do {
        uloop_process_timeouts();
        uloop_reap_children();
        if (__atomic_load_n(&uloop_cancelled, __ATOMIC_RELAXED))
            break;
        const int next = uloop_next_timeout();
        wait_for_event(timeout < 0 || (next >= 0 && next < timeout) ? next : timeout);
    } while (!__atomic_load_n(&uloop_cancelled, __ATOMIC_RELAXED) && timeout < 0);
    return uloop_take_signal();
}

void uloop_end(void) {
    __atomic_store_n(&uloop_cancelled, true, __ATOMIC_RELAXED);
}

void uloop_done(void) {
    if (poll_fd < 0)
        return;
    uloop_restore_signals();
    uloop_clear_timeouts();
    close_loop();
}

int uloop_fd_add(struct uloop_fd *sock, unsigned int flags) {
    if (!(flags & (ULOOP_READ | ULOOP_WRITE)))
        return uloop_fd_delete(sock);
    if (!sock->registered && !(flags & ULOOP_BLOCKING) && !set_non_blocking(sock->fd))
        return -1;
    const int operation = sock->registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    if (control(operation, sock, flags) != 0)
        return -1;
    sock->flags = static_cast<uint8_t>(flags);
    sock->registered = true;
    sock->eof = false;
    sock->error = false;
    return 0;
}

int uloop_fd_delete(struct uloop_fd *sock) {
    if (!sock->registered)
        return 0;
    sock->registered = false;
    sock->flags = 0;
    return epoll_ctl(poll_fd, EPOLL_CTL_DEL, sock->fd, nullptr);
}
