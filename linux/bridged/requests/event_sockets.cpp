#include "bridged/requests/event_sockets.h"

#include <cerrno>
#include <cstring>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace {

constexpr int WANTED_BUFFER = 1 << 20; // room for the thousand events of a bridge that learns its clients anew

int option_of(int fd, int option) {
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(fd, SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

bool is_datagram_socket(int fd) {
    return option_of(fd, SO_DOMAIN) == AF_UNIX && option_of(fd, SO_TYPE) == SOCK_DGRAM;
}

bool is_shut_down(int fd) {
    pollfd watched{.fd = fd, .events = 0, .revents = 0};
    return poll(&watched, 1, 0) == 1 && (watched.revents & POLLHUP) != 0;
}

bool is_lack_of_room(int error) {
    return error == EAGAIN || error == ENOBUFS || error == ENOMEM || error == EINTR;
}

} // namespace

bool event_sockets::add(unique_fd fd, int32_t protocol, const void *owner) {
    forget_shut_down();
    struct stat status {};
    if (count_ == MAX_EVENT_SOCKETS || !is_datagram_socket(fd.get()) || fstat(fd.get(), &status) != 0)
        return false;
    // Without the right to have that much it stays at what everybody may have.
    (void)setsockopt(fd.get(), SOL_SOCKET, SO_SNDBUFFORCE, &WANTED_BUFFER, sizeof WANTED_BUFFER);
    event_socket &place = sockets_[count_++];
    place.fd = std::move(fd);
    place.protocol = protocol;
    place.owner = owner;
    place.inode = status.st_ino;
    return true;
}

void event_sockets::remove(int at) {
    count_--;
    if (at != count_)
        sockets_[at] = std::move(sockets_[count_]);
    sockets_[count_] = event_socket{};
}

void event_sockets::forget_shut_down() {
    for (int i = count_ - 1; i >= 0; i--) {
        if (is_shut_down(sockets_[i].fd.get()))
            remove(i);
    }
}

void event_sockets::forget(const void *owner) {
    for (int i = count_ - 1; i >= 0; i--) {
        if (sockets_[i].owner == owner)
            remove(i);
    }
}

bool event_sockets::is_repeated(int at) const {
    for (int i = at + 1; i < count_; i++) {
        if (sockets_[i].inode == sockets_[at].inode && sockets_[i].protocol == sockets_[at].protocol)
            return true;
    }
    return false;
}

int event_sockets::send(int32_t protocol, uint16_t type, const void *payload, size_t size) {
    if (size > MAX_EVENT_PAYLOAD)
        return 0;
    struct {
        nlmsghdr header;
        uint8_t payload[MAX_EVENT_PAYLOAD];
    } message;
    message.header = {};
    message.header.nlmsg_len = static_cast<uint32_t>(sizeof message.header + size);
    message.header.nlmsg_type = type;
    if (size > 0)
        memcpy(message.payload, payload, size);
    int taken = 0;
    for (int i = count_ - 1; i >= 0; i--) {
        if (sockets_[i].protocol != protocol || is_repeated(i))
            continue;
        if (::send(sockets_[i].fd.get(), &message, message.header.nlmsg_len, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
            taken++;
        else if (!is_lack_of_room(errno))
            remove(i);
    }
    return taken;
}
