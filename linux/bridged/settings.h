// What the command line of kolt-bridged decides. What the node's bridges and links are, the daemon's own file says.
#pragma once

#include "core/work_mode.h"

#include <cstddef>
#include <cstdint>

// Names of files in it are put together in places of a fixed size.
constexpr size_t LONGEST_RUN_FOLDER = 60;

enum bridged_action : uint8_t { BRIDGED_RUN, BRIDGED_CHECK, BRIDGED_RELEASE };

struct bridged_settings {
    bridged_action action = BRIDGED_RUN;
    const char *config_file = "/etc/kolt.json";
    const char *run_folder = "/run/kolt-bridged"; // at most LONGEST_RUN_FOLDER bytes
    const char *pin_folder = "/sys/fs/bpf/kolt";
    kolt_work_mode mode = KOLT_MODE_RE;
    uint32_t interval_ms = 100; // between two frames to a neighbour; three missing ones are a dead link
    uint32_t listen_ms = 400;   // how long a port without a neighbour is listened to before it is opened
};

// Reads the command line into `settings`. True when the program is to go on; otherwise *status is its exit status,
// after the usage or the version was written. `settings` keeps pointers into `argv`.
[[nodiscard]] bool settings_read(int argc, char **argv, bridged_settings *settings, int *status);
