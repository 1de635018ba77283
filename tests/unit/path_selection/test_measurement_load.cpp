// The two load tests: what they read, answer and log.
#include "path_selection/measured_test.h"
#include "path_selection/measurement.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(MeasuredPaths, OverloadIsJudgedByTheHighThresholdAndNotLogged) {
    const at_log_level dump(3);
    add_row(KOLT_LINK_2G, "wlan0.1", 71, 300);
    EXPECT_EQ(path_selection_check_paths_overload(&config_, paths_), 1);
    config_.param.high_threshold = 71;
    EXPECT_EQ(path_selection_check_paths_overload(&config_, paths_), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(MeasuredPaths, NoRowIsNeitherOverloadedNorFull) {
    EXPECT_EQ(path_selection_check_paths_overload(&config_, paths_), 0);
    EXPECT_EQ(path_selection_check_paths_full_load(&config_, paths_), 0);
}

TEST_F(MeasuredPaths, FullLoadIsJudgedByBothThresholds) {
    add_row(KOLT_LINK_2G, "wlan0.1", 90, 300);
    add_row(KOLT_LINK_5G, "wlan1.1", 80, 300);
    EXPECT_EQ(path_selection_check_paths_full_load(&config_, paths_), 1);
    config_.param.delta_threshold = 9;
    EXPECT_EQ(path_selection_check_paths_full_load(&config_, paths_), 0);
    config_.param.delta_threshold = 10;
    config_.param.high_threshold = 80;
    EXPECT_EQ(path_selection_check_paths_full_load(&config_, paths_), 0);
}

TEST_F(MeasuredPaths, LighterRowIsToldAtDebugLevelWithUncorrectedUtilizations) {
    add_row(KOLT_LINK_2G, "wlan0.1", 80, 300).util_adjustment = 11;
    add_row(KOLT_LINK_5G, "wlan1.1", 79, 300).util_adjustment = 1;
    {
        const at_log_level info(1);
        EXPECT_EQ(path_selection_check_paths_full_load(&config_, paths_), 0);
        EXPECT_THAT(logged(), IsEmpty());
    }
    const at_log_level debug(2);
    EXPECT_EQ(path_selection_check_paths_full_load(&config_, paths_), 0);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_DEBUG, "path_selection_check_paths_full_load",
                                               "Debug: path 2 util: 80, path 3 util: 79"}));
}

TEST_F(MeasuredPaths, FullLoadWithoutALighterRowIsNotTold) {
    const at_log_level dump(3);
    add_row(KOLT_LINK_2G, "wlan0.1", 90, 300);
    EXPECT_EQ(path_selection_check_paths_full_load(&config_, paths_), 1);
    EXPECT_THAT(logged(), IsEmpty());
}

} // namespace
