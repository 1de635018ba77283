// Whether any path is overloaded, and whether all of them are full.
#include "path_selection/decide/load.h"
#include "support/rows.h"

#include <vector>

namespace {

constexpr int HIGH = 70;
constexpr int DELTA = 10;

class LoadedPaths : public testing::Test {
protected:
    // Makes a row present, unless its name is empty.
    ps_path &add_row(kolt_link_type type, const char *name, uint8_t util, uint16_t rate = 0) {
        ps_path &row = paths_.at(type);
        memcpy(row.name, name, strlen(name));
        row.util = util;
        row.rate = rate;
        return row;
    }
    bool full(int delta = DELTA) {
        return ps_check_full_load(paths_, HIGH, delta).full;
    }
    ps_path_table paths_;
};

// ---- Overload

struct overload_row {
    const char *name;
    kolt_link_type type;
    uint8_t util;
    int8_t adjustment;
    uint16_t rate;
    bool present;
    bool expected;
};

class Overload : public table_test<overload_row, LoadedPaths> {};

INSTANTIATE_TEST_SUITE_P(Rows, Overload,
                         testing::Values(overload_row{"BelowTheThreshold", KOLT_LINK_2G, 69, 0, 300, true, false},
                                         overload_row{"AtTheThreshold", KOLT_LINK_2G, 70, 0, 300, true, false},
                                         overload_row{"AboveTheThreshold", KOLT_LINK_2G, 71, 0, 300, true, true},
                                         overload_row{"RaisedAboveIt", KOLT_LINK_5G, 60, 11, 300, true, true},
                                         overload_row{"RaisedToIt", KOLT_LINK_5G, 60, 10, 300, true, false},
                                         overload_row{"LoweredToIt", KOLT_LINK_5G, 71, -1, 300, true, false},
                                         overload_row{"LoweredBelowZero", KOLT_LINK_5G, 0, -128, 300, true, false},
                                         overload_row{"SumBeyondEightBits", KOLT_LINK_5G, 255, 127, 300, true, true},
                                         overload_row{"WithoutARate", KOLT_LINK_5G_2, 71, 0, 0, true, true},
                                         overload_row{"Ethernet", KOLT_LINK_ETHERNET, 71, 0, 0, true, true},
                                         overload_row{"PowerLine", KOLT_LINK_PLC, 71, 0, 0, true, true},
                                         overload_row{"Absent", KOLT_LINK_5G_2, 100, 0, 300, false, false}),
                         row_name<overload_row>);

TEST_P(Overload, AnyPresentRowAboveTheHighThresholdIsAnOverload) {
    const overload_row &row = GetParam();
    add_row(row.type, row.present ? "wlan.1" : "", row.util, row.rate).util_adjustment = row.adjustment;
    EXPECT_EQ(ps_is_any_overloaded(paths_, HIGH), row.expected);
}

TEST_F(LoadedPaths, OneOverloadedRowAmongIdleOnesIsEnough) {
    add_row(KOLT_LINK_ETHERNET, "eth0", 0);
    add_row(KOLT_LINK_2G, "wlan0.1", 10);
    add_row(KOLT_LINK_5G_2, "wlan2.1", 71);
    EXPECT_TRUE(ps_is_any_overloaded(paths_, HIGH));
}

TEST_F(LoadedPaths, NoRowIsNeitherOverloadedNorFull) {
    EXPECT_FALSE(ps_is_any_overloaded(paths_, HIGH));
    EXPECT_FALSE(full());
}

// ---- Full load

struct load {
    kolt_link_type type;
    uint8_t util;
    int8_t adjustment = 0;
    uint16_t rate = 300;
};

struct full_row {
    const char *name;
    std::vector<load> rows;
    bool expected;
    kolt_link_type loaded = PATH_NONE; // the two that are apart, if any
    kolt_link_type lighter = PATH_NONE;
};

class FullLoad : public table_test<full_row, LoadedPaths> {};

INSTANTIATE_TEST_SUITE_P(
    Rows, FullLoad,
    testing::Values(
        full_row{"OneAboveTheThreshold", {{KOLT_LINK_2G, 71}}, true},
        full_row{"OneAtTheThreshold", {{KOLT_LINK_2G, 70}}, false},
        full_row{"OneRaisedAboveIt", {{KOLT_LINK_5G, 60, 11}}, true},
        full_row{"OneLoweredToIt", {{KOLT_LINK_5G, 71, -1}}, false},
        full_row{"AllEquallyHot", {{KOLT_LINK_2G, 90}, {KOLT_LINK_5G, 90}, {KOLT_LINK_5G_2, 90}}, true},
        full_row{"LighterByTheDelta", {{KOLT_LINK_2G, 90}, {KOLT_LINK_5G, 80}}, true},
        full_row{
            "LighterByMoreThanTheDelta", {{KOLT_LINK_2G, 90}, {KOLT_LINK_5G, 79}}, false, KOLT_LINK_2G, KOLT_LINK_5G},
        full_row{"FirstLighterByMore", {{KOLT_LINK_2G, 79}, {KOLT_LINK_5G_2, 90}}, false, KOLT_LINK_5G_2, KOLT_LINK_2G},
        full_row{
            "SecondFiveLighterByMore", {{KOLT_LINK_5G, 95}, {KOLT_LINK_5G_2, 80}}, false, KOLT_LINK_5G, KOLT_LINK_5G_2},
        // 2 against 3 and 4 is within the delta, 3 against 4 is not.
        full_row{"OnlyOnePairApart",
                 {{KOLT_LINK_2G, 88}, {KOLT_LINK_5G, 92}, {KOLT_LINK_5G_2, 80}},
                 false,
                 KOLT_LINK_5G,
                 KOLT_LINK_5G_2},
        full_row{"FirstPairThatIsApartIsTold",
                 {{KOLT_LINK_2G, 99}, {KOLT_LINK_5G, 80}, {KOLT_LINK_5G_2, 71}},
                 false,
                 KOLT_LINK_2G,
                 KOLT_LINK_5G},
        full_row{"SecondAtTheThreshold", {{KOLT_LINK_2G, 72}, {KOLT_LINK_5G, 70}}, false},
        // Row 2 ends the walk before row 3 is looked at.
        full_row{"ApartIsFoundBeforeTheCoolRow",
                 {{KOLT_LINK_2G, 90}, {KOLT_LINK_5G, 20}},
                 false,
                 KOLT_LINK_2G,
                 KOLT_LINK_5G},
        full_row{"CoolRowIsFoundBeforeTheOthers", {{KOLT_LINK_2G, 20}, {KOLT_LINK_5G, 90}}, false},
        // The other row counts without its correction: 95 against 80 is apart though 95 and 95 are not.
        full_row{
            "OtherRowIsNotCorrected", {{KOLT_LINK_2G, 95}, {KOLT_LINK_5G, 80, 15}}, false, KOLT_LINK_2G, KOLT_LINK_5G},
        // This row counts with it: 80 + 11 against 80; the line tells the uncorrected one.
        full_row{"OwnRowIsCorrected", {{KOLT_LINK_2G, 80, 11}, {KOLT_LINK_5G, 80}}, false, KOLT_LINK_2G, KOLT_LINK_5G},
        full_row{"OwnRowIsCorrectedByTheDelta", {{KOLT_LINK_2G, 80, 10}, {KOLT_LINK_5G, 80}}, true},
        full_row{"WithoutARateDoesNotCount", {{KOLT_LINK_2G, 90}, {KOLT_LINK_5G, 10, 0, 0}}, true},
        full_row{"OnlyOneWithoutARate", {{KOLT_LINK_2G, 90, 0, 0}}, false},
        full_row{"EthernetAndPowerLineDoNotCount",
                 {{KOLT_LINK_ETHERNET, 0}, {KOLT_LINK_PLC, 5}, {KOLT_LINK_5G_2, 90}},
                 true},
        full_row{"OnlyEthernetAndPowerLine", {{KOLT_LINK_ETHERNET, 99}, {KOLT_LINK_PLC, 99}}, false}),
    row_name<full_row>);

TEST_P(FullLoad, LoadIsFullWhenEveryMeasuredWifiRowIsHotAndNoneMuchLighter) {
    const full_row &row = GetParam();
    for (const load &given : row.rows)
        add_row(given.type, "wlan.1", given.util, given.rate).util_adjustment = given.adjustment;
    const ps_full_load found = ps_check_full_load(paths_, HIGH, DELTA);
    EXPECT_EQ(found.full, row.expected);
    EXPECT_EQ(found.loaded, row.loaded);
    EXPECT_EQ(found.lighter, row.lighter);
}

TEST_F(LoadedPaths, AbsentLightRowLeavesTheOthersFull) {
    add_row(KOLT_LINK_2G, "wlan0.1", 90, 300);
    add_row(KOLT_LINK_5G, "", 10, 300);
    EXPECT_TRUE(full());
}

TEST_F(LoadedPaths, DeltaOfZeroMakesAnyDifferenceRoom) {
    add_row(KOLT_LINK_2G, "wlan0.1", 90, 300);
    add_row(KOLT_LINK_5G, "wlan1.1", 90, 300);
    EXPECT_TRUE(full(0));
    paths_[3].util = 89;
    EXPECT_FALSE(full(0));
}

// ---- Beside the best path

struct hot_row {
    const char *name;
    uint8_t util;
    int8_t adjustment;
    uint8_t best_util;
    int8_t best_adjustment;
    bool expected;
};

class OverloadedPath : public table_test<hot_row> {};

INSTANTIATE_TEST_SUITE_P(
    Rows, OverloadedPath,
    testing::Values(
        hot_row{"AtTheThreshold", 70, 0, 0, 0, false}, hot_row{"AboveTheThreshold", 71, 0, 0, 0, true},
        hot_row{"RaisedAboveIt", 60, 11, 0, 0, true}, hot_row{"LoweredToIt", 80, -10, 0, 0, false},
        hot_row{"ByTheDelta", 90, 0, 80, 0, false}, hot_row{"ByMoreThanTheDelta", 90, 0, 79, 0, true},
        hot_row{"RaisedByMoreThanTheDelta", 85, 5, 79, 0, true}, hot_row{"LoweredToTheDelta", 90, -1, 79, 0, false},
        hot_row{"LighterThanTheBest", 80, 0, 95, 0, false}, hot_row{"BestIsNotCorrected", 90, 0, 79, 50, true},
        hot_row{"BestIsNotLowered", 90, 0, 80, -50, false}, hot_row{"SumBeyondEightBits", 255, 127, 255, 0, true}),
    row_name<hot_row>);

TEST_P(OverloadedPath, OverloadedPathIsHotAndMuchMoreLoadedThanTheBest) {
    const hot_row &row = GetParam();
    ps_path path;
    path.util = row.util;
    path.util_adjustment = row.adjustment;
    ps_path best;
    best.util = row.best_util;
    best.util_adjustment = row.best_adjustment;
    EXPECT_EQ(ps_is_overloaded_beside(path, best, HIGH, DELTA), row.expected);
}

} // namespace
