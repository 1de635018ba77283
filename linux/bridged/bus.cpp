// One child a message: it connects, sends and ends.
#include "bridged/bus.h"

#include "bridged/replace_file.h"
#include "core/container_of.h"
#include "core/file.h"
#include "core/log.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr size_t PATH_SIZE = 96;
constexpr int RETRY_MS = 1000;
constexpr unsigned CHILD_SECONDS = 3; // a bus that hangs does not keep a child for longer

// In the order in which the daemon documents them.
constexpr struct {
    const char *name;
    kolt_link_type type;
} ATTRIBUTES[] = {{"LINK_WIFI_2G", KOLT_LINK_2G},
                  {"LINK_WIFI_5G", KOLT_LINK_5G},
                  {"LINK_WIFI_5G_2", KOLT_LINK_5G_2},
                  {"LINK_PLC", KOLT_LINK_PLC},
                  {"LINK_ETH", KOLT_LINK_ETHERNET}};

bool send_links(ubus_context *ctx, const bus_sender *bus) {
    blob_buf message = {};
    (void)blob_buf_init(&message, 0);
    for (const auto &attribute : ATTRIBUTES)
        (void)blobmsg_add_u32(&message, attribute.name, bus->given_links[attribute.type]);
    const int status = ubus_send_event(ctx, "kolt.link_state", message.head);
    blob_buf_free(&message);
    return status == 0;
}

bool send_configure(ubus_context *ctx) {
    blob_buf message = {};
    (void)blob_buf_init(&message, 0);
    // Neither of the modes: the daemon then keeps to the node's role.
    (void)blobmsg_add_string(&message, "mode", "current");
    const int status = ubus_send_event(ctx, "kolt.configure", message.head);
    blob_buf_free(&message);
    return status == 0;
}

// What the parent holds open must not outlive it: a lock that stays taken keeps the next one from starting, and whoever
// waits for an answer would not learn that none comes.
void keep_only(int kept) {
    closelog();
    const unsigned first = STDERR_FILENO + 1;
    const auto own = static_cast<unsigned>(kept);
    if (own > first)
        (void)syscall(SYS_close_range, first, own - 1, 0); // known to every kernel on which this runs
    (void)syscall(SYS_close_range, std::max(first, own + 1), ~0U, 0);
}

[[noreturn]] void child_main(const bus_sender *bus, pid_t parent, int done) {
    keep_only(done);
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent)
        _exit(EXIT_FAILURE);
    (void)signal(SIGTERM, SIG_DFL);
    (void)signal(SIGINT, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    (void)sigprocmask(SIG_SETMASK, &none, nullptr); // the parent may be holding some back
    (void)alarm(CHILD_SECONDS);
    ubus_context *ctx = ubus_connect(nullptr);
    const bool sent = ctx != nullptr && ((bus->given & BUS_CONFIGURE) == 0 || send_configure(ctx)) &&
                      ((bus->given & BUS_LINKS) == 0 || send_links(ctx, bus)) && write(done, "", 1) == 1;
    _exit(sent ? EXIT_SUCCESS : EXIT_FAILURE); // the parent's buffers and handlers are none of the child's business
}

bus_links links_of(const node_report &report) {
    bus_links links{};
    for (kolt_link_type type : KOLT_LINKS)
        links[type] = report.links[type].up ? 1 : 0;
    return links;
}

void kept_path(const char *folder, char *path) {
    (void)snprintf(path, PATH_SIZE, "%s/told", folder);
}

void keep(const bus_sender &bus) {
    char path[PATH_SIZE];
    kept_path(bus.folder, path);
    const bus_links &links = bus.given_links;
    (void)replace_file(path, reinterpret_cast<const char *>(links.data()), links.size()); // it has logged a failure
}

void start(bus_sender *bus);

void retry(uloop_timeout *timer) {
    start(KOLT_CONTAINER_OF(timer, bus_sender, retry));
}

void retry_later(bus_sender *bus) {
    bus->wanted |= bus->given;
    bus->given = 0;
    bus->retry.cb = retry;
    (void)uloop_timeout_set(&bus->retry, RETRY_MS);
}

// The child has closed its end: with a byte before when it has sent everything.
void child_ended(uloop_fd *pipe, unsigned) {
    bus_sender *bus = KOLT_CONTAINER_OF(pipe, bus_sender, child);
    char byte = 0;
    const bool sent = read(pipe->fd, &byte, 1) == 1;
    (void)uloop_fd_delete(pipe);
    (void)close(pipe->fd);
    (void)waitpid(bus->child_pid, nullptr, 0);
    bus->child_pid = 0;
    if (!sent) {
        retry_later(bus);
        return;
    }
    if ((bus->given & BUS_LINKS) != 0)
        keep(*bus);
    bus->given = 0;
    if (bus->wanted != 0)
        start(bus);
}

void watch_child(bus_sender *bus, pid_t pid, int pipe) {
    bus->child_pid = pid;
    bus->child.fd = pipe;
    bus->child.cb = child_ended;
    (void)uloop_fd_add(&bus->child, ULOOP_READ);
}

void start(bus_sender *bus) {
    bus->given = bus->wanted;
    bus->given_links = bus->links;
    bus->wanted = 0;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        KOLT_ERROR("cannot make a pipe: %s", strerror(errno));
        retry_later(bus);
        return;
    }
    const pid_t self = getpid();
    const pid_t pid = fork();
    if (pid == 0)
        child_main(bus, self, ends[1]);
    (void)close(ends[1]);
    if (pid > 0) {
        watch_child(bus, pid, ends[0]);
        return;
    }
    KOLT_ERROR("cannot start a process that tells the bus: %s", strerror(errno));
    (void)close(ends[0]);
    retry_later(bus);
}

} // namespace

void bus_open(bus_sender *bus, const char *folder) {
    bus->folder = folder;
}

void bus_forget(const char *folder) {
    char path[PATH_SIZE];
    kept_path(folder, path);
    (void)unlink(path); // one that is not there needs no removing
}

bool bus_has_told(const bus_sender &bus, const node_report &report) {
    char path[PATH_SIZE];
    kept_path(bus.folder, path);
    const file_ptr file(fopen(path, "re"));
    bus_links told{};
    return file && fread(told.data(), 1, told.size(), file.get()) == told.size() && told == links_of(report);
}

void bus_tell(bus_sender *bus, const node_report &report, uint8_t messages) {
    if (bus->folder == nullptr)
        return;
    bus->links = links_of(report);
    bus->wanted |= messages;
    if (bus->child_pid == 0 && !bus->retry.pending)
        start(bus);
}

void bus_stop(bus_sender *bus) {
    (void)uloop_timeout_cancel(&bus->retry);
    if (bus->child_pid == 0)
        return;
    (void)uloop_fd_delete(&bus->child);
    (void)close(bus->child.fd);
    (void)kill(bus->child_pid, SIGKILL);
    (void)waitpid(bus->child_pid, nullptr, 0);
    bus->child_pid = 0;
}
