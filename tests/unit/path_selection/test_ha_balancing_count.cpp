// How many of a client's streams the best path can take, and which paths they may leave.
#include "path_selection/ha_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- How many streams the best path can take

TEST_F(HaStreams, AdjustNumSpendsTheConfiguredShareOfTheBestPathsQuota) {
    best_.quota = 2000;
    config_.param.adjusted_ratio = 50;
    set_streams({stream(HOT_PORT, 999), stream(HOT_PORT, 1), stream(HOT_PORT, 1)});
    EXPECT_EQ(path_selection_get_adjust_num(at(), clients_[0].ha), 2);
    config_.param.adjusted_ratio = 51;
    EXPECT_EQ(path_selection_get_adjust_num(at(), clients_[0].ha), 3);
    config_.param.adjusted_ratio = 0;
    EXPECT_EQ(path_selection_get_adjust_num(at(), clients_[0].ha), 0);
    best_.quota = -100;
    config_.param.adjusted_ratio = 50;
    EXPECT_EQ(path_selection_get_adjust_num(at(), clients_[0].ha), 0);
    EXPECT_EQ(best_.quota, -100);
    EXPECT_THAT(platform.calls, IsEmpty());
}

TEST_F(HaStreams, AdjustNumTruncatesTheShareToAWholeUnit) {
    set_streams({stream(HOT_PORT, 1), stream(HOT_PORT, 1)});
    config_.param.adjusted_ratio = 50;
    best_.quota = 1;
    EXPECT_EQ(path_selection_get_adjust_num(at(), clients_[0].ha), 0);
    best_.quota = 3;
    EXPECT_EQ(path_selection_get_adjust_num(at(), clients_[0].ha), 1);
}

TEST_F(HaStreams, AdjustNumSkipsTheStreamsOfTheBestPath) {
    set_streams({stream(BEST_PORT, 10), stream(HOT_PORT, 10), stream(COOL_PORT, 10)});
    EXPECT_EQ(path_selection_get_adjust_num(at(), clients_[0].ha), 2);
}

TEST_F(HaStreams, AdjustNumStopsAtTheFirstEmptyStream) {
    set_streams({stream(HOT_PORT, 10), ha_entry{}, stream(HOT_PORT, 10)});
    EXPECT_EQ(path_selection_get_adjust_num(at(), clients_[0].ha), 1);
}

TEST_F(HaStreams, AdjustNumIsAtMostTwenty) {
    set_streams(std::vector<ha_entry>(20, stream(HOT_PORT, 1)));
    EXPECT_EQ(path_selection_get_adjust_num(at(), clients_[0].ha), 20);
}

TEST_F(HaStreams, AdjustNumIsZeroWithoutAPeriodOrARate) {
    set_streams({stream(HOT_PORT, 10)});
    config_.param.period = 0;
    EXPECT_EQ(path_selection_get_adjust_num(at(), clients_[0].ha), 0);
    config_.param.period = 1000;
    best_.rate = 0;
    EXPECT_EQ(path_selection_get_adjust_num(at(), clients_[0].ha), 0);
}

// ---- Overloaded paths

TEST_F(HaStreams, PathIsOverloadedWhenHotAndMuchFullerThanTheBest) {
    EXPECT_EQ(path_selection_is_path_overloaded(at(), HOT_PORT), 1);
    EXPECT_EQ(path_selection_is_path_overloaded(at(), COOL_PORT), 0) << "at the threshold";
    config_.param.high_threshold = 69;
    EXPECT_EQ(path_selection_is_path_overloaded(at(), COOL_PORT), 1);
    config_.param.delta_threshold = 50;
    EXPECT_EQ(path_selection_is_path_overloaded(at(), COOL_PORT), 0) << "by the delta";
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(HaStreams, PortThatIsNoPathIsNotOverloaded) {
    const test_interface other("eth7", 63);
    EXPECT_EQ(path_selection_is_path_overloaded(at(), 63), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(HaStreams, PortWithoutANameIsToldAndNotOverloaded) {
    EXPECT_EQ(path_selection_is_path_overloaded(at(), 999), 0);
    EXPECT_THAT(logged(),
                ElementsAre(log_line{LOG_ERR, "path_selection_get_path_by_port", "Error: get interface name"}));
}

} // namespace
