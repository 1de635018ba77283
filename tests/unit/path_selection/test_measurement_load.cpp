// Whether any path is overloaded, and whether all of them are full.
#include "path_selection/measured_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- Overload

struct overload_row {
    const char *name;
    uint32_t type;
    uint8_t util;
    int8_t adjustment;
    uint16_t rate;
    bool present;
    int expected;
};

void PrintTo(const overload_row &row, std::ostream *out) {
    *out << row.name;
}

class Overload : public MeasuredPaths, public testing::WithParamInterface<overload_row> {};

INSTANTIATE_TEST_SUITE_P(Rows, Overload,
                         testing::Values(overload_row{"BelowTheThreshold", 2, 69, 0, 300, true, 0},
                                         overload_row{"AtTheThreshold", 2, 70, 0, 300, true, 0},
                                         overload_row{"AboveTheThreshold", 2, 71, 0, 300, true, 1},
                                         overload_row{"RaisedAboveIt", 3, 60, 11, 300, true, 1},
                                         overload_row{"RaisedToIt", 3, 60, 10, 300, true, 0},
                                         overload_row{"LoweredToIt", 3, 71, -1, 300, true, 0},
                                         overload_row{"LoweredBelowZero", 3, 0, -128, 300, true, 0},
                                         overload_row{"SumBeyondEightBits", 3, 255, 127, 300, true, 1},
                                         overload_row{"WithoutARate", 4, 71, 0, 0, true, 1},
                                         overload_row{"Ethernet", 0, 71, 0, 0, true, 1},
                                         overload_row{"PowerLine", 1, 71, 0, 0, true, 1},
                                         overload_row{"Absent", 4, 100, 0, 300, false, 0}),
                         case_name);

TEST_P(Overload, IsAnyPresentRowAboveTheHighThresholdWhateverItsRate) {
    const overload_row &row = GetParam();
    add_row(row.type, row.present ? "wlan.1" : "", row.util, row.rate).util_adjustment = row.adjustment;
    EXPECT_EQ(path_selection_check_paths_overload(&config_, paths_), row.expected);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(MeasuredPaths, OneOverloadedRowAmongIdleOnesIsEnough) {
    add_row(0, "eth0", 0);
    add_row(2, "wlan0.1", 10);
    add_row(4, "wlan2.1", 71);
    EXPECT_EQ(path_selection_check_paths_overload(&config_, paths_), 1);
}

TEST_F(MeasuredPaths, NoRowIsNeitherOverloadedNorFull) {
    EXPECT_EQ(path_selection_check_paths_overload(&config_, paths_), 0);
    EXPECT_EQ(path_selection_check_paths_full_load(&config_, paths_), 0);
}

// ---- Full load

struct load {
    uint32_t type;
    uint8_t util;
    int8_t adjustment = 0;
    uint16_t rate = 300;
};

struct full_row {
    const char *name;
    std::vector<load> rows;
    int expected;
    const char *line; // that is logged, null for none
};

void PrintTo(const full_row &row, std::ostream *out) {
    *out << row.name;
}

class FullLoad : public MeasuredPaths, public testing::WithParamInterface<full_row> {};

INSTANTIATE_TEST_SUITE_P(
    Rows, FullLoad,
    testing::Values(
        full_row{"OneAboveTheThreshold", {{2, 71}}, 1, nullptr}, full_row{"OneAtTheThreshold", {{2, 70}}, 0, nullptr},
        full_row{"OneRaisedAboveIt", {{3, 60, 11}}, 1, nullptr}, full_row{"OneLoweredToIt", {{3, 71, -1}}, 0, nullptr},
        full_row{"AllEquallyHot", {{2, 90}, {3, 90}, {4, 90}}, 1, nullptr},
        full_row{"LighterByTheDelta", {{2, 90}, {3, 80}}, 1, nullptr},
        full_row{"LighterByMoreThanTheDelta", {{2, 90}, {3, 79}}, 0, "Debug: path 2 util: 90, path 3 util: 79"},
        full_row{"FirstLighterByMore", {{2, 79}, {4, 90}}, 0, "Debug: path 4 util: 90, path 2 util: 79"},
        full_row{"SecondFiveLighterByMore", {{3, 95}, {4, 80}}, 0, "Debug: path 3 util: 95, path 4 util: 80"},
        // 2 against 3 and 4 is within the delta, 3 against 4 is not.
        full_row{"OnlyOnePairApart", {{2, 88}, {3, 92}, {4, 80}}, 0, "Debug: path 3 util: 92, path 4 util: 80"},
        full_row{
            "FirstPairThatIsApartIsTold", {{2, 99}, {3, 80}, {4, 71}}, 0, "Debug: path 2 util: 99, path 3 util: 80"},
        full_row{"SecondAtTheThreshold", {{2, 72}, {3, 70}}, 0, nullptr},
        // Row 2 ends the walk before row 3 is looked at.
        full_row{"ApartIsFoundBeforeTheCoolRow", {{2, 90}, {3, 20}}, 0, "Debug: path 2 util: 90, path 3 util: 20"},
        full_row{"CoolRowIsFoundBeforeTheOthers", {{2, 20}, {3, 90}}, 0, nullptr},
        // The other row counts without its correction: 95 against 80 is apart though 95 and 95 are not.
        full_row{"OtherRowIsNotCorrected", {{2, 95}, {3, 80, 15}}, 0, "Debug: path 2 util: 95, path 3 util: 80"},
        // This row counts with it: 80 + 11 against 80; the line tells the uncorrected one.
        full_row{"OwnRowIsCorrected", {{2, 80, 11}, {3, 80}}, 0, "Debug: path 2 util: 80, path 3 util: 80"},
        full_row{"OwnRowIsCorrectedByTheDelta", {{2, 80, 10}, {3, 80}}, 1, nullptr},
        full_row{"WithoutARateDoesNotCount", {{2, 90}, {3, 10, 0, 0}}, 1, nullptr},
        full_row{"OnlyOneWithoutARate", {{2, 90, 0, 0}}, 0, nullptr},
        full_row{"EthernetAndPowerLineDoNotCount", {{0, 0}, {1, 5}, {4, 90}}, 1, nullptr},
        full_row{"OnlyEthernetAndPowerLine", {{0, 99}, {1, 99}}, 0, nullptr}),
    case_name);

TEST_P(FullLoad, IsEveryMeasuredWifiRowHotAndNoneMuchLighter) {
    const full_row &row = GetParam();
    const at_log_level debug(2);
    for (const load &given : row.rows)
        add_row(given.type, "wlan.1", given.util, given.rate).util_adjustment = given.adjustment;
    EXPECT_EQ(path_selection_check_paths_full_load(&config_, paths_), row.expected);
    if (row.line == nullptr)
        EXPECT_THAT(logged(), IsEmpty());
    else
        EXPECT_THAT(logged(), ElementsAre(log_line{LOG_DEBUG, "path_selection_check_paths_full_load", row.line}));
}

TEST_F(MeasuredPaths, AbsentLightRowLeavesTheOthersFull) {
    add_row(2, "wlan0.1", 90, 300);
    add_row(3, "", 10, 300);
    EXPECT_EQ(path_selection_check_paths_full_load(&config_, paths_), 1);
}

TEST_F(MeasuredPaths, LighterRowIsNotToldBelowDebugLevel) {
    const at_log_level info(1);
    add_row(2, "wlan0.1", 90, 300);
    add_row(3, "wlan1.1", 10, 300);
    EXPECT_EQ(path_selection_check_paths_full_load(&config_, paths_), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(MeasuredPaths, DeltaOfZeroMakesAnyDifferenceRoom) {
    config_.param.delta_threshold = 0;
    add_row(2, "wlan0.1", 90, 300);
    add_row(3, "wlan1.1", 90, 300);
    EXPECT_EQ(path_selection_check_paths_full_load(&config_, paths_), 1);
    paths_[3].util = 89;
    EXPECT_EQ(path_selection_check_paths_full_load(&config_, paths_), 0);
}

} // namespace
