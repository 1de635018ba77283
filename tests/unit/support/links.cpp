// The unit tests' interfaces, made by talking route netlink.
#include "support/links.h"

#include <cerrno>
#include <cstring>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// A request about an interface to the kernel. It uses bare system calls, since tests put fakes in the place of sockets.
class link_request {
public:
    link_request(uint16_t type, uint16_t flags) {
        const nlmsghdr header{0, type, static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags), 0, 0};
        bytes_.append(reinterpret_cast<const char *>(&header), sizeof header);
    }

    link_request &link(uint32_t index) {
        return link(index, 0, 0);
    }
    // Of the flags only those of `changed` are set.
    link_request &link(uint32_t index, unsigned flags, unsigned changed) {
        const ifinfomsg link{AF_UNSPEC, 0, 0, static_cast<int>(index), flags, changed};
        bytes_.append(reinterpret_cast<const char *>(&link), sizeof link);
        return *this;
    }

    link_request &add(uint16_t kind, const void *value, size_t size) {
        const size_t place = begin(kind);
        bytes_.append(static_cast<const char *>(value), size);
        end(place);
        return *this;
    }
    link_request &text(uint16_t kind, const std::string &value) {
        return add(kind, value.c_str(), value.size() + 1);
    }

    // What is added between the two is inside the attribute.
    size_t begin(uint16_t kind) {
        const rtattr header{0, kind};
        bytes_.append(reinterpret_cast<const char *>(&header), sizeof header);
        return bytes_.size() - sizeof header;
    }
    void end(size_t place) {
        const auto size = static_cast<uint16_t>(bytes_.size() - place);
        memcpy(bytes_.data() + place, &size, sizeof size);
        bytes_.resize(NLMSG_ALIGN(bytes_.size()));
    }

    // Returns 0, or the error's number.
    int send() {
        const auto size = static_cast<uint32_t>(bytes_.size());
        memcpy(bytes_.data(), &size, sizeof size);
        const auto fd = static_cast<int>(syscall(SYS_socket, AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
        if (fd < 0)
            return errno;
        struct {
            nlmsghdr header;
            nlmsgerr result;
            char request[1024];
        } reply{};
        const bool answered = syscall(SYS_sendto, fd, bytes_.data(), bytes_.size(), 0, nullptr, 0) >= 0 &&
                              syscall(SYS_recvfrom, fd, &reply, sizeof reply, 0, nullptr, nullptr) >= 0;
        const int error = answered ? -reply.result.error : errno;
        close(fd);
        return error;
    }

private:
    std::string bytes_;
};

} // namespace

// Every kernel that the simulated node can run on has this kind of interface. It comes in pairs; what a test sees of
// the other one is a name and an index that no test uses, and that the next interface gets the next index all the same.
int link_make_pair(const named_link &link, const named_link &peer) {
    link_request request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    request.link(link.index).text(IFLA_IFNAME, link.name);
    const size_t info = request.begin(IFLA_LINKINFO);
    request.text(IFLA_INFO_KIND, "veth");
    const size_t data = request.begin(IFLA_INFO_DATA);
    const size_t other = request.begin(VETH_INFO_PEER);
    request.link(peer.index).text(IFLA_IFNAME, peer.name).add(IFLA_MTU, &PEER_MTU, sizeof PEER_MTU);
    request.end(other);
    request.end(data);
    request.end(info);
    return request.send();
}

int link_set_up(const std::string &name) {
    return link_request(RTM_SETLINK, 0).link(0, IFF_UP, IFF_UP).text(IFLA_IFNAME, name).send();
}

int link_rename(const std::string &name, const std::string &other) {
    const uint32_t index = if_nametoindex(name.c_str());
    link_request down(RTM_SETLINK, 0);
    down.link(index, 0, IFF_UP);
    if (const int error = down.send(); error != 0)
        return error;
    return link_request(RTM_SETLINK, 0).link(index).text(IFLA_IFNAME, other).send();
}

void link_remove(const std::string &name) {
    link_request(RTM_DELLINK, 0).link(0).text(IFLA_IFNAME, name).send();
}
