// The calls other than allocations.
#include "faults.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

control *shared;

namespace {

constexpr char CONTROL[] = "/run/kolt-node/faults";

// The libraries of the simulated node make calls of their own, which are none of the daemon's.
bool is_of_the_node(const void *caller) {
    Dl_info place{};
    return dladdr(caller, &place) != 0 && place.dli_fname != nullptr &&
           (strstr(place.dli_fname, "libduon-bridge") != nullptr || strstr(place.dli_fname, "libeth_encap") != nullptr);
}

bool fails(which call, const void *caller) {
    if (shared == nullptr || is_of_the_node(caller) || !hit(call))
        return false;
    errno = static_cast<int>(shared->rules[call].error);
    return true;
}

// What is left of a size to read: all, less, or nothing with errno.
bool cut(which call, size_t *size, const void *caller) {
    if (shared == nullptr || is_of_the_node(caller) || !hit(call))
        return true;
    const int64_t error = shared->rules[call].error;
    if (error > 0) {
        errno = static_cast<int>(error);
        return false;
    }
    if (*size > static_cast<size_t>(-error))
        *size = static_cast<size_t>(-error);
    return true;
}

template <class Function> Function *next(Function **known, const char *name) {
    if (*known == nullptr)
        *known = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
    return *known;
}

[[gnu::constructor]] void begin() {
    (void)unsetenv("LD_PRELOAD");
    const int fd = open(CONTROL, O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return;
    void *memory = mmap(nullptr, sizeof(control), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (memory != MAP_FAILED)
        shared = static_cast<control *>(memory);
}

} // namespace

// Whether this call is to fail.
bool hit(which call) {
    if (shared == nullptr)
        return false;
    rule &one = shared->rules[call];
    one.calls++;
    if (one.first == 0 || one.calls < one.first || (one.last != 0 && one.calls > one.last))
        return false;
    one.failed++;
    return true;
}

// The simulator's connection, which a sanitized daemon's calls lead through the sanitizer, so that the caller hides it.
static bool is_clock(int fd) {
    int type = 0;
    socklen_t size = sizeof type;
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_SEQPACKET;
}

static int real_fstat(int fd, struct stat *result) {
    static int (*real)(int, struct stat *);
    return next(&real, "fstat")(fd, result);
}

// What wakes the loop is no file: a loop that could not take it back would only turn.
static bool is_counter(int fd) {
    struct stat what {};
    return real_fstat(fd, &what) == 0 && (what.st_mode & S_IFMT) == 0;
}

// A datagram is taken whole or is lost, so that only what comes in a stream is cut.
static bool is_whole(int fd) {
    int type = 0;
    socklen_t size = sizeof type;
    return shared != nullptr && shared->rules[RECV].error < 0 &&
           getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type != SOCK_STREAM;
}

INTERPOSED int socket(int domain, int type, int protocol) {
    static int (*real)(int, int, int);
    return fails(SOCKET, CALLER) ? -1 : next(&real, "socket")(domain, type, protocol);
}

INTERPOSED int bind(int fd, const sockaddr *address, socklen_t size) {
    static int (*real)(int, const sockaddr *, socklen_t);
    return fails(BIND, CALLER) ? -1 : next(&real, "bind")(fd, address, size);
}

INTERPOSED int connect(int fd, const sockaddr *address, socklen_t size) {
    static int (*real)(int, const sockaddr *, socklen_t);
    return fails(CONNECT, CALLER) ? -1 : next(&real, "connect")(fd, address, size);
}

INTERPOSED int poll(pollfd *watched, nfds_t count, int timeout) {
    static int (*real)(pollfd *, nfds_t, int);
    return fails(POLL, CALLER) ? -1 : next(&real, "poll")(watched, count, timeout);
}

INTERPOSED ssize_t recv(int fd, void *buffer, size_t size, int flags) {
    static ssize_t (*real)(int, void *, size_t, int);
    return is_clock(fd) || is_whole(fd) || cut(RECV, &size, CALLER) ? next(&real, "recv")(fd, buffer, size, flags) : -1;
}

INTERPOSED ssize_t read(int fd, void *buffer, size_t size) {
    static ssize_t (*real)(int, void *, size_t);
    return is_counter(fd) || cut(READ, &size, CALLER) ? next(&real, "read")(fd, buffer, size) : -1;
}

INTERPOSED int open(const char *path, int flags, ...) {
    static int (*real)(const char *, int, ...);
    va_list more;
    va_start(more, flags);
    const int mode = (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(more, int) : 0;
    va_end(more);
    return fails(OPEN, CALLER) ? -1 : next(&real, "open")(path, flags, mode);
}

INTERPOSED FILE *fopen(const char *path, const char *mode) {
    static FILE *(*real)(const char *, const char *);
    return fails(FOPEN, CALLER) ? nullptr : next(&real, "fopen")(path, mode);
}

INTERPOSED FILE *popen(const char *command, const char *mode) {
    static FILE *(*real)(const char *, const char *);
    return fails(POPEN, CALLER) ? nullptr : next(&real, "popen")(command, mode);
}

INTERPOSED int fcntl(int fd, int command, ...) {
    static int (*real)(int, int, ...);
    va_list more;
    va_start(more, command);
    void *argument = va_arg(more, void *);
    va_end(more);
    return fails(FCNTL, CALLER) ? -1 : next(&real, "fcntl")(fd, command, argument);
}

INTERPOSED int ioctl(int fd, unsigned long request, ...) {
    static int (*real)(int, unsigned long, ...);
    va_list more;
    va_start(more, request);
    void *argument = va_arg(more, void *);
    va_end(more);
    return fails(IOCTL, CALLER) ? -1 : next(&real, "ioctl")(fd, request, argument);
}

INTERPOSED int setsockopt(int fd, int level, int option, const void *value, socklen_t size) {
    static int (*real)(int, int, int, const void *, socklen_t);
    return fails(SETSOCKOPT, CALLER) ? -1 : next(&real, "setsockopt")(fd, level, option, value, size);
}

INTERPOSED ssize_t sendto(int fd, const void *data, size_t size, int flags, const sockaddr *to, socklen_t length) {
    static ssize_t (*real)(int, const void *, size_t, int, const sockaddr *, socklen_t);
    return fails(SENDTO, CALLER) ? -1 : next(&real, "sendto")(fd, data, size, flags, to, length);
}

INTERPOSED int epoll_ctl(int fd, int operation, int watched, epoll_event *event) {
    static int (*real)(int, int, int, epoll_event *);
    return fails(EPOLL_CTL, CALLER) ? -1 : next(&real, "epoll_ctl")(fd, operation, watched, event);
}

INTERPOSED int epoll_create1(int flags) {
    static int (*real)(int);
    return fails(EPOLL_CREATE, CALLER) ? -1 : next(&real, "epoll_create1")(flags);
}

INTERPOSED int eventfd(unsigned value, int flags) {
    static int (*real)(unsigned, int);
    return fails(EVENTFD, CALLER) ? -1 : next(&real, "eventfd")(value, flags);
}

INTERPOSED int timer_create(clockid_t clock, sigevent *event, timer_t *timer) {
    static int (*real)(clockid_t, sigevent *, timer_t *);
    return fails(TIMER_CREATE, CALLER) ? -1 : next(&real, "timer_create")(clock, event, timer);
}

INTERPOSED ssize_t sendmsg(int fd, const msghdr *message, int flags) {
    static ssize_t (*real)(int, const msghdr *, int);
    return is_clock(fd) || !fails(SENDMSG, CALLER) ? next(&real, "sendmsg")(fd, message, flags) : -1;
}

INTERPOSED int fstat(int fd, struct stat *result) {
    return fails(FSTAT, CALLER) ? -1 : real_fstat(fd, result);
}

INTERPOSED int flock(int fd, int operation) {
    static int (*real)(int, int);
    return fails(FLOCK, CALLER) ? -1 : next(&real, "flock")(fd, operation);
}

INTERPOSED unsigned if_nametoindex(const char *name) {
    static unsigned (*real)(const char *);
    return fails(NAME_TO_INDEX, CALLER) ? 0 : next(&real, "if_nametoindex")(name);
}

INTERPOSED char *if_indextoname(unsigned index, char *name) {
    static char *(*real)(unsigned, char *);
    return fails(INDEX_TO_NAME, CALLER) ? nullptr : next(&real, "if_indextoname")(index, name);
}

INTERPOSED int gettimeofday(timeval *now, void *zone) {
    static int (*real)(timeval *, void *);
    const int result = next(&real, "gettimeofday")(now, zone);
    if (hit(CLOCK))
        now->tv_sec += static_cast<time_t>(shared->rules[CLOCK].error);
    return result;
}
