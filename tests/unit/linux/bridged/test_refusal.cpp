// Which bridges cannot be kept free of loops. Some kernels cannot even be set so.
#include "bridged/refusal.h"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::IsNull;

namespace {

TEST(Refusal, OrdinaryBridgeIsFine) {
    EXPECT_THAT(refusal_of({.mcast_snooping = true, .ageing_ticks = 100}), IsNull());
}

TEST(Refusal, OnlyOneSpanningTreeDecides) {
    EXPECT_THAT(refusal_of({.stp = 1}), HasSubstr("spanning tree"));
    EXPECT_THAT(refusal_of({.stp = 2}), HasSubstr("spanning tree")) << "a daemon's";
}

TEST(Refusal, VlansAreNotToldApart) {
    EXPECT_THAT(refusal_of({.vlan_filtering = true}), HasSubstr("VLANs"));
}

TEST(Refusal, FramesToANeighbourEndThere) {
    for (int bit = 0; bit < 16; bit++)
        EXPECT_THAT(refusal_of({.group_fwd_mask = static_cast<uint16_t>(1U << bit)}), HasSubstr("group_fwd_mask"));
}

} // namespace
