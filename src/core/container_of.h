// From a member that a callback is handed to the record that contains it.
#pragma once

#include <cstddef>

// The record of type `type` whose member `member` is at `pointer`.
#define KOLT_CONTAINER_OF(pointer, type, member)                                                                       \
    reinterpret_cast<type *>(reinterpret_cast<char *>(pointer) - offsetof(type, member))
