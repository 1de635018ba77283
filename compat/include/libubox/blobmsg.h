/*
 * Named, typed attributes: an extended blob attribute whose id is the type. Its payload begins with the name (16-bit
 * big-endian length, text, NUL, padded so that this head is a multiple of 4); the value follows, integers big-endian.
 * Readers are meant for attributes that blobmsg_parse() or blobmsg_check_attr_len() has accepted.
 */
#ifndef LIBUBOX_BLOBMSG_H
#define LIBUBOX_BLOBMSG_H

#include <libubox/blob.h>

enum blobmsg_type {
    BLOBMSG_TYPE_UNSPEC,
    BLOBMSG_TYPE_ARRAY,
    BLOBMSG_TYPE_TABLE,
    BLOBMSG_TYPE_STRING,
    BLOBMSG_TYPE_INT64,
    BLOBMSG_TYPE_INT32,
    BLOBMSG_TYPE_INT16,
    BLOBMSG_TYPE_INT8,
    BLOBMSG_TYPE_DOUBLE,
    __BLOBMSG_TYPE_LAST,
    BLOBMSG_TYPE_LAST = __BLOBMSG_TYPE_LAST - 1,
    BLOBMSG_TYPE_BOOL = BLOBMSG_TYPE_INT8
};

#define BLOBMSG_ALIGN 4u

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic" /* C++ has no flexible array members */
struct blobmsg_hdr {
    uint16_t namelen;
    uint8_t name[];
} __attribute__((packed));
#pragma GCC diagnostic pop

/* One attribute that blobmsg_parse() looks for. BLOBMSG_TYPE_UNSPEC takes any type. */
struct blobmsg_policy {
    const char *name;
    enum blobmsg_type type;
};

/* Bytes that a head with a name of `namelen` characters takes. */
static inline size_t blobmsg_hdrlen(size_t namelen) {
    return (sizeof(struct blobmsg_hdr) + namelen + 1 + BLOBMSG_ALIGN - 1) & ~(size_t)(BLOBMSG_ALIGN - 1);
}

static inline uint16_t blobmsg_namelen(const struct blobmsg_hdr *hdr) {
    return be16toh(hdr->namelen);
}

static inline const char *blobmsg_name(const struct blob_attr *attr) {
    return (const char *)blob_data(attr) + sizeof(struct blobmsg_hdr);
}

static inline int blobmsg_type(const struct blob_attr *attr) {
    return (int)blob_id(attr);
}

/* The value, behind the name. */
static inline void *blobmsg_data(const struct blob_attr *attr) {
    char *data = (char *)blob_data(attr);
    if (!blob_is_extended(attr))
        return data;
    return data + blobmsg_hdrlen(blobmsg_namelen((const struct blobmsg_hdr *)(const void *)data));
}

/* Length in bytes of the value. */
static inline size_t blobmsg_data_len(const struct blob_attr *attr) {
    return blob_len(attr) - (size_t)((char *)blobmsg_data(attr) - (char *)blob_data(attr));
}

static inline uint8_t blobmsg_get_u8(const struct blob_attr *attr) {
    return *(const uint8_t *)blobmsg_data(attr);
}

static inline bool blobmsg_get_bool(const struct blob_attr *attr) {
    return blobmsg_get_u8(attr) != 0;
}

static inline uint16_t blobmsg_get_u16(const struct blob_attr *attr) {
    uint16_t value;
    memcpy(&value, blobmsg_data(attr), sizeof(value));
    return be16toh(value);
}

static inline uint32_t blobmsg_get_u32(const struct blob_attr *attr) {
    uint32_t value;
    memcpy(&value, blobmsg_data(attr), sizeof(value));
    return be32toh(value);
}

static inline uint64_t blobmsg_get_u64(const struct blob_attr *attr) {
    uint64_t value;
    memcpy(&value, blobmsg_data(attr), sizeof(value));
    return be64toh(value);
}

/* The text inside the attribute, or null for a null attribute. */
static inline char *blobmsg_get_string(struct blob_attr *attr) {
    return attr ? (char *)blobmsg_data(attr) : NULL;
}

/*
 * Whether the attribute at `attr`, of which `len` bytes may be read, is whole: its name is inside and ends in NUL, its
 * type is known, its value has the size of that type, a string ends in NUL. With `name` it must also have a name.
 */
bool blobmsg_check_attr_len(const struct blob_attr *attr, bool name, size_t len);

/*
 * Finds the attributes that the `policy_len` rows name in the `len` bytes at `data`. `tb[i]` becomes the first one of
 * row i's name and type, pointing into `data`, or null. The walk ends where no whole attribute is left, however ragged
 * that end is. Returns 0, or a negative value when `data` is null, `len` is 0 or a whole attribute is malformed inside;
 * `tb` may then hold what stood in front of it.
 */
int blobmsg_parse(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb, void *data,
                  unsigned int len);

/* Starts a message of members without a head of its own. Returns as blob_buf_init(). */
static inline int blobmsg_buf_init(struct blob_buf *buf) {
    return blob_buf_init(buf, BLOBMSG_TYPE_TABLE);
}

/* Appends a member with `len` value bytes. Returns 0, or -1 when it does not fit or there is no memory. */
int blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data, unsigned int len);

int blobmsg_add_u8(struct blob_buf *buf, const char *name, uint8_t val);
int blobmsg_add_u16(struct blob_buf *buf, const char *name, uint16_t val);
int blobmsg_add_u32(struct blob_buf *buf, const char *name, uint32_t val);
int blobmsg_add_u64(struct blob_buf *buf, const char *name, uint64_t val);
int blobmsg_add_double(struct blob_buf *buf, const char *name, double val);
int blobmsg_add_string(struct blob_buf *buf, const char *name, const char *string);

/* Opens an array or a table as a member; returns the cookie that closes it, or null. */
void *blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array);

static inline void *blobmsg_open_array(struct blob_buf *buf, const char *name) {
    return blobmsg_open_nested(buf, name, true);
}

static inline void *blobmsg_open_table(struct blob_buf *buf, const char *name) {
    return blobmsg_open_nested(buf, name, false);
}

static inline void blobmsg_close_array(struct blob_buf *buf, void *cookie) {
    blob_nest_end(buf, cookie);
}

static inline void blobmsg_close_table(struct blob_buf *buf, void *cookie) {
    blob_nest_end(buf, cookie);
}

#endif
