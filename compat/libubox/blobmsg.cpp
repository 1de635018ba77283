// Reading named attributes that may come from anyone.

#include "c_headers.h"

#include <cerrno>

namespace {

// Whether `len` value bytes are right for `type`.
bool value_fits(unsigned type, const char *value, size_t len) {
    switch (type) {
    case BLOBMSG_TYPE_STRING:
        return len > 0 && value[len - 1] == '\0';
    case BLOBMSG_TYPE_INT64:
    case BLOBMSG_TYPE_DOUBLE:
        return len == sizeof(uint64_t);
    case BLOBMSG_TYPE_INT32:
        return len == sizeof(uint32_t);
    case BLOBMSG_TYPE_INT16:
        return len == sizeof(uint16_t);
    case BLOBMSG_TYPE_INT8:
        return len == sizeof(uint8_t);
    default:
        return type <= BLOBMSG_TYPE_LAST;
    }
}

// Whether the head of an extended attribute is inside it and its name ends in NUL.
bool head_fits(const blob_attr *attr) {
    const size_t len = blob_len(attr);
    const auto *hdr = static_cast<const blobmsg_hdr *>(blob_data(attr));
    if (len < sizeof(blobmsg_hdr) || blobmsg_hdrlen(blobmsg_namelen(hdr)) > len)
        return false;
    return blobmsg_name(attr)[blobmsg_namelen(hdr)] == '\0';
}

bool matches(const blobmsg_policy &row, const blob_attr *attr) {
    if (!row.name || (row.type != BLOBMSG_TYPE_UNSPEC && blob_id(attr) != static_cast<unsigned>(row.type)))
        return false;
    const size_t namelen = blobmsg_namelen(static_cast<const blobmsg_hdr *>(blob_data(attr)));
    return strlen(row.name) == namelen && memcmp(row.name, blobmsg_name(attr), namelen) == 0;
}

} // namespace

bool blobmsg_check_attr_len(const struct blob_attr *attr, bool name, size_t len) {
    if (!blob_attr_fits(attr, len))
        return false;
    if (!blob_is_extended(attr))
        return !name; // it has no name to be checked, and its id need not be a type
    if (!head_fits(attr) || (name && blobmsg_name(attr)[0] == '\0'))
        return false;
    return value_fits(blob_id(attr), static_cast<const char *>(blobmsg_data(attr)), blobmsg_data_len(attr));
}

int blobmsg_parse(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb, void *data,
                  unsigned int len) {
    for (int i = 0; i < policy_len; i++)
        tb[i] = nullptr;
    if (!data || len == 0)
        return -EINVAL;
    size_t rem = len;
    blob_attr *attr;
    __blob_for_each_attr(attr, data, rem) {
        if (!blobmsg_check_attr_len(attr, false, rem))
            return -EINVAL;
        for (int i = 0; blob_is_extended(attr) && i < policy_len; i++) {
            if (!tb[i] && matches(policy[i], attr))
                tb[i] = attr;
        }
    }
    return 0;
}
