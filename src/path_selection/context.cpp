// One instance, which outlives the module's record.
#include "path_selection/context.h"

constinit path_selection_context path_selection_ctx;
