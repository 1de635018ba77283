// Pending changes on top of a package, well-formed or not.
#include "uci_support.h"

namespace {

class UciDelta : public UciTest {
protected:
    UciDelta() {
        config("config main 's'\n\toption o '1'\n\tlist l 'a'\n\tlist l 'b'\nconfig main 't'\n\toption o '2'\n");
    }
};

TEST_F(UciDelta, SetsAnOption) {
    delta("p.s.o='3'\np.s.n=4\n");
    EXPECT_EQ(value("p.s.o"), "3");
    EXPECT_EQ(value("p.s.n"), "4");
    EXPECT_EQ(value("p.t.o"), "2");
}

TEST_F(UciDelta, LastSettingCounts) {
    delta("p.s.o='3'\np.s.o='4'\n");
    EXPECT_EQ(value("p.s.o"), "4");
}

TEST_F(UciDelta, ValueMayHoldDotsBlanksQuotesAndLines) {
    delta("p.s.o='a.b = c'\\''d\ne'\n");
    EXPECT_EQ(value("p.s.o"), "a.b = c'd\ne");
}

TEST_F(UciDelta, EmptyValueRemovesTheOption) {
    delta("p.s.o=''\np.t.o=\n");
    EXPECT_EQ(value("p.s.o"), "type 3");
    EXPECT_EQ(value("p.t.o"), "type 3");
}

TEST_F(UciDelta, RemovesOptionsAndSections) {
    delta("-p.s.o\n-p.t\n");
    EXPECT_EQ(value("p.s.o"), "type 3");
    EXPECT_EQ(value("p.t"), "type 2");
}

TEST_F(UciDelta, RemovalOfAMissingOptionLeavesTheSection) {
    delta("-p.s.missing\n-p.missing.o\n-p.missing\n");
    EXPECT_EQ(value("p.s.o"), "1");
}

TEST_F(UciDelta, CreatesAndRetypesSections) {
    delta("p.new='other'\np.new.o='5'\np.s='other'\n+p.cfg01='main'\np.cfg01.o='6'\n");
    EXPECT_EQ(value("p.new.o"), "5");
    EXPECT_EQ(value("p.@other[0].o"), "1");
    EXPECT_EQ(value("p.cfg01.o"), "6");
    EXPECT_EQ(value("p.@main[-1].o"), "6");
    EXPECT_TRUE(ptr.s->anonymous);
}

TEST_F(UciDelta, EmptyTypeRemovesTheSection) {
    delta("p.s=''\n");
    EXPECT_EQ(value("p.s"), "type 2");
}

TEST_F(UciDelta, AddsToAndRemovesFromLists) {
    delta("|p.s.l='c'\n~p.s.l='a'\n|p.s.o='2'\n|p.s.fresh='x'\n");
    EXPECT_EQ(value("p.s.l"), "[b|c]");
    EXPECT_EQ(value("p.s.o"), "[1|2]");
    EXPECT_EQ(value("p.s.fresh"), "[x]");
}

TEST_F(UciDelta, ListGoesWithItsLastItem) {
    delta("~p.s.l='a'\n~p.s.l='b'\n~p.s.l='b'\n~p.s.o='1'\n");
    EXPECT_EQ(value("p.s.l"), "type 3");
    EXPECT_EQ(value("p.s.o"), "1");
}

TEST_F(UciDelta, Renames) {
    delta("@p.s='u'\n@p.u.o='q'\n@p.missing='x'\n@p.u.missing='y'\n");
    EXPECT_EQ(value("p.u.q"), "1");
    EXPECT_EQ(value("p.s"), "type 2");
}

struct DeltaRow {
    const char *name;
    const char *text;
    friend void PrintTo(const DeltaRow &row, std::ostream *out) {
        *out << row.name;
    }
};

class UciIdleDelta : public UciDelta, public ::testing::WithParamInterface<DeltaRow> {};

TEST_P(UciIdleDelta, ChangesNothingAndHoldsUpNothing) {
    delta(GetParam().text + std::string("\np.t.o='9'\n"));
    EXPECT_EQ(value("p.s.o"), "1");
    EXPECT_EQ(value("p.s.l"), "[a|b]");
    EXPECT_EQ(value("p.t.o"), "9");
}

INSTANTIATE_TEST_SUITE_P(
    , UciIdleDelta,
    ::testing::Values(DeltaRow{"OtherPackage", "q.s.o='7'"}, DeltaRow{"MissingSection", "p.missing.o='7'"},
                      DeltaRow{"NoValue", "p.s.o"}, DeltaRow{"NoSection", "p='7'"},
                      DeltaRow{"FourParts", "p.s.o.x='7'"}, DeltaRow{"WrongOptionName", "p.s.a-b='7'"},
                      DeltaRow{"WrongSectionName", "p.@main[0].o='7'"}, DeltaRow{"WrongType", "p.s='a b'"},
                      DeltaRow{"OnlyAMark", "-"}, DeltaRow{"QuotedMark", "'-p.s.o'"},
                      DeltaRow{"BlankBeforeTheMark", " -p.s.o"}, DeltaRow{"HyphenForATuple", "-x"},
                      DeltaRow{"BracketForATuple", "["}, DeltaRow{"OptionBracket", "p.s.[='7'"},
                      DeltaRow{"SectionBracket", "p.[='main'"}, DeltaRow{"SectionHyphen", "p.-x='main'"},
                      DeltaRow{"Semicolon", ";p.s.o='7'"}, DeltaRow{"EmptyWord", "''"},
                      DeltaRow{"AddedSectionThatExists", "+p.s='other'"}, DeltaRow{"ListItemWithoutValue", "|p.s.l"},
                      DeltaRow{"RenamingToAWrongName", "@p.s.o='a b'"}, DeltaRow{"Moving", "^p.s='1'"},
                      DeltaRow{"ListItemOfASection", "|p.s='x'"}, DeltaRow{"Nonsense", "one two three\n=\n.=.\n..="},
                      DeltaRow{"Comment", "# p.s.o='7'"}),
    [](const auto &param) { return param.param.name; });

TEST_F(UciDelta, MarkMayStandApartFromItsTuple) {
    delta("- p.s.o\n| p.s.l=c\n");
    EXPECT_EQ(value("p.s.o"), "type 3");
    EXPECT_EQ(value("p.s.l"), "[a|b|c]");
}

TEST_F(UciDelta, SemicolonEndsWhatIsReadOfALine) {
    delta("p.s.o=3;p.t.o=4\np.s.n=5\n");
    EXPECT_EQ(value("p.s.o"), "3");
    EXPECT_EQ(value("p.t.o"), "2");
    EXPECT_EQ(value("p.s.n"), "5");
}

TEST_F(UciDelta, NulInALineHoldsUpNoOtherLine) {
    delta(std::string("p.s.n='1'\n\0\np.t.o='9'\n", 22));
    EXPECT_EQ(value("p.s.n"), "1");
    EXPECT_EQ(value("p.t.o"), "9");
}

TEST_F(UciDelta, BrokenEndKeepsWhatStandsInFrontOfIt) {
    delta("p.s.o='3'\np.t.o='4\n");
    EXPECT_EQ(value("p.s.o"), "3");
    EXPECT_EQ(value("p.t.o"), "2");
}

TEST_F(UciDelta, MissingSaveDirectoryLeavesTheConfiguration) {
    EXPECT_EQ(value("p.s.o"), "1");
}

} // namespace
