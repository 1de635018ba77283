// Signals and children. The handlers only leave marks and wake the loop; all work is done from the loop.

#include "uloop_internal.h"

#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int HANDLED_SIGNALS[] = {SIGINT, SIGTERM, SIGCHLD};

// What was in force before, in the order of HANDLED_SIGNALS.
struct previous_action {
    bool replaced;
    struct sigaction action;
};

previous_action previous[3];

int wake_target = -1;
volatile sig_atomic_t last_signal;
volatile sig_atomic_t child_ended;

void handle_signal(int number) {
    const int saved = errno;
    if (number == SIGCHLD) {
        child_ended = 1;
    } else {
        last_signal = number;
        uloop_end();
    }
    const uint64_t one = 1;
    (void)!write(wake_target, &one, sizeof(one)); // a full counter wakes just as well
    errno = saved;
}

} // namespace

void uloop_install_signals(int wake_fd) {
    wake_target = wake_fd;
    previous_action *saved = previous;
    for (const int number : HANDLED_SIGNALS) {
        struct sigaction action = {};
        action.sa_handler = handle_signal;
        if (number == SIGCHLD)
            action.sa_flags = SA_NOCLDSTOP | SA_RESTART; // a child's end interrupts nobody's reading
        sigemptyset(&action.sa_mask);
        saved->replaced = sigaction(number, &action, &saved->action) == 0;
        saved++;
    }
}

void uloop_restore_signals() {
    previous_action *saved = previous;
    for (const int number : HANDLED_SIGNALS) {
        struct sigaction current = {};
        // A handler that somebody has put on top since then is left alone.
        if (saved->replaced && sigaction(number, nullptr, &current) == 0 && current.sa_handler == handle_signal)
            (void)sigaction(number, &saved->action, nullptr); // cannot fail for a number that could be taken over
        saved->replaced = false;
        saved++;
    }
    wake_target = -1;
}

int uloop_take_signal() {
    const int number = last_signal;
    last_signal = 0;
    return number;
}

void uloop_reap_children() {
    if (!child_ended)
        return;
    child_ended = 0; // before reaping: a child that ends meanwhile marks it again
    pid_t pid;
    do {
        int status = 0;
        pid = waitpid(-1, &status, WNOHANG);
    } while (pid > 0 || (pid < 0 && errno == EINTR));
}
