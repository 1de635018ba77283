// Distances between words, and what is suggested.
#include "check/spelling.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct distance_row {
    const char *name;
    const char *a;
    const char *b;
    size_t distance;
};
class Distance : public testing::TestWithParam<distance_row> {};

constexpr const char *WORDS[] = {"period", "high_threshold", "low", "eth_vlan_id", "iptv_vlan_id"};

} // namespace

TEST_P(Distance, CountsEditsInBothDirections) {
    EXPECT_EQ(check_distance(GetParam().a, GetParam().b), GetParam().distance);
    EXPECT_EQ(check_distance(GetParam().b, GetParam().a), GetParam().distance);
}

INSTANTIATE_TEST_SUITE_P(Words, Distance,
                         testing::Values(distance_row{"Empty", "", "", 0}, distance_row{"ToNothing", "abc", "", 3},
                                         distance_row{"Equal", "period", "period", 0},
                                         distance_row{"Capitals", "PerioD", "period", 0},
                                         distance_row{"LetterLess", "treshold", "threshold", 1},
                                         distance_row{"LetterChanged", "pariod", "period", 1},
                                         distance_row{"LettersSwapped", "backhaul", "backhual", 1},
                                         distance_row{"SwappedAtTheFront", "ab", "ba", 1},
                                         distance_row{"SwappedAndMore", "ca", "abc", 3},
                                         distance_row{"Nothing", "abc", "xyz", 3}),
                         [](const auto &row) { return row.param.name; });

TEST(Suggestion, NearestWordIsMeant) {
    EXPECT_STREQ(check_suggestion("high_treshold", WORDS), "high_threshold");
    EXPECT_STREQ(check_suggestion("Period", WORDS), "period");
    EXPECT_STREQ(check_suggestion("etv_vlan_id", WORDS), "eth_vlan_id");
}

TEST(Suggestion, FarWordIsNotMeant) {
    EXPECT_EQ(check_suggestion("comment", WORDS), nullptr);
    EXPECT_EQ(check_suggestion("", WORDS), nullptr);
    EXPECT_EQ(check_suggestion("xyz", WORDS), nullptr);
}

TEST(Suggestion, ToleranceIsAThirdOfTheLetters) {
    EXPECT_STREQ(check_suggestion("perxyd", WORDS), "period"); // 2 of 6
    EXPECT_EQ(check_suggestion("pexyzd", WORDS), nullptr);     // 3 of 6
    EXPECT_STREQ(check_suggestion("lox", WORDS), "low");       // 1 of 3
    EXPECT_EQ(check_suggestion("lxx", WORDS), nullptr);        // 2 of 3
}

TEST(Suggestion, EndlessWordIsNotCompared) {
    EXPECT_EQ(check_suggestion(std::string(1000000, 'p'), WORDS), nullptr);
}
