// A file may change while it is read, so what counts is the descriptor, and what comes out of it.
#include "core/json_file.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

constexpr size_t FIRST_CAPACITY = 4096;
constexpr size_t PARSER_LIMIT = INT_MAX - 1; // bytes

using text_ptr = kolt_handle<char, free>;
using tokener_ptr = kolt_handle<json_tokener, json_tokener_free>;

struct whole_text {
    text_ptr bytes;
    size_t size = 0;
};

// Makes room for `capacity` bytes; false without memory, and the text is as it was.
bool make_room(whole_text *text, size_t capacity) {
    void *bytes = realloc(text->bytes.get(), capacity);
    if (bytes == nullptr)
        return false;
    (void)text->bytes.release(); // realloc has taken it
    text->bytes.reset(static_cast<char *>(bytes));
    return true;
}

bool is_like_a_state_file(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_size <= static_cast<off_t>(KOLT_STATE_FILE_LIMIT);
}

// Reads a file to its end, which must come within `limit` bytes; without bytes when it does not, when reading fails, or
// without memory.
whole_text read_text(int fd, size_t limit) {
    whole_text text;
    // One byte more than the limit tells a text that ends there from one that goes on.
    for (size_t capacity = FIRST_CAPACITY; text.size <= limit; capacity *= 2) {
        capacity = std::min(capacity, limit + 1);
        if (!make_room(&text, capacity))
            break;
        const ssize_t more = kolt_read_up_to(fd, text.bytes.get() + text.size, capacity - text.size);
        if (more < 0)
            break;
        text.size += static_cast<size_t>(more);
        if (text.size < capacity)
            return text;
    }
    return {};
}

json_ptr parse(const whole_text &text) {
    const tokener_ptr tokener(text.bytes ? json_tokener_new() : nullptr);
    if (!tokener)
        return nullptr;
    return json_ptr(json_tokener_parse_ex(tokener.get(), text.bytes.get(), static_cast<int>(text.size)));
}

bool are_alike(json_object *one, json_object *other) {
    const char *first = json_object_to_json_string(one);
    const char *second = json_object_to_json_string(other);
    return first != nullptr && second != nullptr && strcmp(first, second) == 0;
}

} // namespace

unique_fd kolt_open_state_file(const char *path) {
    unique_fd fd(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (fd && !is_like_a_state_file(fd.get())) {
        fd.reset();
        errno = EINVAL;
    }
    return fd;
}

ssize_t kolt_read_up_to(int fd, char *bytes, size_t size) {
    size_t have = 0;
    while (have < size) {
        const ssize_t got = read(fd, bytes + have, size - have);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        have += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(have);
}

json_ptr kolt_read_state_file(const char *path) {
    const unique_fd fd = kolt_open_state_file(path);
    return fd ? parse(read_text(fd.get(), KOLT_STATE_FILE_LIMIT)) : nullptr;
}

json_ptr kolt_read_configuration(const char *path) {
    const unique_fd fd(open(path, O_RDONLY | O_CLOEXEC));
    const whole_text text = fd ? read_text(fd.get(), PARSER_LIMIT) : whole_text{};
    // The parser says nothing of a member that it drops for lack of memory, so two runs have to come to the same.
    json_ptr file = parse(text);
    const json_ptr again = file ? parse(text) : nullptr;
    return again && are_alike(file.get(), again.get()) ? std::move(file) : nullptr;
}
