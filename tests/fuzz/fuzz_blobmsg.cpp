// Any bytes as the members of a message: what is parsed can be read, nested members included.
#include "c_headers.h"

#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr blobmsg_policy POLICY[] = {{"mode", BLOBMSG_TYPE_STRING}, {"dbg_level", BLOBMSG_TYPE_INT32},
                                     {"flag", BLOBMSG_TYPE_BOOL},   {"port", BLOBMSG_TYPE_INT16},
                                     {"bytes", BLOBMSG_TYPE_INT64}, {"data", BLOBMSG_TYPE_TABLE},
                                     {"list", BLOBMSG_TYPE_ARRAY},  {"any", BLOBMSG_TYPE_UNSPEC}};
constexpr int ROWS = 8;
constexpr int DEEPEST = 20;

volatile uint64_t sink;

void require(bool holds) {
    if (!holds)
        abort();
}

void parse(void *data, size_t size, int depth);

void read(blob_attr *attr, int depth) {
    sink = strlen(blobmsg_name(attr));
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_STRING:
        require(strlen(blobmsg_get_string(attr)) < blobmsg_data_len(attr));
        break;
    case BLOBMSG_TYPE_INT64:
        sink = blobmsg_get_u64(attr);
        break;
    case BLOBMSG_TYPE_INT32:
        sink = blobmsg_get_u32(attr);
        break;
    case BLOBMSG_TYPE_INT16:
        sink = blobmsg_get_u16(attr);
        break;
    case BLOBMSG_TYPE_INT8:
        sink = blobmsg_get_bool(attr);
        break;
    case BLOBMSG_TYPE_TABLE:
    case BLOBMSG_TYPE_ARRAY:
        if (depth < DEEPEST)
            parse(blobmsg_data(attr), blobmsg_data_len(attr), depth + 1);
        break;
    default:
        break;
    }
}

void parse(void *data, size_t size, int depth) {
    blob_attr *found[ROWS];
    const int result = blobmsg_parse(POLICY, ROWS, found, data, static_cast<unsigned>(size));
    require(size != 0 || result < 0);
    for (int i = 0; i < ROWS; i++) {
        require(!found[i] || POLICY[i].type == BLOBMSG_TYPE_UNSPEC || blobmsg_type(found[i]) == POLICY[i].type);
        if (found[i])
            read(found[i], depth);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // A block of its own: attributes are aligned in it, and a byte behind it is out of bounds.
    const std::unique_ptr<char[]> copy(new char[size]);
    if (size > 0)
        memcpy(copy.get(), data, size);
    parse(copy.get(), size, 0);
    return 0;
}
