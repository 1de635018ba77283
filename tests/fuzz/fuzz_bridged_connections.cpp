// Any bytes as what a client of kolt-bridged sends on its connection, message after message. Each is a byte and a part:
// bit 0 has a socket for events come with it, bit 1 another file, bit 2 a second descriptor, bit 3 has the answer read.
#include "bridged/requests/client.h"
#include "support/bridged_handlers.h"
#include "support/input.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr size_t MOST_MESSAGES = 32;

enum message_kind : uint8_t { WITH_SOCKET = 1, WITH_FILE = 2, WITH_SECOND = 4, ANSWER_IS_READ = 8 };

struct descriptors {
    int pair[2] = {-1, -1};
    int file = memfd_create("file", MFD_CLOEXEC);
    descriptors() {
        require(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, pair) == 0);
    }
};

// What a client may send with a message; the kernel makes copies.
size_t choose(uint8_t how, const descriptors &all, int (&chosen)[2]) {
    size_t count = 0;
    if ((how & (WITH_SOCKET | WITH_FILE)) != 0)
        chosen[count++] = (how & WITH_SOCKET) != 0 ? all.pair[0] : all.file;
    if ((how & WITH_SECOND) != 0)
        chosen[count++] = all.file;
    return count;
}

void send_message(int fd, bytes content, uint8_t how) {
    static const descriptors all;
    alignas(cmsghdr) char control[CMSG_SPACE(2 * sizeof(int))] = {};
    int chosen[2];
    const size_t count = choose(how, all, chosen);
    iovec part{.iov_base = const_cast<uint8_t *>(content.data()), .iov_len = content.size()};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    if (count > 0) {
        header.msg_control = control;
        header.msg_controllen = CMSG_SPACE(count * sizeof(int));
        cmsghdr *rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(count * sizeof(int));
        memcpy(CMSG_DATA(rights), chosen, count * sizeof(int));
    }
    (void)sendmsg(fd, &header, MSG_DONTWAIT | MSG_NOSIGNAL); // in vain when it was hung up on
}

// Takes one answer, with the table that comes with it.
void read_answer(int fd) {
    uint8_t content[512];
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    iovec part{.iov_base = content, .iov_len = sizeof content};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    if (recvmsg(fd, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC) <= 0)
        return;
    if (const cmsghdr *rights = CMSG_FIRSTHDR(&header)) {
        int table;
        memcpy(&table, CMSG_DATA(rights), sizeof table);
        close(table);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input{{data, size}};
    require(uloop_init() == 0);
    const auto service = std::make_unique<client_service>();
    service->handlers = thorough_handlers();
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0);
    const auto place = std::make_unique<client>();
    require(client_start(place.get(), service.get(), unique_fd(ends[0])));
    for (size_t i = 0; i < MOST_MESSAGES && !input.left.empty() && place->service != nullptr; i++) {
        const uint8_t how = input.byte();
        send_message(ends[1], input.part(), how);
        place->watcher.cb(&place->watcher, ULOOP_READ);
        if ((how & ANSWER_IS_READ) != 0)
            read_answer(ends[1]);
        constexpr uint8_t EVENT[4] = {};
        require(service->events.send(PROTOCOL_BRIDGE_EVENTS, 5, EVENT, sizeof EVENT) <= MAX_EVENT_SOCKETS);
    }
    if (place->service != nullptr)
        client_stop(place.get());
    require(service->events.send(PROTOCOL_BRIDGE_EVENTS, 5, nullptr, 0) == 0); // they went with their connection
    close(ends[1]);
    return 0;
}
