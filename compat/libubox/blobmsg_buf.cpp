// Building named attributes.

#include "c_headers.h"

namespace {

// Appends an attribute of `type` with its head and room for `len` value bytes.
blob_attr *put_named(blob_buf *buf, int type, const char *name, unsigned len) {
    const size_t namelen = name ? strlen(name) : 0;
    const size_t head = blobmsg_hdrlen(namelen);
    if (namelen > UINT16_MAX || head + len > BLOB_ATTR_LEN_MASK)
        return nullptr;
    blob_attr *attr = blob_put(buf, type, nullptr, static_cast<unsigned>(head + len));
    if (!attr)
        return nullptr;
    attr->id_len |= htobe32(BLOB_ATTR_EXTENDED);
    auto *hdr = static_cast<blobmsg_hdr *>(blob_data(attr));
    hdr->namelen = htobe16(static_cast<uint16_t>(namelen));
    if (namelen > 0)
        memcpy(hdr->name, name, namelen);
    return attr;
}

} // namespace

int blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data, unsigned int len) {
    const blob_attr *attr = put_named(buf, type, name, len);
    if (!attr)
        return -1;
    if (len > 0)
        memcpy(blobmsg_data(attr), data, len);
    return 0;
}

int blobmsg_add_u8(struct blob_buf *buf, const char *name, uint8_t val) {
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT8, name, &val, sizeof(val));
}

int blobmsg_add_u16(struct blob_buf *buf, const char *name, uint16_t val) {
    const uint16_t wire = htobe16(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT16, name, &wire, sizeof(wire));
}

int blobmsg_add_u32(struct blob_buf *buf, const char *name, uint32_t val) {
    const uint32_t wire = htobe32(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT32, name, &wire, sizeof(wire));
}

int blobmsg_add_u64(struct blob_buf *buf, const char *name, uint64_t val) {
    const uint64_t wire = htobe64(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT64, name, &wire, sizeof(wire));
}

int blobmsg_add_double(struct blob_buf *buf, const char *name, double val) {
    uint64_t bits;
    static_assert(sizeof(bits) == sizeof(val));
    memcpy(&bits, &val, sizeof(bits));
    const uint64_t wire = htobe64(bits);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_DOUBLE, name, &wire, sizeof(wire));
}

int blobmsg_add_string(struct blob_buf *buf, const char *name, const char *string) {
    return blobmsg_add_field(buf, BLOBMSG_TYPE_STRING, name, string, static_cast<unsigned>(strlen(string) + 1));
}

// The head of the new attribute is part of its payload, so what blob_nest_end() computes covers it too.
void *blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array) {
    const size_t offset = blob_pad_len(buf->head);
    const int type = array ? BLOBMSG_TYPE_ARRAY : BLOBMSG_TYPE_TABLE;
    return put_named(buf, type, name, 0) ? reinterpret_cast<void *>(offset) : nullptr;
}
