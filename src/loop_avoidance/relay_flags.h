// Which ports relay, where that is not only a matter of the configuration.
#pragma once

#include "core/interface_list.h"
#include "core/work_mode.h"

// Sets the relay flags that depend on the work mode and on where Ethernet carries backhaul traffic; Wi-Fi ports keep
// their configured ones. The bridge is not told.
void loop_avoidance_set_relay_flags(port_span ports, kolt_work_mode mode);
