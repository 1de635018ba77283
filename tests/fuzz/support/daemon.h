// The daemon's hub and both modules, built once on the replaced platform, files and sockets. What a module is told lies
// in a block of its own, so that what it reads behind the message is out of bounds.
#pragma once

#include "core/config.h"
#include "support/files.h"
#include "support/platform.h"
#include "support/sockets.h"

// The files in which the node's other daemons tell its state.
constexpr const char *DAEMON_RUNTIME_FILES[] = {
    "/tmp/work_mode",
    "/tmp/eth_runtime_info",
    "/tmp/plc_runtime_info",
    "/tmp/wifi_runtime_info.2g",
    "/tmp/wifi_runtime_info.5g",
    "/tmp/wifi_runtime_info.5g2",
    "/tmp/lanwatch_recv_dhcp_if",
    "/tmp/sync-server/mesh_dev_list",
    "/tmp/runtime_ip_info_lan",
    "/tmp/client_mgmt/ap_client_list",
};

// The files of the Wi-Fi driver: of the 2.4 GHz radio, and of the others.
constexpr const char *DAEMON_DRIVER_FILES[] = {"/proc/wlan0/sta_info", "/proc/wlan0/stats", "sta_info", "stats"};

// The daemon as it is after its start: configuration, platform and log level are as in every input, whatever the one
// before made of them; and without any of its files.
config *daemon_anew();

// Runs the handler of the socket of a protocol, 39, 0 or 53, as the loop does when something can be read.
void daemon_receive(int protocol);

// Runs a period of path selection.
void daemon_period();

// Calls of the flow cache and of the driver that were made.
extern int daemon_flow_calls;
