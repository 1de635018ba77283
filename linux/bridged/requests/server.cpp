#include "bridged/requests/server.h"

#include "bridged/requests/client.h"
#include "bridged/requests/listen.h"
#include "core/container_of.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/socket.h>

struct requests_server {
    uloop_fd watcher{};
    client_listener listener{};
    unique_fd spare; // given up for a moment when there are no descriptors left, so that clients can be hung up on
    client_service service{};
    client clients[MAX_CONNECTIONS] = {};
    char path[108] = {}; // as long as the address of a socket may be
};

namespace {

unique_fd open_spare() {
    return unique_fd(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

client *free_place(requests_server *server) {
    for (client &place : server->clients) {
        if (place.service == nullptr)
            return &place;
    }
    return nullptr;
}

unique_fd accept_client(int fd) {
    return unique_fd(accept4(fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

void refuse_client(requests_server *server) {
    server->spare.reset();
    (void)accept_client(server->watcher.fd); // and closes it
    server->spare = open_spare();
}

void receive_client(uloop_fd *watcher, unsigned int /*events*/) {
    requests_server *server = KOLT_CONTAINER_OF(watcher, requests_server, watcher);
    unique_fd connection = accept_client(watcher->fd);
    if (!connection) {
        if (errno == EMFILE || errno == ENFILE)
            refuse_client(server);
        return;
    }
    client *place = free_place(server);
    if (place != nullptr && peer_is_allowed(connection.get(), server->listener.group))
        (void)client_start(place, &server->service, std::move(connection)); // or closes it
}

} // namespace

requests_server *requests_open(const char *path, const request_handlers &handlers) {
    void *memory = malloc(sizeof(requests_server));
    if (memory == nullptr)
        return nullptr;
    auto *server = new (memory) requests_server;
    server->service.handlers = handlers;
    server->listener = listen_for_clients(path);
    server->spare = open_spare();
    server->watcher.cb = receive_client;
    server->watcher.fd = server->listener.fd.get();
    if (server->listener.fd)
        memcpy(server->path, path, strlen(path)); // which was not too long for the address
    if (!server->listener.fd || uloop_fd_add(&server->watcher, ULOOP_READ) != 0) {
        const int error = errno;
        requests_close(server);
        errno = error;
        return nullptr;
    }
    return server;
}

void requests_close(requests_server *server) {
    if (server == nullptr)
        return;
    for (client &client : server->clients) {
        if (client.service != nullptr)
            client_stop(&client);
    }
    (void)uloop_fd_delete(&server->watcher);
    if (server->listener.fd)
        (void)unlink(server->path);
    server->~requests_server();
    free(server);
}

int requests_send_event(requests_server *server, int32_t protocol, uint16_t type, const void *payload, size_t size) {
    return server->service.events.send(protocol, type, payload, size);
}
