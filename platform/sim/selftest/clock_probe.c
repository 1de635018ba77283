/*
 * A client of the simulated clock for the node's own tests. Each argument is a step: "clocks" prints what every clock
 * shows in nanoseconds, and CALL=MS waits that long by one of the calls below. The line of a wait says what came back,
 * what errno was then (77 when the call left it alone), what was left of the wait where the call tells, and how long
 * it took by the monotonic clock, both in milliseconds.
 */
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { UNTOUCHED = 77 };

static const long long NS_PER_S = 1000000000, NS_PER_MS = 1000000;

static long long to_ns(struct timespec time) {
    return time.tv_sec * NS_PER_S + time.tv_nsec;
}

static struct timespec to_timespec(long long ns) {
    return (struct timespec){.tv_sec = (time_t)(ns / NS_PER_S), .tv_nsec = (long)(ns % NS_PER_S)};
}

static long long read_clock(clockid_t clock) {
    struct timespec now = {0};
    (void)clock_gettime(clock, &now);
    return to_ns(now);
}

static void ignore(int number) {
    (void)number;
}

static void print_clocks(void) {
    struct timeval day;
    gettimeofday(&day, NULL);
    printf("monotonic %lld\n", read_clock(CLOCK_MONOTONIC));
    printf("monotonic_raw %lld\n", read_clock(CLOCK_MONOTONIC_RAW));
    printf("monotonic_coarse %lld\n", read_clock(CLOCK_MONOTONIC_COARSE));
    printf("boottime %lld\n", read_clock(CLOCK_BOOTTIME));
    printf("realtime %lld\n", read_clock(CLOCK_REALTIME));
    printf("realtime_coarse %lld\n", read_clock(CLOCK_REALTIME_COARSE));
    printf("gettimeofday %lld\n", day.tv_sec * NS_PER_S + day.tv_usec * 1000LL);
    printf("time %lld\n", (long long)time(NULL) * NS_PER_S);
    printf("processor %d\n", read_clock(CLOCK_PROCESS_CPUTIME_ID) < 60 * NS_PER_S);
}

static int wait_in(const char *call, long long ms, struct timespec *left) {
    struct timespec span = to_timespec(ms * NS_PER_MS);
    struct timespec by_monotonic = to_timespec(read_clock(CLOCK_MONOTONIC) + ms * NS_PER_MS);
    struct timespec by_calendar = to_timespec(read_clock(CLOCK_REALTIME) + ms * NS_PER_MS);
    struct epoll_event event;
    sigset_t none;
    sigemptyset(&none);
    errno = UNTOUCHED;
    if (strcmp(call, "nanosleep") == 0) {
        return nanosleep(&span, left);
    }
    if (strcmp(call, "relative") == 0) {
        return clock_nanosleep(CLOCK_MONOTONIC, 0, &span, left);
    }
    if (strcmp(call, "monotonic") == 0) {
        return clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &by_monotonic, NULL);
    }
    if (strcmp(call, "calendar") == 0) {
        return clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &by_calendar, NULL);
    }
    if (strcmp(call, "sleep") == 0) {
        return (int)sleep((unsigned)(ms / 1000));
    }
    if (strcmp(call, "usleep") == 0) {
        return usleep((useconds_t)(ms * 1000));
    }
    int loop = epoll_create1(EPOLL_CLOEXEC);
    errno = UNTOUCHED;
    int ready = strcmp(call, "epoll_pwait") == 0 ? epoll_pwait(loop, &event, 1, (int)ms, &none)
                                                 : epoll_wait(loop, &event, 1, (int)ms);
    int error = errno;
    close(loop);
    errno = error;
    return ready;
}

static void print_wait(const char *call, long long ms) {
    struct timespec left = {0};
    long long begin = read_clock(CLOCK_MONOTONIC);
    printf("%s begins\n", call);
    int result = wait_in(call, ms, &left);
    int error = errno;
    long long took = read_clock(CLOCK_MONOTONIC) - begin;
    printf("%s result %d errno %d left %lld took %lld\n", call, result, error, to_ns(left) / NS_PER_MS,
           took / NS_PER_MS);
}

/* A child that waits by itself, while its parent waits for it outside of all clocks. */
static void print_child(long long ms) {
    pid_t pid = fork();
    if (pid == 0) {
        print_wait("nanosleep", ms);
        _exit(0);
    }
    int status = -1;
    (void)waitpid(pid, &status, 0);
    printf("child status %d\n", status);
}

int main(int argc, char **argv) {
    struct sigaction action = {.sa_handler = ignore};
    sigaction(SIGUSR1, &action, NULL);
    setvbuf(stdout, NULL, _IOLBF, 0);
    for (int i = 1; i < argc; i++) {
        char *value = strchr(argv[i], '=');
        if (value == NULL) {
            print_clocks();
            continue;
        }
        *value = '\0';
        long long ms = strtoll(value + 1, NULL, 10);
        if (strcmp(argv[i], "child") == 0) {
            print_child(ms);
        } else {
            print_wait(argv[i], ms);
        }
    }
    return 0;
}
