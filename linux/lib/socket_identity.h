// Which socket a descriptor stands for. Whoever uses the library may close descriptors that are not theirs, and the
// numbers are then given to something else.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

struct socket_identity {
    dev_t device = 0;
    ino_t inode = 0;

    static socket_identity of(int fd) {
        struct stat status {};
        if (fstat(fd, &status) != 0 || !S_ISSOCK(status.st_mode))
            return {};
        return {.device = status.st_dev, .inode = status.st_ino};
    }
    // Whether that descriptor is still this socket.
    [[nodiscard]] bool is(int fd) const {
        const socket_identity other = of(fd);
        return inode != 0 && other.inode == inode && other.device == device;
    }
};
