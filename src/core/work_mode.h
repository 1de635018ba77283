// The role that the node plays in the mesh.
#pragma once

#include <cstdint>

enum kolt_work_mode : uint32_t {
    KOLT_MODE_RE = 0,
    KOLT_MODE_FAP = 1, // "FAP" and "AP"
    KOLT_MODE_HAP = 2,
    KOLT_MODE_UNKNOWN = 3, // not told; in a configure event: keep the current one
};
