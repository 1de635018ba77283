// Clients and servers that speak to the socket as bytes, right or wrong.
#pragma once

#include "core/handle.h"
#include "lib/requests.h"

#include <cstring>
#include <initializer_list>
#include <linux/netlink.h>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

inline sockaddr_un socket_address(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path - 1));
    return address;
}

inline unique_fd connect_to(const std::string &path) {
    unique_fd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const sockaddr_un address = socket_address(path);
    if (connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        fd.reset();
    return fd;
}

// Sends one message with some descriptors; whether it went.
inline bool send_with(int fd, const std::string &bytes, std::initializer_list<int> descriptors = {}) {
    alignas(cmsghdr) char control[CMSG_SPACE(4 * sizeof(int))] = {};
    iovec part{.iov_base = const_cast<char *>(bytes.data()), .iov_len = bytes.size()};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    if (descriptors.size() > 0) {
        header.msg_control = control;
        header.msg_controllen = CMSG_SPACE(descriptors.size() * sizeof(int));
        cmsghdr *rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
        memcpy(CMSG_DATA(rights), descriptors.begin(), descriptors.size() * sizeof(int));
    }
    return sendmsg(fd, &header, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

struct received_message {
    std::string bytes;
    unique_fd descriptor{-1};
};

// What has arrived; nothing where nothing has, an empty message where the other side hung up.
inline std::optional<received_message> receive_from(int fd) {
    char bytes[256];
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    iovec part{.iov_base = bytes, .iov_len = sizeof bytes};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(fd, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size < 0 && errno == EAGAIN)
        return std::nullopt;
    received_message message;
    message.bytes.assign(bytes, size > 0 ? static_cast<size_t>(size) : 0);
    if (const cmsghdr *rights = CMSG_FIRSTHDR(&header)) {
        int descriptor;
        memcpy(&descriptor, CMSG_DATA(rights), sizeof descriptor);
        message.descriptor.reset(descriptor);
    }
    return message;
}

inline std::string netlink_message(uint16_t type, const std::string &payload, uint32_t sequence = 0, uint32_t pid = 0) {
    const nlmsghdr header{.nlmsg_len = static_cast<uint32_t>(sizeof header + payload.size()),
                          .nlmsg_type = type,
                          .nlmsg_flags = 0,
                          .nlmsg_seq = sequence,
                          .nlmsg_pid = pid};
    return {std::string(reinterpret_cast<const char *>(&header), sizeof header) + payload};
}
