// JSON objects as members of a bus message.
#pragma once

#include "c_headers.h"

#include <json-c/json.h>

// Appends the members of the JSON object: booleans as int8, integers as int32 or, when they do not fit, int64. False
// without memory or when the message gets too long.
[[nodiscard]] bool json_add_members(blob_buf *buf, json_object *object);
