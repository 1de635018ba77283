// kolt-event: sends one event on the message bus.

#include "json_members.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <unistd.h>

namespace {

enum exit_status { SENT = 0, WRONG_USAGE = 1, NO_BROKER = 2, REFUSED = 3 };

struct put_json {
    void operator()(json_object *object) const {
        json_object_put(object);
    }
};
using json_ptr = std::unique_ptr<json_object, put_json>;

struct free_tokener {
    void operator()(json_tokener *tokener) const {
        json_tokener_free(tokener);
    }
};
using tokener_ptr = std::unique_ptr<json_tokener, free_tokener>;

struct free_connection {
    void operator()(ubus_context *ctx) const {
        ubus_free(ctx);
    }
};
using connection_ptr = std::unique_ptr<ubus_context, free_connection>;

int usage(const char *program) {
    (void)fprintf(stderr,
                  "Usage: %s [-s SOCKET] NAME [JSON]\n"
                  "  NAME       the event, such as kolt.debug\n"
                  "  JSON       its members, an object; {} when missing\n"
                  "  -s SOCKET  the broker's socket instead of %s\n"
                  "Exit status: 0 sent, 1 wrong usage or JSON, 2 no broker, 3 refused by the broker\n",
                  program, UBUS_UNIX_SOCKET);
    return WRONG_USAGE;
}

// The object in `text`, or null after a message.
json_ptr parse_object(const char *text) {
    const tokener_ptr tokener(json_tokener_new());
    if (!tokener || strlen(text) >= UBUS_MAX_MSGLEN) {
        (void)fprintf(stderr, "kolt-event: JSON too long\n");
        return nullptr;
    }
    json_tokener_set_flags(tokener.get(), JSON_TOKENER_STRICT);
    json_ptr object(json_tokener_parse_ex(tokener.get(), text, static_cast<int>(strlen(text) + 1)));
    const json_tokener_error error = json_tokener_get_error(tokener.get());
    if (error != json_tokener_success) {
        (void)fprintf(stderr, "kolt-event: JSON: %s at character %zu\n", json_tokener_error_desc(error),
                      json_tokener_get_parse_end(tokener.get()) + 1);
        return nullptr;
    }
    if (!json_object_is_type(object.get(), json_type_object)) {
        (void)fprintf(stderr, "kolt-event: JSON: not an object\n");
        return nullptr;
    }
    return object;
}

int send(const char *socket, const char *name, blob_attr *members) {
    const connection_ptr ctx(ubus_connect(socket));
    if (!ctx) {
        (void)fprintf(stderr, "kolt-event: no broker at %s: %s\n", socket ? socket : UBUS_UNIX_SOCKET, strerror(errno));
        return NO_BROKER;
    }
    const int status = ubus_send_event(ctx.get(), name, members);
    if (status == UBUS_STATUS_OK)
        return SENT;
    (void)fprintf(stderr, "kolt-event: %s: %s\n", name, ubus_strerror(status));
    return REFUSED;
}

int send_json(const char *socket, const char *name, const char *text) {
    const json_ptr object = parse_object(text);
    if (!object)
        return WRONG_USAGE;
    blob_buf buf = {};
    int result = WRONG_USAGE;
    if (blobmsg_buf_init(&buf) == 0 && json_add_members(&buf, object.get()))
        result = send(socket, name, buf.head);
    else
        (void)fprintf(stderr, "kolt-event: JSON too long\n");
    blob_buf_free(&buf);
    return result;
}

} // namespace

int main(int argc, char **argv) {
    const char *socket = nullptr;
    int option;
    while ((option = getopt(argc, argv, "s:")) != -1) {
        if (option != 's')
            return usage(argv[0]);
        socket = optarg;
    }
    const int left = argc - optind;
    if (left < 1 || left > 2 || argv[optind][0] == '\0')
        return usage(argv[0]);
    return send_json(socket, argv[optind], left == 2 ? argv[optind + 1] : "{}");
}
