#include "path_selection/paths_test.h"

#include <optional>
#include <random>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int NOBODY = -1;

class BestPath : public testing::Test {
protected:
    // The type of the best row for a client with this relay flag.
    int best(uint8_t relay = 0) {
        kolt_client client;
        client.relay = relay;
        const ps_path *row = path_selection_get_best_path(client, &rows_);
        return row == nullptr ? NOBODY : static_cast<int>(row - rows_.data());
    }
    void add(uint32_t type, int16_t quota, uint16_t rate, uint8_t priority = 0) {
        rows_.at(type) = make_path(type, "path" + std::to_string(type), rate, quota, priority);
    }
    ps_path_table rows_;
};

TEST_F(BestPath, IsNoneWithoutRows) {
    EXPECT_EQ(best(), NOBODY);
    EXPECT_EQ(best(1), NOBODY);
}

TEST_F(BestPath, HasTheHigherCapacity) {
    add(2, 8000, 100); // 100 x 8000 = 800000
    add(3, 5000, 300); // 100 x 15000 = 1500000
    EXPECT_EQ(best(), 3);
}

TEST_F(BestPath, IsTheLowerTypeAmongEqualScores) {
    add(2, 3000, 100); // 300000
    add(3, 1000, 300); // 300000
    add(4, 1000, 300);
    EXPECT_EQ(best(), 2);
    rows_[2].name[0] = '\0';
    EXPECT_EQ(best(), 3);
}

TEST_F(BestPath, CountsPriorityAsTwentyPercentAStep) {
    add(2, 1000, 120);    // 100 x 1200 = 120000
    add(3, 1000, 100, 1); // 120 x 1000 = 120000
    EXPECT_EQ(best(), 2) << "equal";
    add(3, 1000, 100, 2); // 140 x 1000 = 140000
    EXPECT_EQ(best(), 3);
    add(2, 1000, 301);     // 100 x 3010 = 301000
    add(3, 1000, 100, 10); // 300 x 1000 = 300000
    EXPECT_EQ(best(), 2);
}

TEST_F(BestPath, DividesBeforeItWeighs) {
    add(2, 199, 1); // 199 / 100 = 1, 100
    add(3, 100, 1); // 100 / 100 = 1, 100
    EXPECT_EQ(best(), 2) << "equal once truncated";
    add(2, 100, 1); // 100
    add(3, 199, 1); // 100
    EXPECT_EQ(best(), 2);
    add(3, 200, 1); // 200
    EXPECT_EQ(best(), 3);
    add(2, 150, 100); // 15000 / 100 = 150, 15000
    add(3, 100, 120); // 12000 / 100 = 120, 12000
    EXPECT_EQ(best(), 2) << "the quota is not cut to whole percents first";
}

TEST_F(BestPath, MayHaveNoCapacityAtAll) {
    add(3, 0, 300);
    EXPECT_EQ(best(), 3) << "the first considered row is taken";
    add(4, 0, 300, 10);
    EXPECT_EQ(best(), 3);
    add(2, 99, 1);
    EXPECT_EQ(best(), 2) << "99 / 100 is 0, a tie";
    add(4, 100, 1);
    EXPECT_EQ(best(), 4);
}

TEST_F(BestPath, IsPresentAndHasARate) {
    add(1, 10000, 0);
    add(2, 10000, 65535);
    rows_[2].name[0] = '\0';
    add(4, 1, 1);
    EXPECT_EQ(best(), 4);
}

TEST_F(BestPath, MayBeOfAnyType) {
    for (uint32_t type = 0; type < 5; type++) {
        rows_ = {};
        add(type, 5000, 100);
        EXPECT_EQ(best(), static_cast<int>(type));
    }
}

TEST_F(BestPath, DoesNotOverflowAtTheLargestValues) {
    add(2, 32767, 65535, 254); // (100 + 5080) x 21473853
    add(3, 32767, 65535, 255);
    EXPECT_EQ(best(), 3);
    add(4, 32767, 65534, 255); // 21473526
    EXPECT_EQ(best(), 3);
}

TEST_F(BestPath, ComparesNegativeScoresAsVeryLargeOnes) {
    add(2, 10000, 65535, 10);
    add(3, -100, 1); // -100, read as 2^64 - 100
    EXPECT_EQ(best(), 3);
    add(4, -200, 1); // -200
    EXPECT_EQ(best(), 3) << "2^64 - 100 is greater than 2^64 - 200";
    add(3, -99, 1); // -99 / 100 is 0, not -1
    EXPECT_EQ(best(), 4);
}

TEST_F(BestPath, OfARelayClientIsTheFirstUsableRow) {
    add(1, 10000, 0);
    add(2, 0, 1);
    add(3, 10000, 1000, 10);
    EXPECT_EQ(best(1), 2);
    EXPECT_EQ(best(2), 3) << "only a relay flag of 1 is one";
    EXPECT_EQ(best(255), 3);
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

TEST_F(BestPath, AgreesWithAPlainModelOnRandomRows) {
    std::mt19937 random(20240611); // the same rows in every run
    const auto below = [&random](uint32_t bound) { return random() % bound; };
    int chosen[6] = {};
    for (int round = 0; round < 50000; round++) {
        rows_ = {};
        const bool coarse = below(2) == 0; // coarse rows tie often
        for (uint32_t type = 0; type < 5; type++) {
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

// ---- The preferred path

struct prefered_row {
    const char *name;
    uint32_t backhaul;
    uint16_t rate; // of the 5 GHz row
    uint16_t rate_threshold;
    int low_noise;
    int expected;
    bool asked; // whether the driver is asked for the noise
};
class PreferedPath : public Paths, public testing::WithParamInterface<named_row<prefered_row>> {};

TEST_P(PreferedPath, IsPresentQuietAndFasterThanTheThreshold) {
    const prefered_row &row = GetParam().row;
    ps_path_table rows;
    rows[3] = make_path(3, "wlan1.1", row.rate, 0);
    rows[3].util = 44;
    rows[3].util_adjustment = 5;
    platform.fail("is_5g_low_noise", row.low_noise);
    EXPECT_EQ(path_selection_is_prefered_path(rows, row.backhaul, row.rate_threshold), row.expected);
    if (row.asked)
        EXPECT_THAT(platform.calls, ElementsAre("is_5g_low_noise(" + std::to_string(row.rate) + ", 44, config)"));
    else
        EXPECT_THAT(platform.calls, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Rows, PreferedPath,
                         testing::Values(prefered_row{"Quiet", 3, 300, 4, 1, 1, true},
                                         prefered_row{"QuietByAnyResult", 3, 300, 4, -1, 1, true},
                                         prefered_row{"Noisy", 3, 300, 4, 0, 0, true},
                                         prefered_row{"BelowTheThreshold", 3, 299, 300, 1, 0, true},
                                         prefered_row{"AtTheThreshold", 3, 300, 300, 1, 0, true},
                                         prefered_row{"AboveTheThreshold", 3, 301, 300, 1, 1, true},
                                         prefered_row{"ThresholdOfNothing", 3, 1, 0, 1, 1, true},
                                         prefered_row{"ThresholdOfSixteenBits", 3, 65535, 65535, 1, 0, true},
                                         prefered_row{"WithoutARate", 3, 0, 0, 1, 0, false},
                                         prefered_row{"Absent", 2, 300, 4, 1, 0, false},
                                         prefered_row{"NoRow", 5, 300, 4, 1, 0, false},
                                         prefered_row{"FarOff", 256, 300, 4, 1, 0, false},
                                         prefered_row{"Farthest", 4294967295U, 300, 4, 1, 0, false}),
                         row_name<prefered_row>);

TEST_F(BestPath, IsNeverThePreferedOneWithADriverThatCannotTellTheNoise) {
    add(3, 5000, 300);
    wlan_platform table = scripted::table;
    table.is_5g_low_noise = nullptr;
    const installed_table without(&table);
    EXPECT_EQ(path_selection_is_prefered_path(rows_, 3, 4), 0);
    const installed_table none(nullptr);
    EXPECT_EQ(path_selection_is_prefered_path(rows_, 3, 4), 0);
}

TEST(NorelayClient, HasAnyRelayFlagButOne) {
    for (const auto &[relay, expected] : {std::pair{0, 1}, {1, 0}, {2, 1}, {255, 1}}) {
        kolt_client client;
        client.relay = static_cast<uint8_t>(relay);
        EXPECT_EQ(path_selection_is_norelay_client(client), expected) << relay;
    }
}

} // namespace
