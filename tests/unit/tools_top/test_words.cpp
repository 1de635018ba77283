// Texts of numbers, names and columns.
#include "columns.h"
#include "counters.h"
#include "notes.h"
#include "terminal.h"
#include "words.h"

#include <cstring>
#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace {

struct number_row {
    uint64_t number;
    const char *text;
};

class TopShortNumber : public testing::TestWithParam<number_row> {};

INSTANTIATE_TEST_SUITE_P(Rows, TopShortNumber,
                         testing::Values(number_row{0, "0"}, number_row{999, "999"}, number_row{1000, "1.0k"},
                                         number_row{9999, "9.9k"}, number_row{10000, "10k"}, number_row{999999, "999k"},
                                         number_row{1000000, "1.0M"}, number_row{12345678901, "12G"},
                                         number_row{UINT64_MAX, "18E"}));

TEST_P(TopShortNumber, KeepsTwoDigitsAndIsNeverMore) {
    EXPECT_STREQ(top_short_number(GetParam().number).text, GetParam().text);
}

TEST(TopWords, QuotasHaveTwoDecimals) {
    EXPECT_STREQ(top_quota_text(7000).text, "70.00%");
    EXPECT_STREQ(top_quota_text(5).text, "0.05%");
    EXPECT_STREQ(top_quota_text(0).text, "0.00%");
}

TEST(TopWords, NamesAreShownWithoutWhatCouldSteerATerminal) {
    EXPECT_STREQ(top_printable("a\033[1m b\xff").text, "a?[1m?b?");
    EXPECT_STREQ(top_printable("sixteen.letters!no more").text, "sixteen.letters!");
}

TEST(TopWords, AnInterfaceThatIsGoneIsItsNumber) {
    EXPECT_STREQ(top_kernel_name(4000000).text, "#4000000");
    EXPECT_STREQ(top_link_name(KOLT_LINK_5G_2), "5g_2");
    EXPECT_STREQ(top_link_name(KOLT_LINK_NONE), "none");
    EXPECT_STREQ(top_mode_name(KOLT_MODE_UNKNOWN), "unknown");
    EXPECT_STREQ(top_time_text(0).text, "1970-01-01T00:00:00Z");
}

TEST(TopWords, NotesAreShownWithoutWhatCouldSteerATerminal) {
    top_notes notes;
    notes.add("popen cmd cat /proc/a\033[2J\r\xff/sta_info");
    notes.add("popen cmd cat /proc/a\033[2J\r\xff/sta_info");
    ASSERT_EQ(notes.count, 1);
    EXPECT_STREQ(notes.texts[0], "popen cmd cat /proc/a?[2J?"
                                 "?/sta_info");
}

TEST(TopWords, QuotasPastAThousandPercentAreSaidToBe) {
    EXPECT_STREQ(top_quota_text(99999).text, "999.99%");
    EXPECT_STREQ(top_quota_text(100000).text, ">999%");
    EXPECT_STREQ(top_quota_text(UINT32_MAX).text, ">999%");
}

// ---- Columns

constexpr top_column COLUMNS[] = {{"NAME", 4, false, 0}, {"LEAST", 5, true, 2}, {"MORE", 4, true, 1}};

std::string row(uint8_t importance, std::vector<const char *> cells) {
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    top_print_row(out, COLUMNS, importance, cells.data());
    fclose(out);
    std::string result(text, size);
    free(text);
    return result;
}

TEST(TopColumns, WhatDoesNotFitGoesByImportance) {
    EXPECT_EQ(top_importance_that_fits(COLUMNS, 17), 2); // 4 + 2 + 5 + 2 + 4
    EXPECT_EQ(top_importance_that_fits(COLUMNS, 16), 1);
    EXPECT_EQ(top_importance_that_fits(COLUMNS, 10), 1); // 4 + 2 + 4
    EXPECT_EQ(top_importance_that_fits(COLUMNS, 9), 0);
    EXPECT_EQ(top_importance_that_fits(COLUMNS, 0), 0);
}

TEST(TopColumns, CellsAreAlignedAndCutAndNoLineEndsInBlanks) {
    EXPECT_EQ(row(2, {"a", "1", "22"}), "a         1    22");
    EXPECT_EQ(row(2, {"abcdef", "1234567", "x"}), "abcd  12345     x");
    EXPECT_EQ(row(1, {"a", "1", "22"}), "a       22");
    EXPECT_EQ(row(2, {"a", nullptr, nullptr}), "a");
    EXPECT_EQ(row(2, {"a", "", "1"}), "a               1");
    EXPECT_EQ(row(0, {"", "1", "2"}), "");
}

// ---- Counters

TEST(TopCounters, AnInterfaceIsFoundByItsWholeName) {
    top_counter_table table;
    strcpy(table.text, "Inter-|   Receive\n face |bytes    packets errs\n"
                       "    lo:      10       1    0    0    0     0          0         0      20       2 0 0 0 0 0 0\n"
                       "wlan0.1: 5000000000 7 0 0 0 0 0 0 6000000000 8 0 0 0 0 0 0\n"
                       " wlan0: 1 2 3 4 5 6 7 8 9 10 11 12\n"
                       "  cut: 1 2 3");
    top_counters counters;
    ASSERT_TRUE(table.find("wlan0.1", &counters));
    EXPECT_EQ(counters.rx_bytes, 5000000000U);
    EXPECT_EQ(counters.rx_packets, 7U);
    EXPECT_EQ(counters.tx_bytes, 6000000000U);
    EXPECT_EQ(counters.tx_packets, 8U);
    ASSERT_TRUE(table.find("wlan0", &counters));
    EXPECT_EQ(counters.tx_bytes, 9U);
    for (const char *name : {"wlan", "lan0", "wlan0.", "cut", "none", ""})
        EXPECT_FALSE(table.find(name, &counters)) << name;
}

// ---- Keys

struct key_row {
    const char *bytes;
    top_key key;
    size_t used;
};

class TopKeys : public testing::TestWithParam<key_row> {};

INSTANTIATE_TEST_SUITE_P(Rows, TopKeys,
                         testing::Values(key_row{"q", top_key::QUIT, 1}, key_row{"\003", top_key::QUIT, 1},
                                         key_row{"\033[Aq", top_key::UP, 3}, key_row{"\033OB", top_key::DOWN, 3},
                                         key_row{"\033[5~", top_key::PAGE_UP, 4}, key_row{"\033", top_key::BACK, 1},
                                         key_row{"\033q", top_key::BACK, 1}, key_row{"\rj", top_key::ENTER, 1},
                                         key_row{"\033[1;5Cq", top_key::NONE, 6}, key_row{"\033[", top_key::NONE, 2},
                                         key_row{"x", top_key::NONE, 1}, key_row{"", top_key::NONE, 0}));

TEST_P(TopKeys, AreDecodedOneByOne) {
    size_t used = 99;
    EXPECT_EQ(top_decode_key(GetParam().bytes, strlen(GetParam().bytes), &used), GetParam().key);
    EXPECT_EQ(used, GetParam().used);
}

} // namespace
