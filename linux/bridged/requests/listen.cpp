#include "bridged/requests/listen.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace {

constexpr char GROUP_NAME[] = "kolt";
constexpr gid_t NO_GROUP = static_cast<gid_t>(-1);
constexpr int BACKLOG = 64;
constexpr size_t MAX_PEER_GROUPS = 256;
constexpr mode_t OWNER_ONLY = 0600;
constexpr mode_t OWNER_AND_GROUP = 0660;

client_listener refuse(int error) {
    errno = error;
    return {.fd = unique_fd(), .group = NO_GROUP};
}

gid_t kolt_group() {
    const group *found = getgrnam(GROUP_NAME);
    return found != nullptr ? found->gr_gid : NO_GROUP;
}

// Removes what a dead server left; 0, or why the path cannot be had. A file that is no socket is nobody's left-over.
int make_way(const sockaddr_un &address) {
    struct stat status {};
    if (lstat(address.sun_path, &status) != 0)
        return errno == ENOENT ? 0 : errno;
    if (!S_ISSOCK(status.st_mode))
        return EEXIST;
    const unique_fd probe(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!probe)
        return errno;
    if (connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 || errno == EAGAIN)
        return EADDRINUSE;
    if (errno != ECONNREFUSED)
        return errno;
    return unlink(address.sun_path) == 0 ? 0 : errno;
}

// Until its group is set the socket is nobody's but the owner's.
bool bind_privately(int fd, const sockaddr_un &address, gid_t group) {
    if (fchmod(fd, OWNER_ONLY) != 0 || bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return false;
    // No group is "leave it as it is" to chown.
    return chown(address.sun_path, static_cast<uid_t>(-1), group) == 0 && chmod(address.sun_path, OWNER_AND_GROUP) == 0;
}

} // namespace

client_listener listen_for_clients(const char *path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t length = strlen(path);
    if (length >= sizeof address.sun_path)
        return refuse(ENAMETOOLONG);
    memcpy(address.sun_path, path, length);
    if (const int error = make_way(address))
        return refuse(error);
    unique_fd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const gid_t group = kolt_group();
    if (!fd || !bind_privately(fd.get(), address, group) || listen(fd.get(), BACKLOG) != 0)
        return refuse(errno);
    return {.fd = std::move(fd), .group = group};
}

bool peer_is_allowed(int fd, gid_t group) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return false;
    if (peer.uid == 0)
        return true;
    if (group == NO_GROUP)
        return false;
    gid_t groups[MAX_PEER_GROUPS];
    size = sizeof groups;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups, &size) != 0)
        size = 0;
    gid_t *end = groups + size / sizeof *groups;
    return peer.gid == group || std::find(groups, end, group) != end;
}
