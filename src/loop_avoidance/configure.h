// The full programming of the bridges.
#pragma once

#include "core/config.h"
#include "core/work_mode.h"

// Programs every active loop-avoiding bridge in full for a work mode. Refusals of the library are logged and survived.
void loop_avoidance_configure_bridge_with_mode(config *config, kolt_work_mode mode);

// The same for the node's current work mode.
void loop_avoidance_reconfigure(config *config);

// The name of a work mode in the log.
const char *kolt_work_mode_name(kolt_work_mode mode);
