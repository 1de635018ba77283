#include "script.h"

#include "table_message.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t RULE_LINE = 512;

bool is_plain_name(const char *name) {
    if (name == nullptr || name[0] == '\0' || name[0] == '.') {
        return false;
    }
    return strnlen(name, NAME_SIZE) < NAME_SIZE && strchr(name, '/') == nullptr;
}

// The call's number: the position behind the dot just appended, less the length of the rule line.
long long count_call(int fd, size_t line_length) {
    if (write(fd, ".", 1) != 1) {
        return 0;
    }
    return static_cast<long long>(lseek(fd, 0, SEEK_CUR)) - static_cast<long long>(line_length);
}

bool value_for_call(const char *rules, long long call, long long *value) {
    const char *p = rules;
    for (;;) {
        long long number[3];
        for (long long &n : number) {
            char *end = nullptr;
            n = strtoll(p, &end, 10);
            if (end == p) {
                return false;
            }
            p = end;
        }
        if (call >= number[0] && (number[1] == 0 || call <= number[1])) {
            *value = number[2];
            return true;
        }
    }
}

} // namespace

bool node_exists() {
    int saved = errno;
    bool exists = access(NODE_DIR, F_OK) == 0;
    errno = saved;
    return exists;
}

bool bridge_path(char (&path)[PATH_SIZE], const char *bridge, const char *file) {
    if (!is_plain_name(bridge)) {
        return false;
    }
    (void)snprintf(path, sizeof(path), NODE_DIR "/bridges/%s/%s", bridge, file);
    return true;
}

long read_file(const char *path, void *buffer, size_t capacity) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return -1;
    }
    size_t used = 0;
    while (used < capacity) {
        ssize_t n = read(fd, static_cast<char *>(buffer) + used, capacity - used);
        if (n <= 0) {
            break;
        }
        used += static_cast<size_t>(n);
    }
    close(fd);
    return static_cast<long>(used);
}

long file_size(const char *path) {
    struct stat info {};
    if (stat(path, &info) != 0) {
        return -1;
    }
    return static_cast<long>(info.st_size);
}

bool consult_rule(const char *path, long long *value) {
    int fd = open(path, O_RDWR | O_APPEND | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    char line[RULE_LINE + 1];
    ssize_t n = pread(fd, line, RULE_LINE, 0);
    line[n > 0 ? n : 0] = '\0';
    char *end = strchr(line, '\n');
    bool found = false;
    if (end != nullptr) {
        long long call = count_call(fd, static_cast<size_t>(end + 1 - line));
        *end = '\0';
        found = call > 0 && value_for_call(line, call, value);
    }
    close(fd);
    return found;
}

bool scripted_failure(const char *function, const char *bridge, int *result) {
    int saved = errno;
    char path[PATH_SIZE];
    long long value = 0;
    bool fails = false;
    if (is_plain_name(bridge)) {
        (void)snprintf(path, sizeof(path), NODE_DIR "/fail/%s@%s", function, bridge);
        fails = consult_rule(path, &value);
    }
    if (!fails) {
        (void)snprintf(path, sizeof(path), NODE_DIR "/fail/%s", function);
        fails = consult_rule(path, &value);
    }
    errno = saved;
    if (fails) {
        *result = static_cast<int>(value);
    }
    return fails;
}
