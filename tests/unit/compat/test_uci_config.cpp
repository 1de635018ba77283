// A package's file: what it may hold and what makes it a broken one.
#include "uci_support.h"

namespace {

using UciConfig = UciTest;

TEST_F(UciConfig, ValuesMayBeBareOrQuoted) {
    config("config a s\n\toption bare v\n\toption single 'v w'\n\toption double \"v w\"\n");
    EXPECT_EQ(value("p.s.bare"), "v");
    EXPECT_EQ(value("p.s.single"), "v w");
    EXPECT_EQ(value("p.s.double"), "v w");
}

TEST_F(UciConfig, ValuesMaySpanLinesInsideQuotes) {
    config("config a s\n\toption single 'v\nw'\n\toption double \"v\n\nw\"\n");
    EXPECT_EQ(value("p.s.single"), "v\nw");
    EXPECT_EQ(value("p.s.double"), "v\n\nw");
}

TEST_F(UciConfig, ListHoldsSeveralStrings) {
    config("config a s\n\tlist l 'one'\n\tlist l two\n\tlist l \"three 3\"\n");
    EXPECT_EQ(value("p.s.l"), "[one|two|three 3]");
    EXPECT_EQ(ptr.last->type, UCI_TYPE_OPTION);
    EXPECT_EQ(ptr.o->type, UCI_TYPE_LIST);
}

TEST_F(UciConfig, ListBehindAnOptionOfThatNameContinuesIt) {
    config("config a s\n\toption l one\n\tlist l two\n");
    EXPECT_EQ(value("p.s.l"), "[one|two]");
}

TEST_F(UciConfig, OptionBehindAListOfThatNameReplacesIt) {
    config("config a s\n\tlist l one\n\tlist l two\n\toption l three\n");
    EXPECT_EQ(value("p.s.l"), "three");
}

TEST_F(UciConfig, LastOptionOfANameCounts) {
    config("config a s\n\toption o 1\n\toption o 2\n");
    EXPECT_EQ(value("p.s.o"), "2");
}

TEST_F(UciConfig, EmptyValueIsNoOption) {
    config("config a s\n\toption o ''\n\toption r\n");
    EXPECT_EQ(value("p.s.o"), "type 3");
    EXPECT_EQ(value("p.s.r"), "type 3");
}

TEST_F(UciConfig, LaterEmptyValueLeavesTheEarlierOneStanding) {
    config("config a s\n\toption o 1\n\toption o ''\n\tlist l 2\n\tlist l 3\n\toption l \"\"\n\toption o\n");
    EXPECT_EQ(value("p.s.o"), "1");
    EXPECT_EQ(value("p.s.l"), "[2|3]");
}

TEST_F(UciConfig, SemicolonEndsWhatIsReadOfALine) {
    config("config a s; option o 1\n\toption q 1; option r 2\n\tlist l 1; list l 2\nconfig b t ; option o 1\n");
    EXPECT_EQ(value("p.s.o"), "type 3");
    EXPECT_EQ(value("p.s.q"), "1");
    EXPECT_EQ(value("p.s.r"), "type 3");
    EXPECT_EQ(value("p.s.l"), "[1]");
    EXPECT_EQ(value("p.t.o"), "type 3");
}

TEST_F(UciConfig, SectionWithoutNameIsAnonymous) {
    config("config a\n\toption o 1\nconfig a ''\n\toption o 2\n");
    EXPECT_EQ(value("p.@a[0].o"), "1");
    EXPECT_TRUE(ptr.s->anonymous);
    EXPECT_EQ(value("p.@a[1].o"), "2");
    EXPECT_TRUE(ptr.s->anonymous);
    const std::string generated = ptr.section;
    EXPECT_EQ(value("p." + generated + ".o"), "2");
}

TEST_F(UciConfig, SectionNamedAgainGoesOn) {
    config("config a s\n\toption o 1\nconfig a t\nconfig a s\n\toption q 2\n");
    EXPECT_EQ(value("p.s.o"), "1");
    EXPECT_EQ(value("p.s.q"), "2");
    EXPECT_EQ(value("p.@a[1].o"), "type 3");
    EXPECT_EQ(value("p.@a[2].o"), "type 2");
}

TEST_F(UciConfig, EmptyFileIsAnEmptyPackage) {
    config("");
    EXPECT_EQ(look_up("p"), UCI_OK);
    EXPECT_EQ(value("p.s"), "type 2");
}

TEST_F(UciConfig, PackageLineAndCommentsAreAllowed) {
    config("package other\n# comment\n\nconfig a s # comment\n\toption o 1\n");
    EXPECT_EQ(value("p.s.o"), "1");
}

struct Row {
    const char *name;
    const char *text;
    friend void PrintTo(const Row &row, std::ostream *out) {
        *out << row.name;
    }
};

class UciBrokenConfig : public UciTest, public ::testing::WithParamInterface<Row> {};

TEST_P(UciBrokenConfig, IsAParseError) {
    config(GetParam().text);
    EXPECT_EQ(look_up("p.s.o"), UCI_ERR_PARSE);
}

INSTANTIATE_TEST_SUITE_P(
    , UciBrokenConfig,
    ::testing::Values(
        Row{"UnknownCommand", "config a s\nsetting o 1\n"}, Row{"OptionBeforeConfig", "option o 1\n"},
        Row{"ListBeforeConfig", "list o 1\n"}, Row{"ConfigWithoutType", "config\n"},
        Row{"ConfigWithSurplusWord", "config a s x\n"}, Row{"ConfigWithWrongName", "config a s-t\n"},
        Row{"ConfigWithEmptyType", "config '' s\n"}, Row{"ConfigWithWrongType", "config 'a b' s\n"},
        Row{"OptionWithoutName", "config a s\noption\n"}, Row{"OptionWithSurplusWord", "config a s\noption o 1 2\n"},
        Row{"OptionWithWrongName", "config a s\noption o-p 1\n"}, Row{"PackageWithoutName", "package\nconfig a s\n"},
        Row{"SectionOfTwoTypes", "config a s\nconfig b s\n"},
        Row{"SemicolonInPlaceOfAValue", "config a s\noption other ;option o 1\n"},
        Row{"SemicolonInPlaceOfAName", "config a s\noption ;o 1\n"},
        Row{"SemicolonInFront", "config a s\n;option o 1\n"},
        Row{"OptionNamedWithAHyphen", "config a s\noption -x 1\n"},
        Row{"OptionNamedWithABracket", "config a s\noption [ 1\n"}, Row{"OpenSingleQuote", "config a s\noption o '1\n"},
        Row{"OpenDoubleQuote", "config a s\noption o \"1\n"}, Row{"NoConfiguration", "{\"a\": 1}\n"}),
    [](const auto &param) { return param.param.name; });

TEST_F(UciConfig, NulInAFileIsAParseError) {
    config(std::string("config a s\n\toption o '1\0'\n", 26));
    EXPECT_EQ(look_up("p.s.o"), UCI_ERR_PARSE);
}

TEST_F(UciConfig, MoreElementsThanAreKeptAreRefused) {
    std::string text = "config a s\n";
    for (int i = 0; i < 8191; i++)
        text += "option o" + std::to_string(i) + " 1\n";
    config(text, "full");
    config(text + "option more 1\n", "over");
    EXPECT_EQ(value("full.s.o8190"), "1");
    EXPECT_EQ(look_up("over.s.o1"), UCI_ERR_MEM);
}

} // namespace
