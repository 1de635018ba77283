// Reading a file as a whole, while nobody is writing it.

#include "uci_internal.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int LOCK_ATTEMPTS = 50;
constexpr timespec LOCK_PAUSE = {0, 10000000};

// Writers hold an exclusive lock for a moment. One that does not let go is not waited for: a text it is just writing
// is found out by the parser, and a node that waits for ever by nobody.
void lock_shared(int fd) {
    for (int attempt = 0; attempt < LOCK_ATTEMPTS && flock(fd, LOCK_SH | LOCK_NB) != 0; attempt++)
        (void)nanosleep(&LOCK_PAUSE, nullptr); // cut short by a signal, it is one attempt sooner
}

// Opens a regular file; anything else under that name, and what is not there, is not found.
int open_file(const char *dir, const char *name, int *fd, size_t *len) {
    char path[PATH_MAX];
    const int written = snprintf(path, sizeof(path), "%s/%s", dir, name);
    struct stat info = {};
    if (written < 0 || static_cast<size_t>(written) >= sizeof(path))
        return UCI_ERR_NOTFOUND;
    *fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (*fd < 0)
        return errno == EACCES ? UCI_ERR_IO : UCI_ERR_NOTFOUND;
    lock_shared(*fd);
    if (fstat(*fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        close(*fd);
        return UCI_ERR_NOTFOUND;
    }
    *len = info.st_size > 0 ? static_cast<size_t>(info.st_size) : 0;
    return UCI_OK;
}

int read_all(int fd, char *content, size_t *len) {
    size_t have = 0;
    while (have < *len) {
        const ssize_t got = read(fd, content + have, *len - have);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return UCI_ERR_IO;
        if (got == 0)
            break;
        have += static_cast<size_t>(got);
    }
    *len = have;
    return UCI_OK;
}

} // namespace

int uci_read_file(const char *dir, const char *name, char **content, size_t *len) {
    int fd = -1;
    int error = open_file(dir, name, &fd, len);
    if (error != UCI_OK)
        return error;
    *content = *len <= UCI_MAX_FILE ? static_cast<char *>(malloc(2 * *len + 2)) : nullptr;
    error = *content ? read_all(fd, *content, len) : UCI_ERR_MEM;
    close(fd); // gives up the lock, too
    if (error != UCI_OK) {
        free(*content);
        *content = nullptr;
    }
    return error;
}
