// Tries what an emulator of a processor may not pass on to the kernel, and says of each in a line of its own whether it
// works: "yes" or "no", a tab, a name, and after another tab what came of it. What a test needs by these names is in
// needs.txt. With --all the status says whether all of it works.
#include "core/handle.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <linux/bpf.h>
#include <linux/ethtool.h>
#include <linux/if_packet.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Each returns nullptr when the call works, or else what came of it.
using attempt = const char *();

const char *load_programs() {
    bpf_attr wanted{};
    wanted.map_type = BPF_MAP_TYPE_ARRAY;
    wanted.key_size = 4;
    wanted.value_size = 4;
    wanted.max_entries = 1;
    const unique_fd map(static_cast<int>(syscall(SYS_bpf, BPF_MAP_CREATE, &wanted, sizeof wanted)));
    return map ? nullptr : strerror(errno);
}

// From one process to another the kernel carries a message of any type.
const char *unknown_messages() {
    const unique_fd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    sockaddr_nl own{};
    own.nl_family = AF_NETLINK;
    socklen_t size = sizeof own;
    if (bind(fd.get(), reinterpret_cast<const sockaddr *>(&own), sizeof own) != 0 ||
        getsockname(fd.get(), reinterpret_cast<sockaddr *>(&own), &size) != 0)
        return strerror(errno);
    const nlmsghdr message[2] = {{sizeof message, 0x1010, 0, 0, 0}, {}};
    if (sendto(fd.get(), message, sizeof message, 0, reinterpret_cast<const sockaddr *>(&own), sizeof own) < 0)
        return strerror(errno);
    return nullptr;
}

// The protocol that every kernel has for programs.
const char *program_messages() {
    const unique_fd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK));
    return fd ? nullptr : strerror(errno);
}

// The kernel gives one to a process of a single thread. That it may refuse it to one in a changed root is another
// matter.
const char *user_namespace() {
    const pid_t child = fork();
    if (child == 0)
        _exit(unshare(CLONE_NEWUSER) == 0 || errno == EPERM ? 0 : errno);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child)
        return strerror(errno);
    return status == 0 ? nullptr : strerror(WEXITSTATUS(status));
}

// Two descriptors to one who has room for one: the kernel closes the other and says that something was cut off.
const char *cut_descriptors() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return strerror(errno);
    const unique_fd sender(ends[0]);
    const unique_fd receiver(ends[1]);
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof ends)] = {};
    char byte = 0;
    iovec part{.iov_base = &byte, .iov_len = 1};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr *rights = CMSG_FIRSTHDR(&message);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof ends);
    memcpy(CMSG_DATA(rights), ends, sizeof ends);
    if (sendmsg(sender.get(), &message, 0) != 1)
        return strerror(errno);
    message.msg_controllen = CMSG_LEN(sizeof(int));
    if (recvmsg(receiver.get(), &message, 0) != 1)
        return strerror(errno);
    return (message.msg_flags & MSG_CTRUNC) != 0 ? nullptr : "Received as if nothing had been cut off";
}

// The kernel looks for the device that the request names before it looks for the address.
const char *arp_device() {
    const unique_fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    arpreq request{};
    request.arp_pa.sa_family = AF_INET;
    strcpy(request.arp_dev, "nosuch");
    if (ioctl(fd.get(), SIOCGARP, &request) == 0)
        return "Found";
    return errno == ENODEV ? nullptr : strerror(errno);
}

// A bridge, which needs no more than its kind.
const char *make_links() {
    const unique_fd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    struct {
        nlmsghdr head;
        ifinfomsg link;
        rtattr info;
        rtattr kind;
        char name[8];
    } message{};
    message.head = {sizeof message, RTM_NEWLINK, NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE | NLM_F_EXCL, 1, 0};
    message.info = {sizeof message.info + sizeof message.kind + sizeof message.name, IFLA_LINKINFO};
    message.kind = {sizeof message.kind + sizeof message.name, IFLA_INFO_KIND};
    strcpy(message.name, "bridge");
    struct {
        nlmsghdr head;
        nlmsgerr error;
        char rest[256];
    } answer{};
    if (send(fd.get(), &message, sizeof message, 0) < 0 || recv(fd.get(), &answer, sizeof answer, 0) < 0)
        return strerror(errno);
    return answer.error.error == 0 ? nullptr : strerror(-answer.error.error);
}

const char *packet_options() {
    const unique_fd fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    packet_mreq membership{};
    membership.mr_ifindex = 1;
    membership.mr_type = PACKET_MR_PROMISC;
    const bool taken = setsockopt(fd.get(), SOL_PACKET, PACKET_ADD_MEMBERSHIP, &membership, sizeof membership) == 0;
    return taken ? nullptr : strerror(errno);
}

const char *interface_features() {
    const unique_fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ethtool_sset_info question{};
    question.cmd = ETHTOOL_GSSET_INFO;
    ifreq request{};
    strcpy(request.ifr_name, "lo");
    request.ifr_data = reinterpret_cast<char *>(&question);
    return ioctl(fd.get(), SIOCETHTOOL, &request) == 0 ? nullptr : strerror(errno);
}

constexpr struct {
    const char *name;
    attempt *works;
} CALLS[] = {
    {"programs", load_programs},
    {"unknown-messages", unknown_messages},
    {"program-messages", program_messages},
    {"make-links", make_links},
    {"packet-options", packet_options},
    {"interface-features", interface_features},
    {"user-namespace", user_namespace},
    {"cut-descriptors", cut_descriptors},
    {"arp-device", arp_device},
};

} // namespace

int main(int argc, char **argv) {
    if (unshare(CLONE_NEWNET) != 0) {
        fprintf(stderr, "This needs a network namespace of its own: %s\n", strerror(errno));
        return 2;
    }
    bool all = true;
    for (const auto &call : CALLS) {
        const char *failure = call.works();
        all = all && failure == nullptr;
        printf("%s\t%s\t%s\n", failure == nullptr ? "yes" : "no", call.name, failure == nullptr ? "" : failure);
    }
    return argc > 1 && strcmp(argv[1], "--all") == 0 && !all ? 1 : 0;
}
