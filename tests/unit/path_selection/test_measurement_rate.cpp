// The samples that a path's rate is taken from, in the log.
#include "path_selection/measured_test.h"
#include "path_selection/wlan_path.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ProcessedRate : public MeasuredPaths {
protected:
    uint16_t add(uint16_t tx, uint16_t rx) {
        return path_selection_get_wlan_path_rate(&history_, {.tx_rate = tx, .rx_rate = rx});
    }
    uint16_t add(uint16_t both) {
        return add(both, both);
    }

    ps_path_history history_;
};

TEST_F(ProcessedRate, RateIsTakenFromTheSamplesOfTheHistory) {
    EXPECT_EQ(add(100, 200), 100);
    history_.rx_selected = 1;
    EXPECT_EQ(add(100, 200), 200);
    EXPECT_EQ(history_.samples[1].tx_rate, 100);
}

TEST_F(ProcessedRate, FifteenSortedValuesAreDumped) {
    const at_log_level dump(3);
    add(100);
    clear_log();
    add(65535);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_DEBUG, "path_selection_get_wlan_path_rate",
                                               "Dump: samples: 65535, 100, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0"}));
}

TEST_F(ProcessedRate, FullSlotsOfTheLargestRateAreDumped) {
    const at_log_level dump(3);
    for (ps_rate_sample &sample : history_.samples)
        sample.rate = 65535;
    add(65535);
    EXPECT_THAT(logged_texts(),
                ElementsAre("Dump: samples: 65535, 65535, 65535, 65535, 65535, 65535, 65535, 65535, 65535, 65535, "
                            "65535, 65535, 65535, 65535, 65535"));
}

TEST_F(ProcessedRate, RateIsNotDumpedBelowDumpLevel) {
    const at_log_level debug(2);
    add(100);
    EXPECT_THAT(logged(), IsEmpty());
}

} // namespace
