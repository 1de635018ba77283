// Owned json-c trees, and the member look-up that both the configuration and the runtime files read through.
#pragma once

#include "core/handle.h"

#include <json-c/json.h>

using json_ptr = kolt_handle<json_object, json_object_put>;

// The member `key` of `object`, borrowed from it; null when `object` is not an object, or lacks the key, or has a JSON
// null there.
inline json_object *json_member(json_object *object, const char *key) {
    json_object *member = nullptr;
    if (!json_object_object_get_ex(object, key, &member))
        return nullptr;
    return member;
}

// The text of the member `key`, borrowed from `object`; any value but null has one (a number reads as its digits).
inline const char *json_member_text(json_object *object, const char *key) {
    json_object *member = json_member(object, key);
    return member ? json_object_get_string(member) : nullptr;
}
