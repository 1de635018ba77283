// Finding a row of the path table by the kernel's index of its interface.
#pragma once

#include "path_selection/decide/paths.h"
#include "path_selection/interface_cache.h"

// The row whose name is that of the kernel interface `ifindex`, or null; an unknown index is logged.
ps_path *path_selection_get_path_by_port(interface_cache *interfaces, ps_path_table *paths, uint32_t ifindex);
