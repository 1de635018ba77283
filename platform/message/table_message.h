/*
 * The message that a table buffer belongs to: 52 bytes of header, then the payload whose address callers hold. Both
 * platform libraries read it, whoever provides them, so its layout is settled here.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

constexpr size_t NAME_SIZE = 16;

struct message_header {
    uint8_t netlink[16];    // room for the netlink header, unused here
    char bridge[NAME_SIZE]; // what tells netlink_msg which bridge is meant
    uint32_t allocated;     // payload bytes that the buffer holds
    uint8_t reserved[8];
    uint32_t reply_length; // payload bytes of the reply, 8 bytes before the payload
    uint32_t status;
};

static_assert(sizeof(message_header) == 52);
static_assert(sizeof(message_header) - offsetof(message_header, reply_length) == 8);

/*
 * The payload of a buffer made by malloc lies at 52, which suits 4-byte members only, and a caller may hand in any
 * address: headers are copied in and out.
 */
inline message_header load_header(const void *message) {
    message_header header;
    memcpy(&header, message, sizeof(header));
    header.bridge[NAME_SIZE - 1] = '\0';
    return header;
}

inline void store_header(void *message, const message_header &header) {
    memcpy(message, &header, sizeof(header));
}
