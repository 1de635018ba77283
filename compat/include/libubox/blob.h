/*
 * Blob attributes: a big-endian word (bit 31 extended, bits 24..30 id, bits 0..23 length including the word), then the
 * payload. The next attribute starts at the length padded up to 4. The readers here trust the length word: check an
 * attribute from outside with blob_attr_fits() first.
 */
#ifndef LIBUBOX_BLOB_H
#define LIBUBOX_BLOB_H

#include <endian.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#define BLOB_ATTR_EXTENDED 0x80000000u
#define BLOB_ATTR_ID_MASK 0x7f000000u
#define BLOB_ATTR_ID_SHIFT 24
#define BLOB_ATTR_LEN_MASK 0x00ffffffu
#define BLOB_ATTR_ALIGN 4u

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic" /* C++ has no flexible array members */
struct blob_attr {
    uint32_t id_len;
    char data[];
} __attribute__((packed));
#pragma GCC diagnostic pop

/* A message under construction. Zero it, blob_buf_init() it, and blob_buf_free() it at the end. */
struct blob_buf {
    struct blob_attr *head; /* the message; moves when the buffer grows */
    bool (*grow)(struct blob_buf *buf, int minlen);
    int buflen;
    void *buf;
};

static inline uint32_t blob_word(const struct blob_attr *attr) {
    return be32toh(attr->id_len);
}

/* The payload. */
static inline void *blob_data(const struct blob_attr *attr) {
    return (char *)attr + sizeof(struct blob_attr);
}

static inline unsigned int blob_id(const struct blob_attr *attr) {
    return (blob_word(attr) & BLOB_ATTR_ID_MASK) >> BLOB_ATTR_ID_SHIFT;
}

static inline bool blob_is_extended(const struct blob_attr *attr) {
    return (blob_word(attr) & BLOB_ATTR_EXTENDED) != 0;
}

/* Length in bytes with the word in front. */
static inline size_t blob_raw_len(const struct blob_attr *attr) {
    return blob_word(attr) & BLOB_ATTR_LEN_MASK;
}

/* Length in bytes of the payload; 0 for a word whose length does not even cover itself. */
static inline size_t blob_len(const struct blob_attr *attr) {
    const size_t raw = blob_raw_len(attr);
    return raw < sizeof(struct blob_attr) ? 0 : raw - sizeof(struct blob_attr);
}

/* Distance in bytes to the next attribute. */
static inline size_t blob_pad_len(const struct blob_attr *attr) {
    return (blob_raw_len(attr) + BLOB_ATTR_ALIGN - 1) & ~(size_t)(BLOB_ATTR_ALIGN - 1);
}

static inline struct blob_attr *blob_next(const struct blob_attr *attr) {
    return (struct blob_attr *)(void *)((char *)attr + blob_pad_len(attr));
}

/* Whether a whole attribute with its padding stands at `attr`, of which `rem` bytes may be read. */
static inline bool blob_attr_fits(const struct blob_attr *attr, size_t rem) {
    return rem >= sizeof(struct blob_attr) && blob_raw_len(attr) >= sizeof(struct blob_attr) &&
           blob_pad_len(attr) <= rem;
}

/* Walks the `rem` bytes at `attr` up to the first attribute that does not fit; `rem` counts down to what is left. */
#define __blob_for_each_attr(pos, attr, rem)                                                                           \
    for (pos = (struct blob_attr *)(void *)(attr); blob_attr_fits(pos, rem);                                           \
         rem -= blob_pad_len(pos), pos = blob_next(pos))

/* Integer payloads. The attribute must hold as many bytes. */
static inline uint8_t blob_get_u8(const struct blob_attr *attr) {
    return *(const uint8_t *)blob_data(attr);
}

static inline uint32_t blob_get_u32(const struct blob_attr *attr) {
    uint32_t value;
    memcpy(&value, blob_data(attr), sizeof(value));
    return be32toh(value);
}

/* Starts a message with one enclosing attribute of id `id`, keeping the buffer. Returns 0, or -1 without memory. */
int blob_buf_init(struct blob_buf *buf, int id);

/* Releases the buffer; the message is gone. */
void blob_buf_free(struct blob_buf *buf);

/*
 * Appends an attribute with `len` payload bytes from `ptr` (zeroes when null) and zeroed padding. Returns it, valid
 * until the next append, or null when it does not fit into a message or there is no memory.
 */
struct blob_attr *blob_put(struct blob_buf *buf, int id, const void *ptr, unsigned int len);

struct blob_attr *blob_put_u8(struct blob_buf *buf, int id, uint8_t val);
struct blob_attr *blob_put_u32(struct blob_buf *buf, int id, uint32_t val);
struct blob_attr *blob_put_string(struct blob_buf *buf, int id, const char *str);

/*
 * Opens an attribute that encloses what is appended until blob_nest_end() gets the returned cookie; null without
 * memory.
 */
void *blob_nest_start(struct blob_buf *buf, int id);
void blob_nest_end(struct blob_buf *buf, void *cookie);

#endif
