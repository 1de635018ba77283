// Damping of the HD path: what was chosen most often lately, and how much the node carries.
#pragma once

#include "path_selection/decide/paths.h"

#include <cstddef>
#include <cstdint>

// The type with the most entries before the first empty one; the higher type among equals, so the highest without any.
kolt_link_type ps_majority_choice(const ps_hd_ring &ring);

// The bytes that all paths together moved in the period of a slot of their histories, in wrapping 32-bit arithmetic.
uint32_t ps_moved_bytes(const ps_history_table &histories, size_t slot);
