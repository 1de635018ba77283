// Splitting texts into words, and which names are valid.
#include "uci_internal.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using Commands = std::vector<std::vector<std::string>>;

// The commands in a text, whose memory is exactly as large as uci_text_of() asks for.
std::pair<Commands, bool> read(const std::string &content) {
    const auto memory = std::make_unique<char[]>(2 * content.size() + 2);
    memcpy(memory.get(), content.data(), content.size());
    uci_text text = uci_text_of(memory.get(), content.size());
    Commands commands;
    uci_command command;
    while (uci_next_command(text, command)) {
        commands.emplace_back();
        for (size_t i = 0; i < std::min(command.count, command.word.size()); i++)
            commands.back().push_back(command.word[i]);
    }
    return {commands, text.broken};
}

struct Row {
    const char *name;
    std::string text;
    Commands commands;
    friend void PrintTo(const Row &row, std::ostream *out) {
        *out << row.name;
    }
};

class UciText : public ::testing::TestWithParam<Row> {};

TEST_P(UciText, IsSplitIntoCommandsOfWords) {
    const auto [commands, broken] = read(GetParam().text);
    EXPECT_EQ(commands, GetParam().commands);
    EXPECT_FALSE(broken);
}

INSTANTIATE_TEST_SUITE_P(
    , UciText,
    ::testing::Values(Row{"Empty", "", {}}, Row{"OnlyBlanks", " \t\r\n\n ", {}}, Row{"OneWord", "a", {{"a"}}},
                      Row{"BareWords", "option a b\n", {{"option", "a", "b"}}},
                      Row{"Indented", "\toption\ta \t b \r\n", {{"option", "a", "b"}}},
                      Row{"SingleQuotes", "a 'b c'", {{"a", "b c"}}}, Row{"DoubleQuotes", "a \"b c\"", {{"a", "b c"}}},
                      Row{"EmptyQuotes", "a '' \"\"", {{"a", "", ""}}},
                      Row{"QuotesInsideTheOthers", "a 'b\"c' \"d'e\"", {{"a", "b\"c", "d'e"}}},
                      Row{"PiecesGrowTogether", "a'b'\"c\"d", {{"abcd"}}},
                      Row{"LinesInsideQuotes", "a 'b\nc' \"d\ne\"\nf", {{"a", "b\nc", "d\ne"}, {"f"}}},
                      Row{"Comment", "# all\na # rest\n#\nb#c", {{"a"}, {"b"}}},
                      Row{"CommentSignInsideQuotes", "a '#b' \"#c\"", {{"a", "#b", "#c"}}},
                      Row{"SemicolonEndsWhatIsReadOfALine", "a b;c d\ne", {{"a", "b"}, {"e"}}},
                      Row{"SemicolonBehindQuotes", "a 'b'; 'c\nd", {{"a", "b"}, {"d"}}},
                      Row{"SemicolonOfItsOwnIsAnEmptyWord", "a ;b c\nd", {{"a", "", "b", "c"}, {"d"}}},
                      Row{"SemicolonInFront", ";a\nb", {{"", "a"}, {"b"}}},
                      Row{"SemicolonInsideQuotes", "a ';'", {{"a", ";"}}},
                      Row{"BackslashEscapes", "a\\ b \\# \\; \\\\", {{"a b", "#", ";", "\\"}}},
                      Row{"BackslashInDoubleQuotes", "\"a\\\"b\\\\\"", {{"a\"b\\"}}},
                      Row{"BackslashInSingleQuotes", "'a\\' b", {{"a\\", "b"}}},
                      Row{"LineContinued", "a \\\n b\\\nc\nd", {{"a", "bc"}, {"d"}}},
                      Row{"LineContinuedInDoubleQuotes", "\"a\\\nb\"", {{"ab"}}},
                      Row{"BackslashAtTheEnd", "a\\", {{"a"}}}, Row{"OnlyABackslash", "\\", {{""}}},
                      Row{"MoreWordsThanAreKept", "a b c d e f", {{"a", "b", "c", "d"}}},
                      Row{"ShortWords", "a b c\n'' '' ''\nd", {{"a", "b", "c"}, {"", "", ""}, {"d"}}}),
    [](const auto &param) { return param.param.name; });

class UciBrokenText : public ::testing::TestWithParam<std::string> {};

TEST_P(UciBrokenText, IsReported) {
    EXPECT_TRUE(read(GetParam()).second);
}

INSTANTIATE_TEST_SUITE_P(, UciBrokenText,
                         ::testing::Values("'", "\"", "a 'b", "a \"b", "a 'b\nc\n", "\"a\\\"", "\"a\\",
                                           std::string("a\0b", 3)));

TEST(UciNames, AreLettersDigitsAndUnderscores) {
    EXPECT_TRUE(uci_valid_name("eth_HasNeigh2"));
    for (const char *name : {"", "a-b", "a b", "a.b", "@a[0]", "\xc3\xa4"})
        EXPECT_FALSE(uci_valid_name(name)) << name;
}

TEST(UciNames, PackagesMayHaveHyphens) {
    EXPECT_TRUE(uci_valid_package("a-b_9"));
    for (const char *name : {"", "a/b", "..", "a.b"})
        EXPECT_FALSE(uci_valid_package(name)) << name;
}

TEST(UciNames, TypesArePrintableWithoutBlanks) {
    EXPECT_TRUE(uci_valid_type("wifi-iface!~"));
    for (const char *name : {"", "a b", "a\tb", "a\x7f", "\xc3\xa4"})
        EXPECT_FALSE(uci_valid_type(name)) << name;
}

TEST(UciTuple, IsSplitAtDotsAndTheFirstEqualsSign) {
    char text[] = "p.s.o=a.b=c";
    uci_ptr ptr;
    EXPECT_EQ(uci_split_tuple(&ptr, text), UCI_OK);
    EXPECT_STREQ(ptr.package, "p");
    EXPECT_STREQ(ptr.section, "s");
    EXPECT_STREQ(ptr.option, "o");
    EXPECT_STREQ(ptr.value, "a.b=c");
    EXPECT_EQ(ptr.target, UCI_TYPE_OPTION);
}

TEST(UciTuple, NamesWhatItIsAbout) {
    char package[] = "p";
    char section[] = "p.s";
    uci_ptr ptr;
    EXPECT_EQ(uci_split_tuple(&ptr, package), UCI_OK);
    EXPECT_EQ(ptr.target, UCI_TYPE_PACKAGE);
    EXPECT_EQ(ptr.section, nullptr);
    EXPECT_EQ(uci_split_tuple(&ptr, section), UCI_OK);
    EXPECT_EQ(ptr.target, UCI_TYPE_SECTION);
    EXPECT_EQ(ptr.option, nullptr);
}

TEST(UciTuple, EmptyOrSurplusPartsAreParseErrors) {
    for (const std::string text : {"", ".", "..", "p.", "p..o", ".s", "p.s.", "p.s.o.x", "p.s.o.", "=v"}) {
        std::string copy = text;
        uci_ptr ptr;
        EXPECT_EQ(uci_split_tuple(&ptr, copy.data()), UCI_ERR_PARSE) << text;
    }
}

} // namespace
