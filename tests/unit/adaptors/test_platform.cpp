#include "adaptors/rtk/rtk_platform.h"

#include <gtest/gtest.h>

namespace {

TEST(DriverTable, IsTheRealtekOneFromTheStart) {
    EXPECT_EQ(wlan_platform_ops, &wlan_platform_rtk);
}

} // namespace
