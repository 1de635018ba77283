// What path selection keeps as long as the process lives.
#pragma once

#include "core/config.h"
#include "path_selection/decide/paths.h"

struct path_selection_context {
    config *configuration = nullptr;
    ps_history_table histories;
    ps_hd_ring hd_sample_ring = {};
    uint8_t hd_sample_index = 0;    // the next slot to write
    uint8_t last_adjust_status = 1; // whether the period before was an adjusting one
};

extern path_selection_context path_selection_ctx;
