// kolt-ubusd: a small broker of the message bus. It carries events between clients, and nothing else.

#include "client.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int BACKLOG = 16;
constexpr mode_t OWNER_ONLY = 0600; // who can connect can send every event: there are no other rules

int usage(const char *program) {
    (void)fprintf(stderr, "Usage: %s [-s SOCKET]\n  -s SOCKET  listen here instead of at %s\n", program,
                  UBUS_UNIX_SOCKET);
    return 1;
}

int fail(const char *what, const char *path) {
    (void)fprintf(stderr, "kolt-ubusd: %s %s: %s\n", what, path, strerror(errno));
    return -1;
}

// Makes the directories that lead to `path`; those that are there are left as they are.
void make_directories(const char *path) {
    char part[PATH_MAX];
    if (strlen(path) >= sizeof(part))
        return;
    memcpy(part, path, strlen(path) + 1);
    for (char *slash = strchr(part + 1, '/'); slash; slash = strchr(slash + 1, '/')) {
        *slash = '\0';
        (void)mkdir(part, 0755); // when it cannot be made, bind() says so
        *slash = '/';
    }
}

// Removes a socket that a broker before this one has left behind. False when a broker answers at it.
bool clear_place(const sockaddr_un &address) {
    struct stat info = {};
    if (lstat(address.sun_path, &info) != 0 || !S_ISSOCK(info.st_mode))
        return true; // nothing there, or something for bind() to complain about
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return true;
    const bool answered = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    const bool dead = !answered && errno == ECONNREFUSED;
    close(fd);
    if (dead)
        (void)unlink(address.sun_path); // when it cannot be removed, bind() says so
    return dead;
}

// A non-blocking listening socket, or -1 after a message.
int open_listener(const char *path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path[0] == '\0' || strlen(path) >= sizeof(address.sun_path)) {
        errno = path[0] == '\0' ? EINVAL : ENAMETOOLONG;
        return fail("cannot listen at", path);
    }
    memcpy(address.sun_path, path, strlen(path));
    make_directories(path);
    if (!clear_place(address)) {
        errno = EADDRINUSE;
        return fail("cannot listen at", path);
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd >= 0 && fchmod(fd, OWNER_ONLY) == 0 &&
        bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0 && listen(fd, BACKLOG) == 0)
        return fd;
    fail("cannot listen at", path);
    if (fd >= 0)
        close(fd);
    return -1;
}

void set_stop_signals(int how) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    (void)sigprocmask(how, &signals, nullptr); // fails for no valid `how`
}

void allow_stop_signals(uloop_timeout *) {
    set_stop_signals(SIG_UNBLOCK);
}

// Signals wait until the loop runs: its start forgets the ones before it, and the socket would outlive the broker.
int serve(const char *path) {
    set_stop_signals(SIG_BLOCK);
    uloop_timeout running = {{}, false, allow_stop_signals, {}};
    uloop_fd listener = {};
    listener.cb = client_accept;
    listener.fd = open_listener(path);
    if (listener.fd < 0)
        return 1;
    int result = 1;
    if (uloop_init() == 0 && uloop_fd_add(&listener, ULOOP_READ) == 0) {
        (void)uloop_timeout_set(&running, 0); // cannot fail
        (void)uloop_run();                    // whichever signal ends it, the end is orderly
        result = 0;
    } else {
        fail("cannot watch", path);
    }
    client_release_all();
    (void)unlink(path);
    close(listener.fd);
    uloop_done();
    return result;
}

} // namespace

int main(int argc, char **argv) {
    const char *path = UBUS_UNIX_SOCKET;
    int option;
    while ((option = getopt(argc, argv, "s:")) != -1) {
        if (option != 's')
            return usage(argv[0]);
        path = optarg;
    }
    return optind == argc ? serve(path) : usage(argv[0]);
}
