// The command line of kolt-top.
#include "options.h"

#include <gmock/gmock.h>
#include <vector>

namespace {

top_options parse(std::vector<const char *> words) {
    words.insert(words.begin(), "kolt-top");
    words.push_back(nullptr);
    return top_parse_options(static_cast<int>(words.size()) - 1, const_cast<char *const *>(words.data()));
}

TEST(TopOptions, DefaultsAreTheDaemonsConfigurationEveryTwoSeconds) {
    const top_options options = parse({});
    EXPECT_EQ(options.request, top_request::RUN);
    EXPECT_EQ(options.mode, top_mode::AUTOMATIC);
    EXPECT_STREQ(options.config, "/etc/kolt.json");
    EXPECT_EQ(options.interval_ms, 2000U);
    EXPECT_EQ(options.count, 0U);
    EXPECT_TRUE(options.streams);
    EXPECT_FALSE(options.has_client);
}

TEST(TopOptions, EachOptionIsTaken) {
    const top_options options =
        parse({"--json", "-c", "other", "-i", "0.5", "-n", "7", "--client", "02:aB:00:00:00:Ff", "--no-streams"});
    EXPECT_EQ(options.request, top_request::RUN);
    EXPECT_EQ(options.mode, top_mode::JSON);
    EXPECT_STREQ(options.config, "other");
    EXPECT_EQ(options.interval_ms, 500U);
    EXPECT_EQ(options.count, 7U);
    EXPECT_FALSE(options.streams);
    EXPECT_TRUE(options.has_client);
    EXPECT_THAT(options.client, testing::ElementsAre(2, 0xab, 0, 0, 0, 0xff));
}

TEST(TopOptions, AnExpositionIsWrittenOnceUnlessTold) {
    EXPECT_EQ(parse({"--prometheus"}).count, 1U);
    EXPECT_EQ(parse({"--prometheus", "-n", "3"}).count, 3U);
    EXPECT_EQ(parse({"--plain", "--once"}).count, 1U);
}

TEST(TopOptions, TheFirstProblemIsTold) {
    EXPECT_STREQ(parse({"-i", "x", "--nothing"}).problem, "not an interval of 0.1 to 86400 seconds: x");
    EXPECT_STREQ(parse({"--client"}).problem, "a value is missing behind: --client");
}

struct interval_row {
    const char *text;
    uint32_t milliseconds; // 0: refused
};

class TopInterval : public testing::TestWithParam<interval_row> {};

INSTANTIATE_TEST_SUITE_P(Rows, TopInterval,
                         testing::Values(interval_row{"0.1", 100}, interval_row{"0.100", 100}, interval_row{"0.099", 0},
                                         interval_row{"2", 2000}, interval_row{"1.25", 1250},
                                         interval_row{"1.005", 1005}, interval_row{"86400", 86400000},
                                         interval_row{"86400.001", 0}, interval_row{"86401", 0}, interval_row{"", 0},
                                         interval_row{".5", 0}, interval_row{"1.", 0}, interval_row{"1.2345", 0},
                                         interval_row{"-1", 0}, interval_row{"1e3", 0},
                                         interval_row{"99999999999999999999", 0}));

TEST_P(TopInterval, IsReadOrRefused) {
    uint32_t milliseconds = 0;
    EXPECT_EQ(top_parse_interval(GetParam().text, &milliseconds), GetParam().milliseconds != 0);
    EXPECT_EQ(milliseconds, GetParam().milliseconds);
}

TEST(TopMac, BothSeparatorsAreTakenAndNothingElse) {
    uint8_t mac[KOLT_MAC_SIZE] = {};
    EXPECT_TRUE(top_parse_mac("02:30:00:00:0a:FF", mac));
    EXPECT_THAT(mac, testing::ElementsAre(2, 0x30, 0, 0, 10, 255));
    EXPECT_TRUE(top_parse_mac("12-34-56-78-9a-bc", mac));
    for (const char *text : {"", "02:30:00:00:0a", "02:30:00:00:0a:FF:", "02:30-00:00:0a:FF", "02:3x:00:00:0a:FF",
                             "2:30:00:00:00:0a:1", "02.30.00.00.0a.FF"})
        EXPECT_FALSE(top_parse_mac(text, mac)) << text;
}

} // namespace
