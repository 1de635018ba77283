// Whether the paths as a whole are overloaded, or full.
#pragma once

#include "path_selection/decide/paths.h"

#include <cstdint>

// Whether the utilisation of any present path is above the threshold, in percent.
bool ps_is_any_overloaded(const ps_path_table &paths, int high_threshold);

// What the test for full load found. With room, `lighter` is the path that has it, and `loaded` the one that it was
// compared with.
struct ps_full_load {
    bool full = false;
    kolt_link_type loaded = PATH_NONE;
    kolt_link_type lighter = PATH_NONE;
};

// Full when every usable Wi-Fi path is above the high threshold and none is lighter than another by more than the
// delta, both in percent; not without any.
ps_full_load ps_check_full_load(const ps_path_table &paths, int high_threshold, int delta_threshold);

// Whether a path is overloaded, and by more than the delta fuller than the best one.
bool ps_is_overloaded_beside(const ps_path &path, const ps_path &best, int high_threshold, int delta_threshold);
