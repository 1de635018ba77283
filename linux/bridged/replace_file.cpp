// A temporary file beside the wanted one, renamed over it when it is complete.
#include "bridged/replace_file.h"

#include "core/handle.h"
#include "core/log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t READABLE_BY_ALL = 0644;

// What an earlier, killed process left is ours to remove; anybody else's file of that name stops us.
unique_fd create(const char *path) {
    (void)unlink(path);
    return unique_fd(open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, READABLE_BY_ALL));
}

bool write_all(int fd, const char *text, size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, text, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        text += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

} // namespace

bool replace_file(const char *path, const char *text, size_t size) {
    char temporary[96];
    const int length = snprintf(temporary, sizeof(temporary), "%s.kolt-bridged", path);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(temporary)) {
        errno = ENAMETOOLONG;
    } else {
        const unique_fd file = create(temporary);
        // The umask of whoever started us is no reason for others not to read it.
        if (file && fchmod(file.get(), READABLE_BY_ALL) == 0 && write_all(file.get(), text, size) &&
            rename(temporary, path) == 0)
            return true;
        const int error = errno;
        if (file)
            (void)unlink(temporary);
        errno = error;
    }
    KOLT_ERROR("cannot write %s: %s", path, strerror(errno));
    return false;
}
