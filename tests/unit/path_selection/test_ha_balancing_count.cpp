// How many of a client's streams the best path can take, and which paths they may leave.
#include "path_selection/ha_test.h"

#include <random>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- How many streams the best path can take

struct count_row {
    const char *name;
    uint8_t ratio;
    int16_t quota;
    std::vector<std::pair<uint32_t, uint32_t>> streams; // port and quota
    int expected;
};

void PrintTo(const count_row &row, std::ostream *out) {
    *out << row.name;
}

class AdjustNum : public HaStreams, public testing::WithParamInterface<count_row> {};

constexpr uint32_t H = HOT_PORT;
constexpr uint32_t B = BEST_PORT;

INSTANTIATE_TEST_SUITE_P(
    Rows, AdjustNum,
    testing::Values(count_row{"NoStream", 50, 10000, {}, 0}, count_row{"OneThatFits", 50, 10000, {{H, 100}}, 1},
                    count_row{"LastOneMayGoBeyondTheBudget", 50, 2000, {{H, 1500}, {H, 1}}, 1},
                    count_row{"BudgetLeft1", 50, 2000, {{H, 999}, {H, 1}, {H, 1}}, 2},
                    count_row{"BudgetLeft0", 50, 2000, {{H, 1000}, {H, 1}}, 1},
                    count_row{"BudgetBelow1FromTheStart", 50, 1, {{H, 1}}, 0},
                    count_row{"BudgetTruncatedTo1", 50, 3, {{H, 1}, {H, 1}}, 1},
                    count_row{"BudgetOf1", 50, 2, {{H, 1}, {H, 1}}, 1}, count_row{"RatioOf0", 0, 10000, {{H, 1}}, 0},
                    count_row{"RatioOf100", 100, 10000, {{H, 9999}, {H, 1}, {H, 1}}, 2},
                    count_row{"NegativeQuota", 50, -100, {{H, 1}}, 0},
                    count_row{"OnTheBestPathIsSkipped", 50, 200, {{B, 5000}, {H, 50}, {B, 1}, {H, 50}, {H, 1}}, 2},
                    count_row{"OnTheBestPathWithoutARateDoesNotStop", 50, 200, {{B, 0}, {H, 50}}, 1},
                    count_row{"StopsAtAStepOf0", 50, 10000, {{H, 10}, {H, 0}, {H, 10}}, 1},
                    count_row{"PathThatIsNotOverloadedCountsToo", 50, 10000, {{COOL_PORT, 10}, {99, 10}}, 2}),
    case_name);

TEST_P(AdjustNum, IsLimitedByTheSharedQuota) {
    const count_row &row = GetParam();
    config_.param.adjusted_ratio = row.ratio;
    best_.quota = row.quota;
    std::vector<ha_entry> streams;
    for (const auto &[port, quota] : row.streams)
        streams.push_back(stream(port, quota));
    set_streams(streams);
    EXPECT_EQ(path_selection_get_adjust_num(&config_, clients_[0].ha, best_), row.expected);
    EXPECT_EQ(best_.quota, row.quota);
    EXPECT_THAT(platform.calls, IsEmpty());
}

TEST_F(HaStreams, AdjustNumStopsAtTheFirstEmptyStream) {
    set_streams({stream(HOT_PORT, 10), ha_entry{}, stream(HOT_PORT, 10)});
    EXPECT_EQ(path_selection_get_adjust_num(&config_, clients_[0].ha, best_), 1);
}

TEST_F(HaStreams, AdjustNumIsAtMostTwenty) {
    set_streams(std::vector<ha_entry>(20, stream(HOT_PORT, 1)));
    EXPECT_EQ(path_selection_get_adjust_num(&config_, clients_[0].ha, best_), 20);
}

TEST_F(HaStreams, AdjustNumIsZeroWithoutAPeriodOrARate) {
    set_streams({stream(HOT_PORT, 10)});
    config_.param.period = 0;
    EXPECT_EQ(path_selection_get_adjust_num(&config_, clients_[0].ha, best_), 0);
    config_.param.period = 1000;
    best_.rate = 0;
    EXPECT_EQ(path_selection_get_adjust_num(&config_, clients_[0].ha, best_), 0);
}

TEST_F(HaStreams, AdjustNumAgreesWithAPlainModelOnRandomStreams) {
    std::mt19937 random(20240504);
    std::uniform_int_distribution<uint32_t> bytes(0, 20000000);
    std::uniform_int_distribution<int> rate(1, 2000);
    std::uniform_int_distribution<int> quota(-500, 12700);
    std::uniform_int_distribution<int> ratio(0, 100);
    std::uniform_int_distribution<size_t> length(0, 20);
    std::uniform_int_distribution<int> dice(0, 5);
    for (int round = 0; round < 4000; round++) {
        best_.rate = static_cast<uint16_t>(rate(random));
        best_.quota = static_cast<int16_t>(quota(random));
        config_.param.adjusted_ratio = static_cast<uint8_t>(ratio(random));
        config_.param.period = round % 2 == 0 ? 1000 : 5000;
        std::vector<ha_entry> streams(length(random));
        for (ha_entry &entry : streams) {
            entry = stream(dice(random) == 0 ? BEST_PORT : HOT_PORT, 0);
            entry.num_bytes = dice(random) == 0 ? bytes(random) / 100 : bytes(random);
        }
        set_streams(streams);

        long long left = config_.param.adjusted_ratio * best_.quota / 100;
        int expected = 0;
        for (const ha_entry &entry : streams) {
            if (left <= 0)
                break;
            if (entry.port == BEST_PORT)
                continue;
            // No product exceeds 32 bits here: 20000000 / 1000 / 64 * 10000 is 3120000.
            const long long units = entry.num_bytes / config_.param.period / 64;
            const long long step = units * 10000 / best_.rate;
            if (step == 0)
                break;
            left -= step;
            expected++;
        }
        ASSERT_EQ(path_selection_get_adjust_num(&config_, clients_[0].ha, best_), expected) << "round " << round;
    }
}

// ---- Overloaded paths

struct hot_row {
    const char *name;
    uint8_t util;
    int8_t adjustment;
    uint8_t best_util;
    int8_t best_adjustment;
    int expected;
};

void PrintTo(const hot_row &row, std::ostream *out) {
    *out << row.name;
}

class OverloadedPath : public HaStreams, public testing::WithParamInterface<hot_row> {};

INSTANTIATE_TEST_SUITE_P(
    Rows, OverloadedPath,
    testing::Values(hot_row{"AtTheThreshold", 70, 0, 0, 0, 0}, hot_row{"AboveTheThreshold", 71, 0, 0, 0, 1},
                    hot_row{"RaisedAboveIt", 60, 11, 0, 0, 1}, hot_row{"LoweredToIt", 80, -10, 0, 0, 0},
                    hot_row{"ByTheDelta", 90, 0, 80, 0, 0}, hot_row{"ByMoreThanTheDelta", 90, 0, 79, 0, 1},
                    hot_row{"RaisedByMoreThanTheDelta", 85, 5, 79, 0, 1},
                    hot_row{"LoweredToTheDelta", 90, -1, 79, 0, 0}, hot_row{"LighterThanTheBest", 80, 0, 95, 0, 0},
                    hot_row{"BestIsNotCorrected", 90, 0, 79, 50, 1}, hot_row{"BestIsNotLowered", 90, 0, 80, -50, 0},
                    hot_row{"SumBeyondEightBits", 255, 127, 255, 0, 1}),
    case_name);

TEST_P(OverloadedPath, IsHotAndMuchMoreLoadedThanTheBest) {
    const hot_row &row = GetParam();
    paths_[KOLT_LINK_2G].util = row.util;
    paths_[KOLT_LINK_2G].util_adjustment = row.adjustment;
    best_.util = row.best_util;
    best_.util_adjustment = row.best_adjustment;
    EXPECT_EQ(path_selection_is_path_overloaded(&config_, HOT_PORT, &paths_, best_), row.expected);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(HaStreams, PortThatIsNoPathIsNotOverloaded) {
    const test_interface other("eth7", 63);
    EXPECT_EQ(path_selection_is_path_overloaded(&config_, 63, &paths_, best_), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(HaStreams, PortWithoutANameIsToldAndNotOverloaded) {
    EXPECT_EQ(path_selection_is_path_overloaded(&config_, 999, &paths_, best_), 0);
    EXPECT_THAT(logged(),
                ElementsAre(log_line{LOG_ERR, "path_selection_get_path_by_port", "Error: get interface name"}));
}

} // namespace
