// What share of a path a stream would take, and how many streams fit.
#include "path_selection/decide/stream_share.h"
#include "support/rows.h"

#include <random>
#include <utility>
#include <vector>

namespace {

constexpr uint32_t HOT_PORT = 60;
constexpr uint32_t BEST_PORT = 61;
constexpr uint32_t COOL_PORT = 62;

ha_entry stream(uint32_t port, uint32_t bytes) {
    ha_entry entry;
    entry.port = port;
    entry.num_bytes = bytes;
    return entry;
}

TEST(StreamQuota, RateCountsInUnitsOf64BytesAMillisecond) {
    EXPECT_EQ(ps_stream_quota(64 * 5000, 5000, 1).rate, 1U);
    EXPECT_EQ(ps_stream_quota(64 * 5000 - 1, 5000, 1).rate, 0U);
    EXPECT_EQ(ps_stream_quota(4294967295U, 1, 1).rate, 67108863U);
}

TEST(StreamQuota, QuotaIsTheShareOfThePathInHundredthsOfAPercent) {
    EXPECT_EQ(ps_stream_quota(64 * 1000 * 30, 1000, 300).quota, 1000U);
    EXPECT_EQ(ps_stream_quota(64 * 1000 * 30, 1000, 299).quota, 1003U) << "300000 / 299 is truncated";
}

TEST(StreamQuota, QuotaWrapsAt32Bits) {
    // 429497 * 10000 is 2^32 + 2704.
    EXPECT_EQ(ps_stream_quota(429497U * 64, 1, 2).quota, 1352U);
}

TEST(StreamQuota, QuotaIsNothingWithoutAPeriodOrARate) {
    EXPECT_EQ(ps_stream_quota(1000000, 0, 300).quota, 0U);
    EXPECT_EQ(ps_stream_quota(1000000, 1000, 0).quota, 0U);
}

// ---- How many streams a path can take

struct count_row {
    const char *name;
    uint8_t ratio;
    int16_t quota;
    std::vector<std::pair<uint32_t, uint32_t>> streams; // port and quota
    int expected;
};

class FittingStreams : public table_test<count_row> {};

constexpr uint32_t H = HOT_PORT;
constexpr uint32_t B = BEST_PORT;

INSTANTIATE_TEST_SUITE_P(
    Rows, FittingStreams,
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
    row_name<count_row>);

TEST_P(FittingStreams, StreamsAreCountedUntilTheBudgetIsSpent) {
    const count_row &row = GetParam();
    std::vector<ha_entry> streams;
    for (const auto &[port, quota] : row.streams)
        streams.push_back(stream(port, quota * 64 * 1000));
    EXPECT_EQ(ps_count_fitting_streams(streams, BEST_PORT, row.ratio * row.quota / 100, 1000, 10000), row.expected);
}

TEST(FittingStream, CountStopsAtTheFirstEmptyStream) {
    const std::vector<ha_entry> streams = {stream(HOT_PORT, 640000), ha_entry{}, stream(HOT_PORT, 640000)};
    EXPECT_EQ(ps_count_fitting_streams(streams, BEST_PORT, 5000, 1000, 10000), 1);
}

TEST(FittingStream, CountIsZeroWithoutAPeriodOrARate) {
    const std::vector<ha_entry> streams = {stream(HOT_PORT, 640000)};
    EXPECT_EQ(ps_count_fitting_streams(streams, BEST_PORT, 5000, 1000, 10000), 1);
    EXPECT_EQ(ps_count_fitting_streams(streams, BEST_PORT, 5000, 0, 10000), 0);
    EXPECT_EQ(ps_count_fitting_streams(streams, BEST_PORT, 5000, 1000, 0), 0);
}

TEST(FittingStream, CountAgreesWithAPlainModelOnRandomStreams) {
    std::mt19937 random(20240504);
    std::uniform_int_distribution<uint32_t> bytes(0, 20000000);
    std::uniform_int_distribution<int> rate(1, 2000);
    std::uniform_int_distribution<int> quota(-500, 12700);
    std::uniform_int_distribution<int> ratio(0, 100);
    std::uniform_int_distribution<size_t> length(0, 20);
    std::uniform_int_distribution<int> dice(0, 5);
    for (int round = 0; round < 4000; round++) {
        const auto path_rate = static_cast<uint16_t>(rate(random));
        const long long budget = static_cast<long long>(ratio(random)) * quota(random) / 100;
        const uint32_t period = round % 2 == 0 ? 1000 : 5000;
        std::vector<ha_entry> streams(length(random));
        for (ha_entry &entry : streams) {
            entry = stream(dice(random) == 0 ? BEST_PORT : HOT_PORT, 0);
            entry.num_bytes = dice(random) == 0 ? bytes(random) / 100 : bytes(random);
        }

        long long left = budget;
        int expected = 0;
        for (const ha_entry &entry : streams) {
            if (left <= 0)
                break;
            if (entry.port == BEST_PORT)
                continue;
            // No product exceeds 32 bits here: 20000000 / 1000 / 64 * 10000 is 3120000.
            const long long units = entry.num_bytes / period / 64;
            const long long step = units * 10000 / path_rate;
            if (step == 0)
                break;
            left -= step;
            expected++;
        }
        ASSERT_EQ(ps_count_fitting_streams(streams, BEST_PORT, budget, period, path_rate), expected)
            << "round " << round;
    }
}

} // namespace
