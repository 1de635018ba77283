// Messages on a stream socket: receiving them in pieces, checking their form, taking them apart.
#include "wire.h"

#include <cerrno>
#include <cstdlib>
#include <sys/socket.h>

namespace {

constexpr size_t FIRST_CAPACITY = 1024;

// Length in bytes of the enclosing attribute, or 0 when the head is not one of a message.
size_t body_len(const ubus_wire_input &input) {
    uint32_t word;
    memcpy(&word, &input.head[sizeof(ubus_msghdr)], sizeof(word));
    word = be32toh(word);
    const size_t len = word & BLOB_ATTR_LEN_MASK;
    if (input.head[0] != 0 || (word & ~BLOB_ATTR_LEN_MASK) != 0 || len < sizeof(blob_attr))
        return 0;
    return len + sizeof(ubus_msghdr) <= UBUS_MAX_MSGLEN ? len : 0;
}

// Makes room for more of the body. What was announced is only allocated as it comes in, so that a head alone costs
// its sender as much as the receiver.
bool make_room(ubus_wire_input &input, size_t wanted) {
    const size_t have = input.have - sizeof(ubus_msghdr);
    if (input.body && have < input.capacity)
        return true;
    size_t capacity = input.capacity == 0 ? FIRST_CAPACITY : input.capacity * 2;
    if (capacity > wanted)
        capacity = wanted;
    void *body = realloc(input.body, capacity);
    if (!body)
        return false;
    input.body = static_cast<blob_attr *>(body);
    input.capacity = capacity;
    memcpy(input.body, &input.head[sizeof(ubus_msghdr)], sizeof(blob_attr));
    return true;
}

// One recv() of at most `len` bytes to `target`, which is counted in `have`.
wire_result receive_some(int fd, ubus_wire_input &input, void *target, size_t len) {
    ssize_t got;
    do {
        got = recv(fd, target, len, MSG_DONTWAIT);
    } while (got < 0 && errno == EINTR);
    if (got > 0) {
        input.have += static_cast<size_t>(got);
        return wire_result::COMPLETE;
    }
    return got < 0 && errno == EAGAIN ? wire_result::MORE : wire_result::BROKEN;
}

// Whether an attribute's payload has the form its id asks for.
bool has_form(const blob_attr *attr) {
    const size_t len = blob_len(attr);
    switch (blob_id(attr)) {
    case UBUS_ATTR_STATUS:
    case UBUS_ATTR_OBJID:
    case UBUS_ATTR_OBJTYPE:
        return len == sizeof(uint32_t);
    case UBUS_ATTR_ACTIVE:
    case UBUS_ATTR_NO_REPLY:
        return len == sizeof(uint8_t);
    case UBUS_ATTR_OBJPATH:
    case UBUS_ATTR_METHOD:
        return len > 0 && static_cast<const char *>(blob_data(attr))[len - 1] == '\0';
    default:
        return true;
    }
}

} // namespace

wire_result wire_receive(int fd, ubus_wire_input &input) {
    while (input.have < UBUS_WIRE_HEAD_LEN) {
        const wire_result result = receive_some(fd, input, &input.head[input.have], UBUS_WIRE_HEAD_LEN - input.have);
        if (result != wire_result::COMPLETE)
            return result;
    }
    const size_t len = body_len(input);
    if (len == 0 || !make_room(input, len))
        return wire_result::BROKEN;
    while (input.have < sizeof(ubus_msghdr) + len) {
        if (!make_room(input, len))
            return wire_result::BROKEN;
        const size_t done = input.have - sizeof(ubus_msghdr);
        auto *target = reinterpret_cast<char *>(input.body) + done;
        const wire_result result = receive_some(fd, input, target, input.capacity - done);
        if (result != wire_result::COMPLETE)
            return result;
    }
    return wire_result::COMPLETE;
}

ubus_msghdr wire_header(const ubus_wire_input &input) {
    ubus_msghdr header;
    memcpy(&header, input.head.data(), sizeof(header));
    header.seq = be16toh(header.seq);
    header.peer = be32toh(header.peer);
    return header;
}

blob_attr *wire_take_body(ubus_wire_input &input) {
    blob_attr *body = input.body;
    input = {};
    return body;
}

void wire_reset(ubus_wire_input &input) {
    free(wire_take_body(input));
}

bool wire_parse(const blob_attr *body, ubus_attributes &attributes) {
    attributes.fill(nullptr);
    size_t rem = blob_len(body);
    blob_attr *attr;
    __blob_for_each_attr(attr, blob_data(body), rem) {
        const unsigned id = blob_id(attr);
        if (id < attributes.size() && !attributes[id] && has_form(attr))
            attributes[id] = attr;
    }
    return rem == 0;
}

std::array<unsigned char, sizeof(ubus_msghdr)> wire_encode_header(ubus_msg_type type, uint16_t seq, uint32_t peer) {
    const ubus_msghdr header = {0, static_cast<uint8_t>(type), htobe16(seq), htobe32(peer)};
    std::array<unsigned char, sizeof(header)> bytes;
    memcpy(bytes.data(), &header, sizeof(header));
    return bytes;
}

bool wire_can_send(const blob_attr *body) {
    return sizeof(ubus_msghdr) + blob_raw_len(body) <= UBUS_MAX_MSGLEN;
}
