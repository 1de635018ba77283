// The capacity that is left on a path.
#pragma once

#include "path_selection/decide/paths.h"

// Sets the type and the quota of the present row of `type`, `reserved_ratio` percent of every path being kept free. An
// overloaded processor leaves 2.4 GHz nothing. Whether it was that.
bool ps_set_quota(ps_path *row, kolt_link_type type, int reserved_ratio, bool cpu_overloaded);
