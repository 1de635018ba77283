/*
 * Preloaded into the unmodified daemon: what it says to syslog is appended to a file of the simulated node, which takes
 * less than a hundredth of the way through the node's log. For floods.
 */
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#define INTERPOSED extern "C" [[gnu::visibility("default")]]

namespace {

int file = -1;

[[gnu::constructor]] void begin() {
    (void)unsetenv("LD_PRELOAD");
    file = open("/run/kolt-node/said", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
}

[[gnu::format(printf, 1, 0)]] void append(const char *format, va_list arguments) {
    char line[1024];
    const int length = vsnprintf(line, sizeof line - 1, format, arguments);
    if (length <= 0)
        return;
    size_t size = static_cast<size_t>(length) < sizeof line - 1 ? static_cast<size_t>(length) : sizeof line - 2;
    line[size++] = '\n';
    (void)!write(file, line, size);
}

} // namespace

// The C library's two entry points, the second one for fortified code.
extern "C" {
[[gnu::format(printf, 2, 3)]] void syslog(int priority, const char *format, ...);
[[gnu::format(printf, 3, 4)]] void __syslog_chk(int priority, int flag, const char *format, ...);
}

INTERPOSED void syslog(int /*priority*/, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    append(format, arguments);
    va_end(arguments);
}

INTERPOSED void __syslog_chk(int /*priority*/, int /*flag*/, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    append(format, arguments);
    va_end(arguments);
}
