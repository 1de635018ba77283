// The messages of a datagram, one behind the other, read with their lengths checked: the library's own check takes
// lengths of 2 GB and more for negative ones.
#pragma once

#include <algorithm>
#include <cstddef>
#include <linux/netlink.h>
#include <span>

class message_reader {
public:
    // The datagram must stand as a message does.
    explicit message_reader(std::span<const std::byte> datagram) : rest_(datagram) {}

    // The next message; null when there is no whole one left.
    const nlmsghdr *next() {
        if (rest_.size() < sizeof(nlmsghdr))
            return nullptr;
        const auto *message = reinterpret_cast<const nlmsghdr *>(rest_.data());
        const size_t length = message->nlmsg_len;
        if (length < sizeof *message || length > rest_.size())
            return nullptr;
        rest_ = rest_.subspan(std::min(rest_.size(), NLMSG_ALIGN(length)));
        return message;
    }

private:
    std::span<const std::byte> rest_;
};
