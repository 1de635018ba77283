// The one place that names a driver.
#include "adaptors/rtk.h"
#include "adaptors/wlan_platform.h"

const wlan_platform *wlan_platform_ops = &wlan_platform_rtk;
