// Messages on a stream socket, for both ends of it: reading them in pieces, checking them, taking them apart.
#pragma once

#include "c_headers.h"

#include <array>

// Header of a message with the word of the enclosing attribute behind it.
constexpr size_t UBUS_WIRE_HEAD_LEN = sizeof(ubus_msghdr) + sizeof(blob_attr);

enum class wire_result {
    COMPLETE, // a whole message is there
    MORE,     // the socket has no more bytes at the moment
    BROKEN    // the peer has gone, or what it sends is no message
};

// A message that is being received, or has been. `body` is the enclosing attribute, owned, from malloc().
struct ubus_wire_input {
    std::array<unsigned char, UBUS_WIRE_HEAD_LEN> head;
    size_t have;     // bytes received, those of `head` included
    size_t capacity; // bytes that `body` has room for
    blob_attr *body;
};

// The attributes of a message by id; one that is missing, or not of its type's form, is null.
using ubus_attributes = std::array<blob_attr *, UBUS_ATTR_MAX>;

// Receives from the non-blocking `fd` until one message is whole. After `complete` it is read with the functions below
// and then given up with wire_reset() or wire_take_body().
[[nodiscard]] wire_result wire_receive(int fd, ubus_wire_input &input);

// The header, with its numbers in host order.
ubus_msghdr wire_header(const ubus_wire_input &input);

// Hands the body over to the caller, who frees it; the input is ready for the next message.
[[nodiscard]] blob_attr *wire_take_body(ubus_wire_input &input);

// Forgets what has been received.
void wire_reset(ubus_wire_input &input);

// Sorts the attributes inside `body`. False when they do not fill it exactly.
[[nodiscard]] bool wire_parse(const blob_attr *body, ubus_attributes &attributes);

// Writes header and enclosing word of a message whose enclosing attribute is `body`.
std::array<unsigned char, sizeof(ubus_msghdr)> wire_encode_header(ubus_msg_type type, uint16_t seq, uint32_t peer);

// Whether a message with this body is short enough to be sent.
bool wire_can_send(const blob_attr *body);
