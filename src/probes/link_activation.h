// Keeping an idle link awake.
#pragma once

#include <cstdint>

// Sends one frame to `mac` through `ifname`, so that the driver goes on measuring an idle link; up to three attempts. 1
// once the socket was opened, also when no attempt succeeded; 0 for a null argument or without a socket.
int kolt_activate_link(const char *ifname, const uint8_t *mac);
