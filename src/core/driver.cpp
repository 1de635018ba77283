// The one place that names a driver. It belongs to the program rather than to a library, as main does: a program for
// another driver has a file like this of its own, in the folder that KOLT_DRIVER names.
#include "adaptors/rtk/rtk_platform.h"

const wlan_platform *wlan_platform_ops = &wlan_platform_rtk;
