// What was chosen most often lately, and how much the node carries.
#include "path_selection/decide/majority.h"
#include "support/rows.h"

#include <algorithm>
#include <random>
#include <vector>

namespace {

ps_hd_ring ring_of(const std::vector<int> &choices) {
    ps_hd_ring ring;
    ring.fill(PATH_NONE);
    std::copy(choices.begin(), choices.end(), ring.begin());
    return ring;
}

struct ring_row {
    const char *name;
    std::vector<int> ring;
    int32_t expected;
};

class RingMajority : public table_test<ring_row> {};

INSTANTIATE_TEST_SUITE_P(
    Rows, RingMajority,
    testing::Values(ring_row{"Empty", {}, 4}, ring_row{"One", {1}, 1}, ring_row{"Ethernet", {0, 0}, 0},
                    ring_row{"TieOfTwoGoesToTheHigher", {3, 3, 4, 4}, 4},
                    ring_row{"TieDoesNotDependOnTheOrder", {4, 3, 4, 3}, 4}, ring_row{"TieOfTheLower", {2, 0, 0, 2}, 2},
                    ring_row{"MoreOfTheLower", {0, 0, 4}, 0},
                    ring_row{"EndsAtTheFirstEmptySlot", {2, 3, 5, 2, 2, 2}, 3},
                    ring_row{"EmptyFirstSlotHidesAllOthers", {5, 1, 1, 1}, 4},
                    ring_row{"TieOfAllFive", {0, 1, 2, 3, 4}, 4},
                    ring_row{"FullRing", {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 2, 2, 2, 2}, 1},
                    ring_row{"FullRingTie", {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 1},
                    ring_row{"LastSlotCounts", {1, 1, 1, 1, 1, 1, 1, 1, 1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 0, 1}, 1}),
    row_name<ring_row>);

TEST_P(RingMajority, MostFrequentChoiceAndTheHigherTypeAmongEqualsWins) {
    EXPECT_EQ(static_cast<int32_t>(ps_majority_choice(ring_of(GetParam().ring))), GetParam().expected);
}

TEST(RingMajorityModel, MajorityOfRandomRingsIsThatOfThePlainModel) {
    std::mt19937 random(20240503);
    std::uniform_int_distribution<int> any(0, 5);
    std::uniform_int_distribution<int> used(0, 4);
    std::uniform_int_distribution<size_t> length(0, PS_HD_SAMPLES);
    for (int round = 0; round < 3000; round++) {
        std::vector<int> ring(length(random));
        std::ranges::generate(ring, [&] { return round % 3 == 0 ? any(random) : used(random); });
        const auto end = std::find(ring.begin(), ring.end(), 5);
        int winner = 4;
        for (int type = 3; type >= 0; type--) {
            if (std::count(ring.begin(), end, type) > std::count(ring.begin(), end, winner))
                winner = type;
        }
        ASSERT_EQ(static_cast<int>(ps_majority_choice(ring_of(ring))), winner) << "round " << round;
    }
}

TEST(MovedBytes, MovedBytesAreTheSumOfAllPathsInTheSlotOnly) {
    ps_history_table histories;
    for (const kolt_link_type type : KOLT_LINKS) {
        histories[type].data_rate[2] = 600000 + type;
        histories[type].data_rate[3] = 1;
    }
    EXPECT_EQ(ps_moved_bytes(histories, 2), 3000010U);
    EXPECT_EQ(ps_moved_bytes(histories, 3), 5U);
    EXPECT_EQ(ps_moved_bytes(histories, 4), 0U);
}

TEST(MovedBytes, MovedBytesWrapAt32Bits) {
    ps_history_table histories;
    histories[KOLT_LINK_ETHERNET].data_rate[0] = 4294967295U;
    histories[KOLT_LINK_5G_2].data_rate[0] = 3000001;
    EXPECT_EQ(ps_moved_bytes(histories, 0), 3000000U);
}

} // namespace
