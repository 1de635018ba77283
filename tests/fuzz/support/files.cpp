// Each file is memory that can be opened like any file. Commands are "cat PATH", and read the same files.
#include "support/files.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

extern "C" {
FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode);
int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...);
FILE *__wrap_popen(const char *command, const char *mode);
int __wrap_pclose(FILE *file);
}

int files_opened;
int open_pipes;

namespace {

struct memory_file {
    std::string path;
    int fd = memfd_create("file", MFD_CLOEXEC);
    bool missing = true;
};

std::vector<memory_file> &files() {
    static std::vector<memory_file> all;
    return all;
}

memory_file *find(const char *path) {
    for (memory_file &file : files()) {
        if (file.path == path)
            return &file;
    }
    return nullptr;
}

memory_file &make(const char *path) {
    if (memory_file *known = find(path))
        return *known;
    files().emplace_back().path = path;
    return files().back();
}

// The path under which the memory can be opened; null when there is no such file.
const char *place_of(const char *path) {
    static char place[32];
    const memory_file *file = find(path);
    if (file == nullptr)
        return path; // one of the fuzzer's own
    files_opened++;
    (void)snprintf(place, sizeof place, "/proc/self/fd/%d", file->fd);
    if (!file->missing)
        return place;
    errno = ENOENT;
    return nullptr;
}

} // namespace

void serve_file(const char *path, bytes content) {
    memory_file &file = make(path);
    file.missing = false;
    require(ftruncate(file.fd, 0) == 0);
    require(pwrite(file.fd, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()));
}

void miss_file(const char *path) {
    make(path).missing = true;
}

FILE *__wrap_fopen(const char *path, const char *mode) {
    const char *place = place_of(path);
    return place != nullptr ? __real_fopen(place, mode) : nullptr;
}

int __wrap_open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
    va_end(arguments);
    const char *place = place_of(path);
    return place != nullptr ? __real_open(place, flags, mode) : -1;
}

FILE *__wrap_popen(const char *command, const char *mode) {
    require(strncmp(command, "cat /proc/", 10) == 0 && strcmp(mode, "re") == 0);
    require(strpbrk(command + 4, " \t\n\"#$&'()*;<>?[\\]`{|}~!^") == nullptr); // nothing that a shell would act upon
    const char *path = command + 4;
    const char *served = find(path) != nullptr ? path : strrchr(path, '/') + 1;
    require(find(served) != nullptr);
    FILE *file = __wrap_fopen(served, "re");
    open_pipes += file != nullptr ? 1 : 0;
    return file;
}

int __wrap_pclose(FILE *file) {
    open_pipes--;
    return fclose(file);
}
