// Any bytes as what clients send to the broker: for each piece a byte that chooses the client (bits 0 and 1; bit 2
// hangs up on it) and a part. Two clients more listen for everything, one of which never reads.
#include "ubusd/client.h"

#include "support/input.h"

#include <array>
#include <cerrno>
#include <string>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
int __wrap_accept4(int listener, sockaddr *address, socklen_t *size, int flags);
ssize_t __wrap_getrandom(void *buffer, size_t size, unsigned int flags);
}

namespace {

constexpr size_t CLIENTS = 4;
constexpr size_t LISTENERS = 2;
constexpr size_t MOST_PIECES = 64;

int next_connection = -1;
uint32_t next_id;

// The wire form of adding an object and of having it listen for all events. Objects are numbered after their clients.
std::string listening(uint32_t object) {
    std::string bytes("\0\6\0\1\0\0\0\0\0\0\0\4", 12);
    bytes += std::string("\0\5\0\2\0\0\0\1\0\0\0\x48\3\0\0\x08\0\0\0\1\4\0\0\x0dregister\0\0\0\0", 36);
    bytes += std::string("\7\0\0\x2c\x85\0\0\x14\0\6object\0\0\0\0", 20);
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(object >> shift & 255);
    return bytes + std::string("\x83\0\0\x12\0\7pattern\0\0\0*\0\0\0", 20);
}

// Lets the broker do all that it can do now.
void turn() {
    for (int i = 0; i < 4; i++)
        (void)uloop_run_timeout(0);
}

int connect_client() {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0);
    next_connection = ends[0];
    uloop_fd listener{};
    client_accept(&listener, ULOOP_READ);
    return ends[1];
}

void feed(int fd, bytes content) {
    (void)send(fd, content.data(), content.size(), MSG_NOSIGNAL | MSG_DONTWAIT); // in vain when it was hung up on
}

void drain(int fd) {
    uint8_t taken[4096];
    while (recv(fd, taken, sizeof taken, MSG_DONTWAIT) > 0) {
    }
}

size_t objects_of_all() {
    size_t count = 0;
    list_head *link;
    list_for_each(link, &bus_clients) {
        const bus_client *client = container_of(link, bus_client, list);
        require(client->n_objects <= MAX_OBJECTS_PER_CLIENT && client->out_len <= MAX_QUEUED_BYTES);
        count += static_cast<size_t>(client->n_objects);
    }
    return count;
}

} // namespace

int __wrap_accept4(int /*listener*/, sockaddr * /*address*/, socklen_t * /*size*/, int /*flags*/) {
    const int fd = next_connection;
    next_connection = -1;
    errno = EAGAIN;
    return fd;
}

// Numbers that an input can know.
ssize_t __wrap_getrandom(void *buffer, size_t size, unsigned int /*flags*/) {
    require(size == sizeof next_id);
    next_id++;
    memcpy(buffer, &next_id, size);
    return static_cast<ssize_t>(size);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input{{data, size}};
    next_id = 0x10000000;
    require(uloop_init() == 0);
    std::array<int, CLIENTS> clients;
    for (int &client : clients)
        client = connect_client();
    for (size_t i = 0; i < LISTENERS; i++) {
        const std::string bytes = listening(0x10000000 + CLIENTS + 1 + static_cast<uint32_t>(i));
        feed(clients[i], {reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()});
        turn();
    }
    require(objects_of_all() == LISTENERS);
    for (size_t i = 0; i < MOST_PIECES && !input.left.empty(); i++) {
        const uint8_t how = input.byte();
        const int client = clients[how % CLIENTS];
        feed(client, input.part());
        if ((how & 4) != 0)
            (void)shutdown(client, SHUT_WR);
        turn();
        for (size_t reader = 1; reader < CLIENTS; reader++)
            drain(clients[reader]);
        (void)objects_of_all();
    }
    client_release_all();
    require(list_empty(&bus_clients));
    uloop_done();
    for (const int client : clients)
        close(client);
    return 0;
}
