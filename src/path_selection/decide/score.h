// Which path has the most capacity.
#pragma once

#include "path_selection/decide/paths.h"

#include <cstdint>

// The path's capacity, weighted with its priority.
uint64_t ps_score(const ps_path &row);

// The usable path with the highest score, the lower type among equals; for a client behind a relay port the first
// usable one. Null without any.
ps_path *ps_find_best_path(ps_path_table *paths, bool relay_client);
