#include "journal.h"

#include "script.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/time_types.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr char JOURNAL[] = NODE_DIR "/journal";
constexpr char DIGITS[] = "0123456789abcdef";
constexpr size_t LONGEST_TEXT = 64; // shows a name that ran past its field without following it forever

// The real time, also where clock_calls.cpp makes another: asked of the kernel, since a call by name leads there.
long long monotonic_ns() {
    __kernel_old_timespec now{};
    (void)syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now); // cannot fail with this clock
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

} // namespace

journal_line::journal_line(const char *function) {
    raw("{\"time\":");
    decimal(monotonic_ns());
    raw(",\"pid\":");
    decimal(getpid());
    raw(",\"call\":\"");
    raw(function);
    raw("\",\"args\":{");
}

journal_line &journal_line::text(const char *name, const char *value) {
    if (value == nullptr) {
        return null(name);
    }
    key(name);
    quoted(value);
    return *this;
}

journal_line &journal_line::number(const char *name, long long value) {
    key(name);
    decimal(value);
    return *this;
}

journal_line &journal_line::mac(const char *name, const uint8_t *value) {
    if (value == nullptr) {
        return null(name);
    }
    key(name);
    character('"');
    for (int i = 0; i < 6; i++) {
        if (i > 0) {
            character(':');
        }
        hex(value[i]);
    }
    character('"');
    return *this;
}

journal_line &journal_line::bytes(const char *name, const void *data, size_t size) {
    const uint8_t *byte = static_cast<const uint8_t *>(data);
    key(name);
    character('"');
    for (size_t i = 0; i < size && used_ + 2 < limit_; i++) {
        hex(byte[i]);
    }
    character('"');
    return *this;
}

journal_line &journal_line::null(const char *name) {
    key(name);
    raw("null");
    return *this;
}

int journal_line::result(int value) {
    limit_ = CAPACITY;
    raw("},\"result\":");
    decimal(value);
    raw("}\n");
    write_line();
    return value;
}

void journal_line::no_result() {
    limit_ = CAPACITY;
    raw("},\"result\":null}\n");
    write_line();
}

void journal_line::key(const char *name) {
    if (!first_) {
        character(',');
    }
    first_ = false;
    character('"');
    raw(name);
    raw("\":");
}

void journal_line::character(char c) {
    if (used_ < limit_) {
        line_[used_++] = c;
    }
}

void journal_line::raw(const char *s) {
    while (*s != '\0') {
        character(*s++);
    }
}

void journal_line::decimal(long long value) {
    char digits[24];
    (void)snprintf(digits, sizeof(digits), "%lld", value);
    raw(digits);
}

void journal_line::hex(uint8_t byte) {
    character(DIGITS[byte >> 4]);
    character(DIGITS[byte & 15]);
}

// Bytes outside printable ASCII become \u00xx: names are bytes, and the line has to stay valid JSON.
void journal_line::quoted(const char *s) {
    size_t length = strnlen(s, LONGEST_TEXT);
    character('"');
    for (size_t i = 0; i < length; i++) {
        uint8_t c = static_cast<uint8_t>(s[i]);
        if (c == '"' || c == '\\') {
            character('\\');
            character(s[i]);
        } else if (c < 0x20 || c > 0x7e) {
            raw("\\u00");
            hex(c);
        } else {
            character(s[i]);
        }
    }
    character('"');
}

// Opened for each line, so that the process under test owns no descriptor that it did not open itself.
void journal_line::write_line() {
    int saved = errno;
    int fd = open(JOURNAL, O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd >= 0) {
        ssize_t written = write(fd, line_, used_);
        (void)written; // a full journal must not disturb the daemon
        close(fd);
    }
    errno = saved;
}
