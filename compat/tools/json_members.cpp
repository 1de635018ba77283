// Turning a JSON object's members into those of a bus message.
#include "json_members.h"

namespace {

bool add_integer(blob_buf *buf, const char *name, int64_t value) {
    if (value >= INT32_MIN && value <= INT32_MAX)
        return blobmsg_add_u32(buf, name, static_cast<uint32_t>(value)) == 0;
    return blobmsg_add_u64(buf, name, static_cast<uint64_t>(value)) == 0;
}

bool add_value(blob_buf *buf, const char *name, json_object *value);

bool add_array(blob_buf *buf, const char *name, json_object *array) {
    void *cookie = blobmsg_open_array(buf, name);
    bool added = cookie != nullptr;
    for (size_t i = 0; added && i < json_object_array_length(array); i++)
        added = add_value(buf, nullptr, json_object_array_get_idx(array, i));
    blobmsg_close_array(buf, cookie);
    return added;
}

bool add_table(blob_buf *buf, const char *name, json_object *object) {
    void *cookie = blobmsg_open_table(buf, name);
    const bool added = cookie && json_add_members(buf, object);
    blobmsg_close_table(buf, cookie);
    return added;
}

bool add_value(blob_buf *buf, const char *name, json_object *value) {
    switch (json_object_get_type(value)) {
    case json_type_boolean:
        return blobmsg_add_u8(buf, name, json_object_get_boolean(value) ? 1 : 0) == 0;
    case json_type_int:
        return add_integer(buf, name, json_object_get_int64(value));
    case json_type_double:
        return blobmsg_add_double(buf, name, json_object_get_double(value)) == 0;
    case json_type_string:
        return blobmsg_add_string(buf, name, json_object_get_string(value)) == 0;
    case json_type_array:
        return add_array(buf, name, value);
    case json_type_object:
        return add_table(buf, name, value);
    case json_type_null:
        break;
    }
    return blobmsg_add_field(buf, BLOBMSG_TYPE_UNSPEC, name, nullptr, 0) == 0;
}

} // namespace

bool json_add_members(blob_buf *buf, json_object *object) {
    json_object_iterator member = json_object_iter_begin(object);
    const json_object_iterator end = json_object_iter_end(object);
    for (; !json_object_iter_equal(&member, &end); json_object_iter_next(&member)) {
        if (!add_value(buf, json_object_iter_peek_name(&member), json_object_iter_peek_value(&member)))
            return false;
    }
    return true;
}
