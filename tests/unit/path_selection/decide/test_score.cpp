// Which path has the most capacity.
#include "path_selection/decide/score.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int NOBODY = -1;

class BestPath : public testing::Test {
protected:
    // The type of the best row.
    int best(bool relay_client = false) {
        const ps_path *row = ps_find_best_path(&rows_, relay_client);
        return row == nullptr ? NOBODY : static_cast<int>(row - rows_.data());
    }
    void add(kolt_link_type type, int16_t quota, uint16_t rate, uint8_t priority = 0) {
        ps_path &row = rows_.at(type);
        row.name[0] = static_cast<char>('a' + type);
        row.path = type;
        row.quota = quota;
        row.rate = rate;
        row.priority = priority;
    }
    ps_path_table rows_;
};

TEST_F(BestPath, NoPathIsBestWithoutRows) {
    EXPECT_EQ(best(), NOBODY);
    EXPECT_EQ(best(true), NOBODY);
}

TEST_F(BestPath, HigherCapacityWins) {
    add(KOLT_LINK_2G, 8000, 100); // 100 x 8000 = 800000
    add(KOLT_LINK_5G, 5000, 300); // 100 x 15000 = 1500000
    EXPECT_EQ(best(), 3);
}

TEST_F(BestPath, LowerTypeWinsAmongEqualScores) {
    add(KOLT_LINK_2G, 3000, 100); // 300000
    add(KOLT_LINK_5G, 1000, 300); // 300000
    add(KOLT_LINK_5G_2, 1000, 300);
    EXPECT_EQ(best(), 2);
    rows_[2].name[0] = '\0';
    EXPECT_EQ(best(), 3);
}

TEST_F(BestPath, PriorityCountsTwentyPercentAStep) {
    add(KOLT_LINK_2G, 1000, 120);    // 100 x 1200 = 120000
    add(KOLT_LINK_5G, 1000, 100, 1); // 120 x 1000 = 120000
    EXPECT_EQ(best(), 2) << "equal";
    add(KOLT_LINK_5G, 1000, 100, 2); // 140 x 1000 = 140000
    EXPECT_EQ(best(), 3);
    add(KOLT_LINK_2G, 1000, 301);     // 100 x 3010 = 301000
    add(KOLT_LINK_5G, 1000, 100, 10); // 300 x 1000 = 300000
    EXPECT_EQ(best(), 2);
}

TEST_F(BestPath, ScoreIsDividedBeforeItIsWeighed) {
    add(KOLT_LINK_2G, 199, 1); // 199 / 100 = 1, 100
    add(KOLT_LINK_5G, 100, 1); // 100 / 100 = 1, 100
    EXPECT_EQ(best(), 2) << "equal once truncated";
    add(KOLT_LINK_2G, 100, 1); // 100
    add(KOLT_LINK_5G, 199, 1); // 100
    EXPECT_EQ(best(), 2);
    add(KOLT_LINK_5G, 200, 1); // 200
    EXPECT_EQ(best(), 3);
    add(KOLT_LINK_2G, 150, 100); // 15000 / 100 = 150, 15000
    add(KOLT_LINK_5G, 100, 120); // 12000 / 100 = 120, 12000
    EXPECT_EQ(best(), 2) << "the quota is not cut to whole percents first";
}

TEST_F(BestPath, BestPathMayHaveNoCapacityAtAll) {
    add(KOLT_LINK_5G, 0, 300);
    EXPECT_EQ(best(), 3) << "the first considered row is taken";
    add(KOLT_LINK_5G_2, 0, 300, 10);
    EXPECT_EQ(best(), 3);
    add(KOLT_LINK_2G, 99, 1);
    EXPECT_EQ(best(), 2) << "99 / 100 is 0, a tie";
    add(KOLT_LINK_5G_2, 100, 1);
    EXPECT_EQ(best(), 4);
}

TEST_F(BestPath, BestPathIsPresentAndHasARate) {
    add(KOLT_LINK_PLC, 10000, 0);
    add(KOLT_LINK_2G, 10000, 65535);
    rows_[2].name[0] = '\0';
    add(KOLT_LINK_5G_2, 1, 1);
    EXPECT_EQ(best(), 4);
}

TEST_F(BestPath, BestPathMayBeOfAnyType) {
    for (const kolt_link_type type : KOLT_LINKS) {
        rows_ = {};
        add(type, 5000, 100);
        EXPECT_EQ(best(), static_cast<int>(type));
    }
}

TEST_F(BestPath, ScoreDoesNotOverflowAtTheLargestValues) {
    add(KOLT_LINK_2G, 32767, 65535, 254); // (100 + 5080) x 21473853
    add(KOLT_LINK_5G, 32767, 65535, 255);
    EXPECT_EQ(best(), 3);
    add(KOLT_LINK_5G_2, 32767, 65534, 255); // 21473526
    EXPECT_EQ(best(), 3);
}

TEST_F(BestPath, NegativeScoresCompareAsVeryLargeOnes) {
    add(KOLT_LINK_2G, 10000, 65535, 10);
    add(KOLT_LINK_5G, -100, 1); // -100, read as 2^64 - 100
    EXPECT_EQ(best(), 3);
    add(KOLT_LINK_5G_2, -200, 1); // -200
    EXPECT_EQ(best(), 3) << "2^64 - 100 is greater than 2^64 - 200";
    add(KOLT_LINK_5G, -99, 1); // -99 / 100 is 0, not -1
    EXPECT_EQ(best(), 4);
}

TEST_F(BestPath, RelayClientGetsTheFirstUsableRow) {
    add(KOLT_LINK_PLC, 10000, 0);
    add(KOLT_LINK_2G, 0, 1);
    add(KOLT_LINK_5G, 10000, 1000, 10);
    EXPECT_EQ(best(true), 2);
    EXPECT_EQ(best(false), 3);
}

// ---- A plain model, written from the words: all usable rows, sorted by their scores.

struct scored_row {
    int type;
    bool negative; // as an unsigned number it lies above every other
    int64_t score;
};

std::optional<scored_row> score(const ps_path_table &rows, int type) {
    const ps_path &row = rows.at(static_cast<size_t>(type));
    if (strlen(row.name) == 0 || row.rate == 0)
        return std::nullopt;
    const int64_t product = int64_t{row.quota} * row.rate;
    const int64_t hundredth = product < 0 ? -(-product / 100) : product / 100;
    const int64_t weighed = hundredth * 100 + hundredth * 20 * row.priority;
    return scored_row{type, weighed < 0, weighed};
}

int model_of_best_path(const ps_path_table &rows) {
    std::vector<scored_row> usable;
    for (int type = 0; type < 5; type++) {
        if (const auto row = score(rows, type))
            usable.push_back(*row);
    }
    std::ranges::stable_sort(usable, [](const scored_row &a, const scored_row &b) {
        return a.negative != b.negative ? a.negative : a.score > b.score;
    });
    return usable.empty() ? NOBODY : usable.front().type;
}

TEST_F(BestPath, BestOfRandomRowsIsThatOfThePlainModel) {
    std::mt19937 random(20240611); // the same rows in every run
    const auto below = [&random](uint32_t bound) { return random() % bound; };
    int chosen[6] = {};
    for (int round = 0; round < 50000; round++) {
        rows_ = {};
        const bool coarse = below(2) == 0; // coarse rows tie often
        for (const kolt_link_type type : KOLT_LINKS) {
            if (below(4) == 0)
                continue;
            const auto quota = static_cast<int16_t>(coarse ? below(5) * 1000 : below(65536));
            const auto rate = static_cast<uint16_t>(coarse ? below(4) * 100 : below(65536));
            const auto priority = static_cast<uint8_t>(coarse ? below(3) : below(256));
            add(type, coarse || below(4) == 0 ? quota : static_cast<int16_t>(quota & 0x3FFF), rate, priority);
        }
        const int expected = model_of_best_path(rows_);
        ASSERT_EQ(best(), expected) << "round " << round;
        chosen[expected + 1]++;
    }
    EXPECT_THAT(chosen, testing::Each(testing::Gt(50))) << "every outcome comes up, none included";
}

} // namespace
