// What is shown of bytes from outside.
#include "check/text.h"

#include <gtest/gtest.h>

namespace {

struct printable_row {
    const char *name;
    std::string_view text;
    const char *shown;
};
class Printable : public testing::TestWithParam<printable_row> {};

struct length_row {
    const char *name;
    std::string_view text;
    size_t length;
};
class Utf8Length : public testing::TestWithParam<length_row> {};

} // namespace

TEST_P(Printable, WhatATerminalCouldTakeForMoreThanTextIsEscaped) {
    EXPECT_EQ(check_printable(GetParam().text), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(Texts, Printable,
                         testing::Values(printable_row{"Empty", "", ""}, printable_row{"Plain", "br-lan", "br-lan"},
                                         printable_row{"Umlaut", "\xc3\xa4x", "\xc3\xa4x"},
                                         printable_row{"Escape", "\x1b[2J", "\\x1b[2J"},
                                         printable_row{"Newline", "a\nb", "a\\x0ab"},
                                         printable_row{"Delete", "\x7f", "\\x7f"},
                                         printable_row{"Zero", std::string_view("a\0b", 3), "a\\x00b"},
                                         printable_row{"C1Control",
                                                       "\xc2\x9b"
                                                       "x",
                                                       "\\xc2\\x9bx"},
                                         printable_row{"FirstBehindC1", "\xc2\xa0", "\xc2\xa0"},
                                         printable_row{"HalfCharacter", "a\xc3", "a\\xc3"},
                                         printable_row{"LoneContinuation", "\x80z", "\\x80z"}),
                         [](const auto &row) { return row.param.name; });

TEST_P(Utf8Length, OnlyWholeAndShortestFormsCount) {
    EXPECT_EQ(check_utf8_length(GetParam().text), GetParam().length);
}

INSTANTIATE_TEST_SUITE_P(
    Heads, Utf8Length,
    testing::Values(length_row{"Nothing", "", 0}, length_row{"Ascii", "a", 1}, length_row{"Two", "\xc3\xa4", 2},
                    length_row{"Three", "\xe2\x82\xac", 3}, length_row{"Four", "\xf0\x9f\x98\x80", 4},
                    length_row{"OverLongTwo", "\xc0\x80", 0}, length_row{"OverLongThree", "\xe0\x9f\xbf", 0},
                    length_row{"LeastThree", "\xe0\xa0\x80", 3}, length_row{"Surrogate", "\xed\xa0\x80", 0},
                    length_row{"LastBeforeSurrogates", "\xed\x9f\xbf", 3},
                    length_row{"OverLongFour", "\xf0\x8f\xbf\xbf", 0}, length_row{"Last", "\xf4\x8f\xbf\xbf", 4},
                    length_row{"PastTheLast", "\xf4\x90\x80\x80", 0}, length_row{"Five", "\xf8\x80\x80\x80", 0},
                    length_row{"Cut", "\xe2\x82", 0}, length_row{"NoContinuation", "\xc3z", 0}),
    [](const auto &row) { return row.param.name; });

TEST(ReadFile, WhatCannotBeOpenedOrReadSaysWhy) {
    std::string text;
    std::string error;
    EXPECT_FALSE(check_read_file("/nonexistent/file", &text, &error));
    EXPECT_EQ(error, "No such file or directory");
    EXPECT_FALSE(check_read_file("/", &text, &error));
    EXPECT_EQ(error, "Is a directory");
}

TEST(ReadFile, EndlessFileIsGivenUp) {
    std::string text;
    std::string error;
    EXPECT_FALSE(check_read_file("/dev/zero", &text, &error));
    EXPECT_EQ(error, "larger than 64 MiB");
}
