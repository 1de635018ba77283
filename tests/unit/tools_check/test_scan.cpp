// Places of values, and agreement with the daemon's parser about what a text holds.
#include "check/scan.h"

#include "core/json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using tokener_ptr = kolt_handle<json_tokener, json_tokener_free>;

json_ptr parsed(std::string_view text) {
    const tokener_ptr tokener(json_tokener_new());
    return json_ptr(json_tokener_parse_ex(tokener.get(), text.data(), static_cast<int>(text.size())));
}

std::vector<std::string> keys_of(const check_value &object) {
    std::vector<std::string> keys;
    for (const check_member &member : object.members)
        keys.push_back(member.key);
    return keys;
}

struct text_row {
    const char *name;
    std::string_view text;
};
class Taken : public testing::TestWithParam<text_row> {};
class Refused : public testing::TestWithParam<text_row> {};

struct odd_row {
    const char *name;
    std::string_view text;
    check_oddity oddity;
    size_t at;
};
class Oddity : public testing::TestWithParam<odd_row> {};
class JsonAsItShouldBe : public testing::TestWithParam<text_row> {};

constexpr auto NAME = [](const auto &row) { return row.param.name; };

} // namespace

TEST_P(Taken, TextThatTheParserTakesIsFollowed) {
    ASSERT_TRUE(parsed(GetParam().text));
    EXPECT_TRUE(check_scan_object(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Taken,
    testing::Values(text_row{"Empty", "{}"}, text_row{"SpaceAround", " \t\r\n{ } "}, text_row{"Comment", "/* */{}"},
                    text_row{"LineComment", "{//}\n}"},
                    text_row{"CommentsEverywhere", "{/**/\"a\"/**/:/**/1/**/,/**/}"},
                    text_row{"TrailingComma", "{\"a\": 1,}"}, text_row{"CommaInArray", "{\"a\": [1,]}"},
                    text_row{"SingleQuotes", "{'a': 'b'}"}, text_row{"NaN", "{\"a\": [NaN, nan, -Infinity, infinity]}"},
                    text_row{"Words", "{\"a\": TRUE, \"b\": False, \"c\": nuLL}"},
                    text_row{"Numbers", "{\"a\": [01, 1., -.5, 1e, 5.e, 1e5, -0, 1E+5]}"},
                    text_row{"NewlineInText", "{\"a\": \"x\ny\"}"}, text_row{"BadUtf8", "{\"a\": \"\x80\"}"},
                    text_row{"Surrogate", R"({"a": "\ud800"})"}, text_row{"ZeroInKey", R"({"a\u0000b": 1})"},
                    text_row{"QuoteInText", R"({"a\"": "\\"})"}, text_row{"MoreText", "{} x"},
                    text_row{"SecondObject", "{}{}"}, text_row{"ZeroByteBehind", std::string_view("{}\0", 3)},
                    text_row{"ZeroByteInACommentBehind", std::string_view("{}/*\0", 5)},
                    text_row{"Nested", "{\"a\": {\"b\": [{\"c\": []}]}}"}),
    NAME);

TEST_P(Refused, TextThatTheParserRefusesIsNotFollowedEither) {
    ASSERT_FALSE(parsed(GetParam().text));
    EXPECT_FALSE(check_scan_object(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(Texts, Refused,
                         testing::Values(text_row{"Nothing", ""}, text_row{"Space", " "}, text_row{"Open", "{"},
                                         text_row{"OpenMember", "{\"a\""}, text_row{"OpenText", "{\"a"},
                                         text_row{"NoColon", "{\"a\" 1}"}, text_row{"NoValue", "{\"a\":}"},
                                         text_row{"NoComma", "{\"a\": 1 \"b\": 2}"}, text_row{"CommaAlone", "{,}"},
                                         text_row{"TwoCommas", "{\"a\": [1,,2]}"}, text_row{"BareKey", "{a: 1}"},
                                         text_row{"OpenComment", "{}/*"}, text_row{"NoComment", "{} /x"},
                                         text_row{"ByteOrderMark", "\xef\xbb\xbf{}"}, text_row{"FormFeed", "\f{}"},
                                         text_row{"ZeroByteInText", std::string_view("{\"a\0\": 1}", 9)},
                                         text_row{"ZeroByteInAComment", std::string_view("{/*\0*/}", 7)},
                                         text_row{"ZeroByteBehindASlash", std::string_view("{}/\0", 4)},
                                         text_row{"ZeroByteInFront", std::string_view("\0{}", 3)}),
                         NAME);

TEST_P(Oddity, FirstPlaceOfEachKindIsKept) {
    const auto scan = check_scan_object(GetParam().text);
    ASSERT_TRUE(scan);
    EXPECT_EQ(scan->oddities[GetParam().oddity], GetParam().at);
}

INSTANTIATE_TEST_SUITE_P(Texts, Oddity,
                         testing::Values(odd_row{"Comment", "{ /*a*/ //b\n }", CHECK_COMMENT, 2},
                                         odd_row{"TrailingComma", "{\"a\": 1, }", CHECK_TRAILING_COMMA, 7},
                                         odd_row{"TrailingCommaInArray", "{\"a\": [1,]}", CHECK_TRAILING_COMMA, 8},
                                         odd_row{"SingleQuotes", "{\"a\": 'b'}", CHECK_SINGLE_QUOTES, 6},
                                         odd_row{"Tab", "{\"a\tb\": 1}", CHECK_CONTROL_CHARACTER, 3},
                                         odd_row{"BadUtf8", "{\"a\": \"b\xff\"}", CHECK_BAD_UTF8, 8},
                                         odd_row{"Word", "{\"a\": [true, Null]}", CHECK_WORD, 13},
                                         odd_row{"NaN", "{\"a\": NaN}", CHECK_WORD, 6},
                                         odd_row{"Infinity", "{\"a\": -Infinity}", CHECK_WORD, 6},
                                         odd_row{"Zeros", "{\"a\": 01}", CHECK_NUMBER, 6},
                                         odd_row{"Dot", "{\"a\": 1.}", CHECK_NUMBER, 6},
                                         odd_row{"NoDigit", "{\"a\": -.5}", CHECK_NUMBER, 6},
                                         odd_row{"NoExponent", "{\"a\": 1e}", CHECK_NUMBER, 6},
                                         odd_row{"MoreText", "{} {", CHECK_MORE_TEXT, 3}),
                         NAME);

TEST_P(JsonAsItShouldBe, NothingIsOdd) {
    const auto scan = check_scan_object(GetParam().text);
    ASSERT_TRUE(scan);
    EXPECT_THAT(scan->oddities, testing::Each(std::nullopt));
}

INSTANTIATE_TEST_SUITE_P(Texts, JsonAsItShouldBe,
                         testing::Values(text_row{"Words", R"({"a": [true, false, null]})"},
                                         text_row{"Numbers", R"({"a": [0, -0, 10, 1.5, -1e5, 1E+05, 0.1e-1]})"},
                                         text_row{"Texts", R"({"a": "\"\\\/\b\f\n\r\t\u00e4 ' // ä"})"},
                                         text_row{"Space", " {\n\t\"a\" : [ 1 , 2 ] }\r\n"}),
                         NAME);

TEST(Scan, PlacesSpanKeysAndValues) {
    const std::string_view text = R"({ "a" : [1, 2], "b": {"c": "d"} })";
    const auto scan = check_scan_object(text);
    ASSERT_TRUE(scan);
    const auto span = [&](const check_value &value) { return text.substr(value.begin, value.end - value.begin); };
    EXPECT_EQ(span(scan->root), R"({ "a" : [1, 2], "b": {"c": "d"} })");
    EXPECT_EQ(scan->root.find("a")->at, 2U);
    EXPECT_EQ(span(scan->root.find("a")->value), "[1, 2]");
    EXPECT_EQ(scan->root.find("a")->value.count, 2U);
    EXPECT_EQ(span(scan->root.find("b")->value.find("c")->value), "\"d\"");
    EXPECT_EQ(scan->root.find("c"), nullptr);
}

TEST(Scan, LastOfEqualKeysIsFound) {
    const auto scan = check_scan_object(R"({"b": 1, "a": 2, "b": 3, "a": 4, "b": 5})");
    ASSERT_TRUE(scan);
    EXPECT_EQ(scan->root.find("a")->at, 25U);
    EXPECT_EQ(scan->root.find("b")->at, 33U);
}

TEST(Scan, KeysReadAsTheParserReadsThem) {
    const auto scan = check_scan_object(R"({"\u0061\"\\": 1, "b\u0000c": 2, "": 3, "\ud83d\ude00": 4, 'it''s': 5})");
    ASSERT_FALSE(scan); // two texts in a row
    const auto whole = check_scan_object(R"({"\u0061\"\\": 1, "b\u0000c": 2, "": 3, "\ud83d\ude00": 4})");
    ASSERT_TRUE(whole);
    EXPECT_THAT(keys_of(whole->root), testing::ElementsAre("a\"\\", "b", "", "\xf0\x9f\x98\x80"));
}

TEST(Scan, NestingEndsWhereTheParserEnds) {
    const auto nested = [](size_t depth) {
        std::string text;
        for (size_t i = 0; i < depth; i++)
            text += "{\"a\":";
        return text + "1" + std::string(depth, '}');
    };
    EXPECT_TRUE(parsed(nested(31)) && check_scan_object(nested(31)));
    EXPECT_FALSE(parsed(nested(33)) || check_scan_object(nested(33)));
    EXPECT_FALSE(check_scan_object(nested(100000)));
}

TEST(Scan, ManyMembersTakeNoTime) {
    std::string text = "{";
    for (int i = 0; i < 50000; i++)
        text += "\"key" + std::to_string(i % 1000) + "\": 1,";
    text += "\"last\": 2}";
    const auto scan = check_scan_object(text);
    ASSERT_TRUE(scan);
    EXPECT_EQ(scan->root.members.size(), 50001U);
    EXPECT_EQ(scan->root.find("key999")->at, scan->root.members[49999].at);
}
