// The processed rate of a path: a ring of samples and the value one third down.
#include "path_selection/decide/rate.h"
#include "support/rows.h"

#include <gmock/gmock.h>

#include <algorithm>

#include <random>
#include <vector>

namespace {

class ProcessedRate : public testing::Test {
protected:
    uint16_t add(uint16_t tx, uint16_t rx) {
        return ps_add_rate_sample(&history_, {.tx = tx, .rx = rx}).rate;
    }
    uint16_t add(uint16_t both) {
        return add(both, both);
    }

    ps_path_history history_;
};

// ---- The ring

TEST_F(ProcessedRate, FirstSampleGoesToTheFirstSlot) {
    EXPECT_EQ(add(100, 200), 100);
    EXPECT_EQ(history_.sample_index, 0);
    EXPECT_EQ(history_.samples[0].tx_rate, 100);
    EXPECT_EQ(history_.samples[0].rx_rate, 200);
    EXPECT_EQ(history_.samples[0].rate, 100);
    EXPECT_EQ(history_.samples[1].rate, 0);
}

TEST_F(ProcessedRate, IndexPointsAtTheNewestSampleAndWrapsAfterFifteen) {
    for (uint16_t i = 0; i < 15; i++) {
        add(static_cast<uint16_t>(100 + i));
        EXPECT_EQ(history_.sample_index, i);
    }
    add(500);
    EXPECT_EQ(history_.sample_index, 0);
    EXPECT_EQ(history_.samples[0].rate, 500) << "the oldest one is replaced";
    EXPECT_EQ(history_.samples[1].rate, 101);
    EXPECT_EQ(history_.samples[14].rate, 114);
}

TEST_F(ProcessedRate, EmptySlotIsUsedAgain) {
    EXPECT_EQ(add(0), 0);
    EXPECT_EQ(history_.sample_index, 0);
    EXPECT_EQ(add(0), 0);
    EXPECT_EQ(history_.sample_index, 0);
    EXPECT_EQ(add(300), 300);
    EXPECT_EQ(history_.sample_index, 0);
    EXPECT_EQ(history_.samples[0].rate, 300);
    EXPECT_EQ(add(0), 300) << "one sample of two slots";
    EXPECT_EQ(history_.sample_index, 1);
    EXPECT_EQ(add(200), 300);
    EXPECT_EQ(history_.sample_index, 1);
    EXPECT_EQ(history_.samples[1].rate, 200);
}

TEST_F(ProcessedRate, ZeroSampleTakesTheOldestOneAway) {
    for (int i = 0; i < 15; i++)
        add(100);
    EXPECT_EQ(add(0), 100);
    EXPECT_EQ(history_.sample_index, 0);
    EXPECT_EQ(history_.samples[0].rate, 0);
}

// ---- The direction that counts

struct direction_row {
    const char *name;
    uint16_t tx;
    uint16_t rx;
    uint8_t rx_selected;
    uint16_t expected;
};

class SampleRate : public table_test<direction_row, ProcessedRate> {};

INSTANTIATE_TEST_SUITE_P(
    Rows, SampleRate,
    testing::Values(direction_row{"TransmitLowWithReceiveSelected", 15, 400, 1, 400},
                    direction_row{"TransmitLowWithTransmitSelected", 15, 400, 0, 400},
                    direction_row{"ReceiveLowWithReceiveSelected", 400, 15, 1, 400},
                    direction_row{"ReceiveLowWithTransmitSelected", 400, 15, 0, 400},
                    direction_row{"TransmitAt20", 20, 400, 0, 400}, direction_row{"TransmitAt21", 21, 400, 0, 21},
                    direction_row{"TransmitAt22", 22, 400, 0, 22}, direction_row{"ReceiveAt20", 400, 20, 1, 400},
                    direction_row{"ReceiveAt21", 400, 21, 1, 21}, direction_row{"ReceiveAt22", 400, 22, 1, 22},
                    direction_row{"ReceiveSelected", 300, 400, 1, 400},
                    direction_row{"TransmitSelected", 300, 400, 0, 300},
                    direction_row{"ReceiveSelectedThoughLower", 400, 300, 1, 300},
                    direction_row{"TransmitSelectedThoughHigher", 400, 300, 0, 400},
                    direction_row{"BothAt20", 20, 20, 0, 20}, direction_row{"BothAt21", 21, 21, 1, 21},
                    direction_row{"BothLow", 3, 9, 0, 9}, direction_row{"BothZero", 0, 0, 1, 0},
                    direction_row{"Largest", 65535, 0, 1, 65535}, direction_row{"LargestBoth", 65535, 65535, 0, 65535}),
    row_name<direction_row>);

TEST_P(SampleRate, SampleTakesTheSelectedDirectionUnlessOneIsLow) {
    const direction_row &row = GetParam();
    history_.rx_selected = row.rx_selected;
    EXPECT_EQ(add(row.tx, row.rx), row.expected);
    EXPECT_EQ(history_.samples[0].rate, row.expected);
    EXPECT_EQ(history_.samples[0].tx_rate, row.tx);
    EXPECT_EQ(history_.samples[0].rx_rate, row.rx);
}

// ---- The statistic

TEST_F(ProcessedRate, Samples300And200And100Give200) {
    history_.samples[0].rate = 300;
    history_.samples[1].rate = 200;
    history_.sample_index = 1;
    EXPECT_EQ(add(100), 200);
}

TEST_F(ProcessedRate, RateIsTheValueOneThirdDownTheSortedSamples) {
    // With n samples 100, 200, ... n * 100: position n / 3 from the top.
    const uint16_t expected[] = {100, 200, 200, 300, 400, 400, 500, 600, 600, 700, 800, 800, 900, 1000, 1000};
    for (uint16_t n = 1; n <= 15; n++)
        EXPECT_EQ(add(static_cast<uint16_t>(n * 100)), expected[n - 1]) << n << " samples";
    // The next one replaces 100: 200 ... 1600, position 5 is 1100.
    EXPECT_EQ(add(1600), 1100);
}

TEST_F(ProcessedRate, RateDoesNotDependOnTheOrderOfTheSamplesNorOnGaps) {
    const uint16_t rates[15] = {0, 50, 0, 0, 900, 200, 0, 700, 0, 0, 300, 0, 800, 0, 0};
    for (size_t i = 0; i < 15; i++)
        history_.samples[i].rate = rates[i];
    history_.sample_index = 14;
    // 900 800 700 600 300 200 50: seven samples, position 2.
    EXPECT_EQ(add(600), 700);
    EXPECT_EQ(history_.sample_index, 14);
    EXPECT_EQ(history_.samples[1].rate, 50) << "only a copy is sorted";
}

TEST_F(ProcessedRate, RateComesWithTheSamplesInDescendingOrder) {
    (void)add(100);
    (void)add(300);
    const ps_processed_rate processed = ps_add_rate_sample(&history_, {.tx = 200, .rx = 200});
    EXPECT_EQ(processed.rate, 200);
    EXPECT_THAT(processed.sorted, testing::ElementsAre(300, 200, 100, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST_F(ProcessedRate, RateOfNoSampleIsZero) {
    EXPECT_EQ(add(0), 0);
}

// ---- Against a plain model

// Keeps the last samples as a list of slots and finds the value by counting those above it.
struct rate_model {
    std::vector<int> slots = std::vector<int>(15, 0);
    size_t newest = 0;

    int add(int tx, int rx, bool rx_selected) {
        if (slots[newest] > 0)
            newest = newest == 14 ? 0 : newest + 1;
        if (tx < 21 || rx < 21)
            slots[newest] = tx > rx ? tx : rx;
        else
            slots[newest] = rx_selected ? rx : tx;
        std::vector<int> filled;
        std::copy_if(slots.begin(), slots.end(), std::back_inserter(filled), [](int rate) { return rate > 0; });
        if (filled.empty())
            return 0;
        const auto position = static_cast<ptrdiff_t>(filled.size() / 3);
        std::nth_element(filled.begin(), filled.begin() + position, filled.end(), std::greater<>());
        return filled[static_cast<size_t>(position)];
    }
};

TEST_F(ProcessedRate, RateOfRandomSamplesIsThatOfThePlainModel) {
    std::mt19937 random(20240501);
    std::uniform_int_distribution<int> low(0, 24);
    std::uniform_int_distribution<int> any(0, 65535);
    std::uniform_int_distribution<int> dice(0, 9);
    for (int history = 0; history < 300; history++) {
        history_ = ps_path_history{};
        rate_model model;
        for (int step = 0; step < 40; step++) {
            const bool small = dice(random) < 6;
            const int tx = small ? low(random) : any(random);
            const int rx = dice(random) < 5 ? low(random) : any(random);
            const bool none = dice(random) == 0;
            history_.rx_selected = dice(random) < 5 ? 1 : 0;
            const int expected = model.add(none ? 0 : tx, none ? 0 : rx, history_.rx_selected != 0);
            ASSERT_EQ(add(static_cast<uint16_t>(none ? 0 : tx), static_cast<uint16_t>(none ? 0 : rx)), expected)
                << "history " << history << ", step " << step;
            ASSERT_EQ(history_.sample_index, model.newest);
        }
    }
}

// ---- Broken links

struct health_row {
    const char *name;
    ps_rates rates;
    bool healthy;
};
class LinkHealth : public table_test<health_row> {};

TEST_P(LinkHealth, HealthyLinkNeedsBothRatesAtTheThresholdOf13) {
    EXPECT_EQ(ps_is_healthy(GetParam().rates, 13), GetParam().healthy);
}

INSTANTIATE_TEST_SUITE_P(Rows, LinkHealth,
                         testing::Values(health_row{"BothBelow", {12, 12}, false},
                                         health_row{"TransmitBelow", {12, 300}, false},
                                         health_row{"ReceiveBelow", {300, 12}, false},
                                         health_row{"BothAt", {13, 13}, true}, health_row{"BothAbove", {14, 14}, true},
                                         health_row{"BothZero", {0, 0}, false}),
                         row_name<health_row>);

} // namespace
