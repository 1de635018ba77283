// The Realtek driver's operation table.
#pragma once

#include "adaptors/wlan_platform.h"

extern const wlan_platform wlan_platform_rtk;
