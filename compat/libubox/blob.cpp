// Building blob attributes in a buffer that grows.

#include "c_headers.h"

#include <cstdlib>

namespace {

constexpr size_t GROWTH_STEP = 256;

size_t padded(size_t len) {
    return (len + BLOB_ATTR_ALIGN - 1) & ~static_cast<size_t>(BLOB_ATTR_ALIGN - 1);
}

bool grow_buffer(blob_buf *buf, int minlen) {
    const size_t wanted = (static_cast<size_t>(buf->buflen) + static_cast<size_t>(minlen)) | (GROWTH_STEP - 1);
    void *grown = realloc(buf->buf, wanted + 1);
    if (!grown)
        return false;
    buf->buf = grown;
    buf->head = static_cast<blob_attr *>(grown);
    buf->buflen = static_cast<int>(wanted + 1);
    return true;
}

void set_word(blob_attr *attr, unsigned id, bool extended, size_t raw_len) {
    const uint32_t word = ((id << BLOB_ATTR_ID_SHIFT) & BLOB_ATTR_ID_MASK) |
                          (static_cast<uint32_t>(raw_len) & BLOB_ATTR_LEN_MASK) | (extended ? BLOB_ATTR_EXTENDED : 0);
    attr->id_len = htobe32(word);
}

void set_raw_len(blob_attr *attr, size_t raw_len) {
    set_word(attr, blob_id(attr), blob_is_extended(attr), raw_len);
}

} // namespace

int blob_buf_init(struct blob_buf *buf, int id) {
    if (!buf->grow)
        buf->grow = grow_buffer;
    if (!buf->buf && !buf->grow(buf, static_cast<int>(GROWTH_STEP)))
        return -1;
    buf->head = static_cast<blob_attr *>(buf->buf);
    set_word(buf->head, static_cast<unsigned>(id), false, sizeof(blob_attr));
    return 0;
}

void blob_buf_free(struct blob_buf *buf) {
    free(buf->buf);
    *buf = {};
}

struct blob_attr *blob_put(struct blob_buf *buf, int id, const void *ptr, unsigned int len) {
    const size_t used = blob_pad_len(buf->head);
    const size_t raw_len = sizeof(blob_attr) + len;
    const size_t needed = used + padded(raw_len);
    if (needed > BLOB_ATTR_LEN_MASK)
        return nullptr;
    const auto capacity = static_cast<size_t>(buf->buflen);
    if (needed > capacity && !buf->grow(buf, static_cast<int>(needed - capacity)))
        return nullptr;
    auto *attr = reinterpret_cast<blob_attr *>(static_cast<char *>(buf->buf) + used);
    memset(attr, 0, padded(raw_len));
    set_word(attr, static_cast<unsigned>(id), false, raw_len);
    if (ptr && len)
        memcpy(blob_data(attr), ptr, len);
    set_raw_len(buf->head, needed);
    return attr;
}

struct blob_attr *blob_put_u8(struct blob_buf *buf, int id, uint8_t val) {
    return blob_put(buf, id, &val, sizeof(val));
}

struct blob_attr *blob_put_u32(struct blob_buf *buf, int id, uint32_t val) {
    const uint32_t wire = htobe32(val);
    return blob_put(buf, id, &wire, sizeof(wire));
}

struct blob_attr *blob_put_string(struct blob_buf *buf, int id, const char *str) {
    return blob_put(buf, id, str, static_cast<unsigned>(strlen(str) + 1));
}

// All is appended at the end of the buffer, so an enclosing attribute only has to learn, when it is closed, how far the
// message got meanwhile. The cookie is its offset, which is never 0 and survives the buffer's moving.
void *blob_nest_start(struct blob_buf *buf, int id) {
    const size_t offset = blob_pad_len(buf->head);
    return blob_put(buf, id, nullptr, 0) ? reinterpret_cast<void *>(offset) : nullptr;
}

void blob_nest_end(struct blob_buf *buf, void *cookie) {
    const auto offset = reinterpret_cast<size_t>(cookie);
    if (offset != 0)
        set_raw_len(reinterpret_cast<blob_attr *>(static_cast<char *>(buf->buf) + offset),
                    blob_pad_len(buf->head) - offset);
}
