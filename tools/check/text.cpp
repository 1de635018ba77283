#include "check/text.h"

#include "core/handle.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

bool read_all(int fd, std::string *text, std::string *error) {
    char buffer[65536];
    while (text->size() <= CHECK_LARGEST_FILE) {
        const ssize_t count = read(fd, buffer, sizeof buffer);
        if (count == 0)
            return true;
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            *error = strerror(errno);
            return false;
        }
        text->append(buffer, static_cast<size_t>(count));
    }
    *error = "larger than 64 MiB";
    return false;
}

// What the bits behind a sequence's head must not make: an over-long form, a surrogate, a number past the last.
bool is_allowed(unsigned char head, unsigned char second) {
    switch (head) {
    case 0xe0:
        return second >= 0xa0;
    case 0xed:
        return second < 0xa0;
    case 0xf0:
        return second >= 0x90;
    case 0xf4:
        return second < 0x90;
    default:
        return true;
    }
}

size_t length_of(unsigned char head) {
    if (head < 0x80)
        return 1;
    if (head >= 0xc2 && head < 0xe0)
        return 2;
    if (head >= 0xe0 && head < 0xf0)
        return 3;
    return head >= 0xf0 && head < 0xf5 ? 4 : 0;
}

} // namespace

bool check_read_file(const char *path, std::string *text, std::string *error) {
    if (strcmp(path, "-") == 0)
        return read_all(STDIN_FILENO, text, error);
    const unique_fd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (fd)
        return read_all(fd.get(), text, error);
    *error = strerror(errno);
    return false;
}

size_t check_utf8_length(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const size_t length = text.empty() ? 0 : length_of(byte(0));
    if (length == 0 || length > text.size() || (length > 1 && !is_allowed(byte(0), byte(1))))
        return 0;
    for (size_t i = 1; i < length; i++) {
        if ((byte(i) & 0xc0) != 0x80)
            return 0;
    }
    return length;
}

std::string check_printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const auto byte = static_cast<unsigned char>(text[0]);
        const size_t length = check_utf8_length(text);
        // The C1 controls, U+0080 to U+009F, mean as much to a terminal as the others.
        const bool is_control = byte < 0x20 || byte == 0x7f || (byte == 0xc2 && length == 2 && text[1] < '\xa0');
        if (length > 0 && !is_control) {
            shown.append(text.substr(0, length));
            text.remove_prefix(length);
            continue;
        }
        char escape[5];
        (void)snprintf(escape, sizeof escape, "\\x%02x", byte);
        shown += escape;
        text.remove_prefix(1);
    }
    return shown;
}

std::string check_quoted(std::string_view text) {
    return '"' + check_printable(text) + '"';
}
