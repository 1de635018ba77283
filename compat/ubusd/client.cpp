// Connections of clients: what they send is read in turns, what they do not take at once is queued.
#include "client.h"

#include "protocol.h"

#include <cerrno>
#include <cstdlib>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Messages of one client handled per turn of the loop, so that one that sends without pause does not starve the rest.
constexpr int MESSAGES_PER_TURN = 16;

int n_clients;
uloop_fd *paused_listener; // not watched until a descriptor is free again

void release(bus_client *client) {
    while (!list_empty(&client->objects))
        bus_remove_object(*client, list_first_entry(&client->objects, bus_object, list));
    (void)uloop_fd_delete(&client->sock); // closing takes it out of the loop anyway
    close(client->sock.fd);
    wire_reset(client->input);
    free(client->out);
    list_del(&client->list);
    free(client);
    n_clients--;
    if (paused_listener)
        (void)uloop_fd_add(paused_listener, ULOOP_READ); // it was watched before
    paused_listener = nullptr;
}

void release_closing(uloop_timeout *) {
    list_head *link;
    list_head *next;
    list_for_each_safe(link, next, &bus_clients) {
        bus_client *client = container_of(link, bus_client, list);
        if (client->closing)
            release(client);
    }
}

uloop_timeout closing_timer = {{}, false, release_closing, {}};

// Released later, because whoever walks the clients now may still stand on this one.
void start_closing(bus_client &client) {
    client.closing = true;
    (void)uloop_fd_delete(&client.sock);
    (void)uloop_timeout_set(&closing_timer, 0); // cannot fail
}

// Sends from the queue, and watches for room in the socket while something is left.
void flush(bus_client &client) {
    while (client.out_len > 0) {
        const ssize_t sent =
            send(client.sock.fd, client.out + client.out_start, client.out_len, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0 && errno == EAGAIN)
            break;
        if (sent < 0) {
            start_closing(client);
            return;
        }
        client.out_start += static_cast<size_t>(sent);
        client.out_len -= static_cast<size_t>(sent);
    }
    if (client.out_len == 0)
        client.out_start = 0;
    const unsigned wanted = client.out_len > 0 ? ULOOP_READ | ULOOP_WRITE : ULOOP_READ;
    if (client.sock.flags != wanted && uloop_fd_add(&client.sock, wanted) != 0)
        start_closing(client);
}

// Room for `len` more bytes behind the queue.
char *queue_room(bus_client &client, size_t len) {
    if (client.out_len + len > MAX_QUEUED_BYTES)
        return nullptr;
    if (client.out_start > 0)
        memmove(client.out, client.out + client.out_start, client.out_len);
    client.out_start = 0;
    if (client.out_len + len > client.out_capacity) {
        const size_t capacity = (client.out_len + len) * 2;
        void *grown = realloc(client.out, capacity);
        if (!grown)
            return nullptr;
        client.out = static_cast<char *>(grown);
        client.out_capacity = capacity;
    }
    return client.out + client.out_len;
}

void handle_socket(uloop_fd *sock, unsigned) {
    bus_client &client = *container_of(sock, bus_client, sock);
    flush(client);
    for (int i = 0; i < MESSAGES_PER_TURN && !client.closing; i++) {
        const wire_result result = wire_receive(sock->fd, client.input);
        if (result == wire_result::MORE)
            return;
        if (result == wire_result::BROKEN) {
            start_closing(client);
            return;
        }
        const ubus_msghdr header = wire_header(client.input);
        protocol_handle(client, header, client.input.body);
        wire_reset(client.input);
    }
}

void add_client(int fd) {
    auto *client = static_cast<bus_client *>(calloc(1, sizeof(bus_client)));
    if (!client || n_clients >= MAX_CLIENTS) {
        free(client);
        close(fd);
        return;
    }
    INIT_LIST_HEAD(&client->objects);
    client->id = bus_new_id();
    client->sock.fd = fd;
    client->sock.cb = handle_socket;
    list_add_tail(&client->list, &bus_clients);
    n_clients++;
    if (uloop_fd_add(&client->sock, ULOOP_READ) != 0)
        start_closing(*client);
    protocol_greet(*client);
}

} // namespace

void client_accept(uloop_fd *listener, unsigned) {
    for (;;) {
        const int fd = accept4(listener->fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) {
            add_client(fd);
            continue;
        }
        if (errno == EINTR || errno == ECONNABORTED)
            continue;
        if (errno != EAGAIN && n_clients > 0) { // no descriptor left: watching on would spin until one is
            (void)uloop_fd_delete(listener);
            paused_listener = listener;
        }
        return;
    }
}

void client_send(bus_client &client, ubus_msg_type type, uint16_t seq, uint32_t peer, const blob_attr *body) {
    if (client.closing)
        return;
    const auto header = wire_encode_header(type, seq, peer);
    const size_t len = header.size() + blob_raw_len(body);
    char *room = queue_room(client, len);
    if (!room) {
        start_closing(client);
        return;
    }
    memcpy(room, header.data(), header.size());
    memcpy(room + header.size(), body, blob_raw_len(body));
    client.out_len += len;
    flush(client);
}

void client_release_all() {
    paused_listener = nullptr;
    (void)uloop_timeout_cancel(&closing_timer); // mostly idle
    while (!list_empty(&bus_clients))
        release(list_first_entry(&bus_clients, bus_client, list));
}
