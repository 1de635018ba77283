#include "path_selection/quota_units.h"

#include <gtest/gtest.h>

namespace {

TEST(StreamQuota, CountsTheRateInUnitsOf64BytesAMillisecond) {
    EXPECT_EQ(ps_stream_quota(64 * 5000, 5000, 1).rate, 1U);
    EXPECT_EQ(ps_stream_quota(64 * 5000 - 1, 5000, 1).rate, 0U);
    EXPECT_EQ(ps_stream_quota(4294967295U, 1, 1).rate, 67108863U);
}

TEST(StreamQuota, IsTheShareOfThePathInHundredthsOfAPercent) {
    EXPECT_EQ(ps_stream_quota(64 * 1000 * 30, 1000, 300).quota, 1000U);
    EXPECT_EQ(ps_stream_quota(64 * 1000 * 30, 1000, 299).quota, 1003U) << "300000 / 299 is truncated";
}

TEST(StreamQuota, WrapsAt32Bits) {
    // 429497 * 10000 is 2^32 + 2704.
    EXPECT_EQ(ps_stream_quota(429497U * 64, 1, 2).quota, 1352U);
}

TEST(StreamQuota, IsNothingWithoutAPeriodOrARate) {
    EXPECT_EQ(ps_stream_quota(1000000, 0, 300).quota, 0U);
    EXPECT_EQ(ps_stream_quota(1000000, 1000, 0).quota, 0U);
}

} // namespace
