// Any bytes as what a broker sends. The first byte chooses how far the dialogue went well before: bit 0 a greeting,
// bit 1 the answers to a registration, bit 2 the rest arrives in small pieces.
#include "client.h"

#include <cstdlib>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr size_t LONGEST = 8192; // all of it fits into the socket's buffer
constexpr size_t PIECE = 5;

const std::string greeting("\0\0\0\0\1\2\3\4\0\0\0\4", 12);
const std::string registered("\0\2\0\1\0\0\0\0\0\0\0\x0c\3\0\0\x08\0\0\x10\0"
                             "\0\1\0\1\0\0\0\0\0\0\0\x0c\1\0\0\x08\0\0\0\0"
                             "\0\1\0\2\0\0\0\1\0\0\0\x0c\1\0\0\x08\0\0\0\0",
                             60);

volatile uint32_t sink;
int losses;

void count_loss(ubus_context *) {
    losses++;
    uloop_end();
}

void handle_event(ubus_context *, ubus_event_handler *, const char *type, blob_attr *message) {
    static constexpr blobmsg_policy POLICY[] = {{"mode", BLOBMSG_TYPE_STRING}, {"dbg_level", BLOBMSG_TYPE_INT32}};
    blob_attr *found[2];
    sink = static_cast<uint32_t>(strlen(type));
    (void)blobmsg_parse(POLICY, 2, found, blob_data(message), static_cast<unsigned>(blob_len(message)));
    if (found[0])
        sink = static_cast<uint32_t>(strlen(blobmsg_get_string(found[0])));
    if (found[1])
        sink = blobmsg_get_u32(found[1]);
}

void feed(int fd, const std::string &bytes) {
    if (send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) != static_cast<ssize_t>(bytes.size()))
        abort();
}

// Runs the loop until the connection is lost; with pieces left, one more is fed per turn.
void serve(int fd, std::string rest) {
    while (!rest.empty()) {
        feed(fd, rest.substr(0, PIECE));
        rest.erase(0, PIECE);
        (void)uloop_run_timeout(0);
        if (losses > 0)
            return;
    }
    (void)shutdown(fd, SHUT_WR);
    if (losses == 0)
        (void)uloop_run();
    for (int i = 0; i < 3; i++)
        (void)uloop_run_timeout(0);
    if (losses != 1)
        abort();
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > LONGEST || uloop_init() != 0)
        return 0;
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0)
        abort();
    std::string rest(reinterpret_cast<const char *>(data) + 1, size - 1);
    const bool in_pieces = (data[0] & 7) == 7; // before the registration, the missing piece would be waited for
    if (data[0] & 1)
        feed(ends[1], greeting);
    if (data[0] & 2)
        feed(ends[1], registered);
    if (!in_pieces) {
        feed(ends[1], rest);
        (void)shutdown(ends[1], SHUT_WR);
        rest.clear();
    }
    if (ubus_context *ctx = ubus_adopt(ends[0])) {
        losses = 0;
        ctx->connection_lost = count_loss;
        ubus_event_handler handler = {};
        handler.cb = handle_event;
        (void)ubus_register_event_handler(ctx, &handler, "kolt.*");
        if (ubus_add_uloop(ctx) == 0)
            serve(ends[1], rest);
        ubus_free(ctx);
    }
    close(ends[1]);
    uloop_done();
    return 0;
}
