#include "bridged/requests/client.h"

#include "bridged/requests/dispatch.h"
#include "core/container_of.h"
#include "lib/passed_descriptor.h"

#include <cerrno>
#include <cstring>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

constexpr int GREETING_TIMEOUT_MS = 2000;

struct message {
    alignas(8) uint8_t bytes[LONGEST_MESSAGE];
    size_t size = 0;
    unique_fd descriptor;
};

enum class receipt { MESSAGE, NOTHING, BROKEN };

receipt receive_message(int fd, message *message) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    iovec part{.iov_base = message->bytes, .iov_len = sizeof message->bytes};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = CMSG_LEN(sizeof(int)); // the space would be enough for two descriptors
    const ssize_t size = recvmsg(fd, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size < 0)
        return errno == EAGAIN || errno == EINTR ? receipt::NOTHING : receipt::BROKEN;
    message->descriptor = take_descriptor(&header);
    if (size == 0 || (header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0)
        return receipt::BROKEN;
    message->size = static_cast<size_t>(size);
    return receipt::MESSAGE;
}

// A client that asks again before it has read the answer would fill the kernel's memory with answers.
bool has_unread_answer(int fd) {
    int unread = 0;
    return ioctl(fd, SIOCOUTQ, &unread) == 0 && unread > 0;
}

bool send_answer(int fd, const call_answer &answer) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    call_reply reply = answer.reply;
    iovec part{.iov_base = &reply, .iov_len = sizeof reply};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    if (answer.table) {
        header.msg_control = control;
        header.msg_controllen = sizeof control;
        cmsghdr *rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof(int));
        const int table = answer.table.get();
        memcpy(CMSG_DATA(rights), &table, sizeof table);
    }
    return sendmsg(fd, &header, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(sizeof reply);
}

bool greet(client *client, const message &message) {
    if (message.descriptor || !read_hello(message.bytes, message.size, &client->kind))
        return false;
    (void)uloop_timeout_cancel(&client->greeting);
    client->greeted = true;
    return true;
}

int add_event_socket(client *client, const call_request &request, unique_fd socket) {
    client_service &service = *client->service;
    if (!service.events.add(std::move(socket), request.values[0], client))
        return -1;
    if (service.handlers.event_socket_added != nullptr)
        service.handlers.event_socket_added(service.handlers.context, request.values[0], request.values[1]);
    return 0;
}

bool serve_call(client *client, message *message) {
    call_request request;
    if (!read_call(message->bytes, message->size, static_cast<bool>(message->descriptor), &request))
        return false;
    call_answer answer;
    if (request.call == CALL_ADD_EVENT_SOCKET) {
        answer.reply.sequence = request.sequence;
        answer.reply.result = add_event_socket(client, request, std::move(message->descriptor));
    } else {
        answer = dispatch_call(client->service->handlers, request);
    }
    return send_answer(client->watcher.fd, answer);
}

// The answer is an acknowledgement as netlink has them.
bool serve_netlink_request(const client *client, const message &message) {
    netlink_request request;
    if (message.descriptor || !read_netlink_request(message.bytes, message.size, &request))
        return false;
    struct {
        nlmsghdr header;
        nlmsgerr error;
    } answer{};
    answer.header.nlmsg_len = sizeof answer;
    answer.header.nlmsg_type = NLMSG_ERROR;
    answer.header.nlmsg_seq = request.header.nlmsg_seq;
    answer.header.nlmsg_pid = request.header.nlmsg_pid;
    answer.error.error = dispatch_netlink_request(client->service->handlers, request);
    answer.error.msg = request.header;
    return send(client->watcher.fd, &answer, sizeof answer, MSG_DONTWAIT | MSG_NOSIGNAL) ==
           static_cast<ssize_t>(sizeof answer);
}

bool serve(client *client, message *message) {
    if (!client->greeted)
        return greet(client, *message);
    if (has_unread_answer(client->watcher.fd))
        return false;
    return client->kind == CONNECTION_CALLS ? serve_call(client, message) : serve_netlink_request(client, *message);
}

// One message a turn, so that a busy client leaves the loop to others in between.
void receive(uloop_fd *watcher, unsigned int /*events*/) {
    client *sender = KOLT_CONTAINER_OF(watcher, client, watcher);
    message message;
    const receipt received = watcher->error ? receipt::BROKEN : receive_message(watcher->fd, &message);
    if (received == receipt::BROKEN || (received == receipt::MESSAGE && !serve(sender, &message)))
        client_stop(sender);
}

void give_up_greeting(uloop_timeout *timer) {
    client_stop(KOLT_CONTAINER_OF(timer, client, greeting));
}

} // namespace

bool client_start(client *place, client_service *service, unique_fd connection) {
    *place = client{};
    place->watcher.cb = receive;
    place->watcher.fd = connection.get();
    place->greeting.cb = give_up_greeting;
    if (uloop_fd_add(&place->watcher, ULOOP_READ) != 0)
        return false;
    (void)connection.release();
    (void)uloop_timeout_set(&place->greeting, GREETING_TIMEOUT_MS);
    place->service = service;
    return true;
}

void client_stop(client *client) {
    client->service->events.forget(client);
    (void)uloop_timeout_cancel(&client->greeting);
    (void)uloop_fd_delete(&client->watcher);
    (void)close(client->watcher.fd);
    client->service = nullptr;
}
