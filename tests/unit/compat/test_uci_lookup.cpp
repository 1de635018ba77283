// Looking up packages, sections and options by a tuple.
#include "uci_support.h"

namespace {

class UciLookup : public UciTest {
protected:
    UciLookup() {
        config("config main 'tolmux'\n"
               "\toption TrafficPlcRoot '1'\n"
               "config port\n\toption name 'eth0'\n"
               "config port 'wan'\n\toption name 'eth1'\n"
               "config port\n\toption name 'eth2'\n",
               "tolmux");
    }
    bool complete() const {
        return (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0;
    }
};

TEST_F(UciLookup, CodesHaveTheirValues) {
    EXPECT_EQ(UCI_OK, 0);
    EXPECT_EQ(UCI_ERR_NOTFOUND, 3);
    EXPECT_EQ(UCI_ERR_PARSE, 5);
    EXPECT_EQ(UCI_TYPE_PACKAGE, 2);
    EXPECT_EQ(UCI_TYPE_SECTION, 3);
    EXPECT_EQ(UCI_TYPE_OPTION, 4);
    EXPECT_EQ(UCI_TYPE_STRING, 0);
    EXPECT_EQ(UCI_TYPE_LIST, 1);
    EXPECT_EQ(static_cast<int>(uci_ptr::UCI_LOOKUP_COMPLETE), 2);
}

TEST_F(UciLookup, ExistingOptionIsCompleteAndLast) {
    ASSERT_EQ(look_up("tolmux.tolmux.TrafficPlcRoot"), UCI_OK);
    EXPECT_TRUE(complete());
    ASSERT_TRUE(ptr.o);
    EXPECT_EQ(ptr.last, &ptr.o->e);
    EXPECT_EQ(ptr.last->type, UCI_TYPE_OPTION);
    EXPECT_EQ(ptr.o->type, UCI_TYPE_STRING);
    EXPECT_STREQ(ptr.o->v.string, "1");
    EXPECT_STREQ(ptr.o->e.name, "TrafficPlcRoot");
    EXPECT_EQ(ptr.o->section, ptr.s);
    EXPECT_EQ(ptr.s->package, ptr.p);
    EXPECT_EQ(ptr.target, UCI_TYPE_OPTION);
    EXPECT_STREQ(ptr.package, "tolmux");
    EXPECT_STREQ(ptr.section, "tolmux");
    EXPECT_STREQ(ptr.option, "TrafficPlcRoot");
    EXPECT_EQ(ptr.value, nullptr);
}

TEST_F(UciLookup, TextIsCutUp) {
    ASSERT_EQ(look_up("tolmux.tolmux.TrafficPlcRoot"), UCI_OK);
    EXPECT_STREQ(tuple.c_str(), "tolmux");
}

TEST_F(UciLookup, ExistingSectionIsCompleteAndLast) {
    ASSERT_EQ(look_up("tolmux.tolmux"), UCI_OK);
    EXPECT_TRUE(complete());
    EXPECT_EQ(ptr.last->type, UCI_TYPE_SECTION);
    EXPECT_EQ(ptr.last, &ptr.s->e);
    EXPECT_STREQ(ptr.s->type, "main");
    EXPECT_FALSE(ptr.s->anonymous);
    EXPECT_EQ(ptr.o, nullptr);
}

TEST_F(UciLookup, ExistingPackageIsCompleteAndLast) {
    ASSERT_EQ(look_up("tolmux"), UCI_OK);
    EXPECT_TRUE(complete());
    EXPECT_EQ(ptr.last->type, UCI_TYPE_PACKAGE);
    EXPECT_EQ(ptr.last, &ptr.p->e);
}

TEST_F(UciLookup, MissingOptionIsZeroWithTheSectionLast) {
    ASSERT_EQ(look_up("tolmux.tolmux.missing"), UCI_OK);
    EXPECT_FALSE(complete());
    EXPECT_EQ(ptr.last->type, UCI_TYPE_SECTION);
    EXPECT_EQ(ptr.o, nullptr);
}

TEST_F(UciLookup, MissingSectionIsZeroWithThePackageLast) {
    for (const char *text : {"tolmux.missing", "tolmux.missing.option"}) {
        ASSERT_EQ(look_up(text), UCI_OK);
        EXPECT_FALSE(complete());
        EXPECT_EQ(ptr.last->type, UCI_TYPE_PACKAGE);
        EXPECT_EQ(ptr.s, nullptr);
        EXPECT_EQ(ptr.o, nullptr);
    }
}

TEST_F(UciLookup, MissingPackageIsNotFound) {
    EXPECT_EQ(look_up("missing"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(look_up("missing.section.option"), UCI_ERR_NOTFOUND);
}

TEST_F(UciLookup, DeltaAloneIsNoPackage) {
    delta("missing.section='type'\n", "missing");
    EXPECT_EQ(look_up("missing.section"), UCI_ERR_NOTFOUND);
}

TEST_F(UciLookup, EmptyTextIsAParseError) {
    EXPECT_EQ(look_up(""), UCI_ERR_PARSE);
}

TEST_F(UciLookup, FourPartsAreAParseError) {
    EXPECT_EQ(look_up("tolmux.tolmux.TrafficPlcRoot.x"), UCI_ERR_PARSE);
}

TEST_F(UciLookup, BrokenFileIsAParseErrorAgainAndAgain) {
    config("config main 'open\n", "broken");
    EXPECT_EQ(look_up("broken.a.b"), UCI_ERR_PARSE);
    EXPECT_EQ(look_up("broken.a.b"), UCI_ERR_PARSE);
}

TEST_F(UciLookup, OptionWithAWrongNameIsAParseError) {
    EXPECT_EQ(look_up("tolmux.tolmux.a-b"), UCI_ERR_PARSE);
}

TEST_F(UciLookup, NullArgumentsAreInvalid) {
    char text[] = "tolmux";
    EXPECT_EQ(uci_lookup_ptr(nullptr, &ptr, text, true), UCI_ERR_INVAL);
    EXPECT_EQ(uci_lookup_ptr(ctx, nullptr, text, true), UCI_ERR_INVAL);
    EXPECT_EQ(uci_lookup_ptr(ctx, &ptr, nullptr, true), UCI_ERR_INVAL);
}

TEST_F(UciLookup, PackageNameThatLeavesTheDirectoryIsInvalid) {
    dir.write("secret", "config a b\n");
    EXPECT_EQ(look_up("/etc/passwd"), UCI_ERR_INVAL);
    EXPECT_EQ(look_up("../secret"), UCI_ERR_PARSE);
    EXPECT_EQ(look_up("sub/tolmux"), UCI_ERR_INVAL);
}

TEST_F(UciLookup, ValueInTheTextIsSplitOff) {
    ASSERT_EQ(look_up("tolmux.tolmux.TrafficPlcRoot=2"), UCI_OK);
    EXPECT_STREQ(ptr.value, "2");
    EXPECT_STREQ(ptr.o->v.string, "1");
}

TEST_F(UciLookup, ExtendedSyntaxCountsSectionsOfAType) {
    EXPECT_EQ(value("tolmux.@port[0].name"), "eth0");
    EXPECT_EQ(value("tolmux.@port[1].name"), "eth1");
    EXPECT_EQ(value("tolmux.@port[2].name"), "eth2");
    EXPECT_EQ(value("tolmux.@main[0].TrafficPlcRoot"), "1");
}

TEST_F(UciLookup, NegativeIndexCountsFromTheEnd) {
    EXPECT_EQ(value("tolmux.@port[-1].name"), "eth2");
    EXPECT_EQ(value("tolmux.@port[-3].name"), "eth0");
}

TEST_F(UciLookup, EmptyTypeIsAnyType) {
    EXPECT_EQ(value("tolmux.@[0].TrafficPlcRoot"), "1");
    EXPECT_EQ(value("tolmux.@[3].name"), "eth2");
}

TEST_F(UciLookup, ExtendedSyntaxNamesTheSectionItFound) {
    ASSERT_EQ(look_up("tolmux.@port[1]"), UCI_OK);
    EXPECT_TRUE(complete());
    EXPECT_STREQ(ptr.section, "wan");
    EXPECT_NE(ptr.flags & uci_ptr::UCI_LOOKUP_EXTENDED, 0);
    EXPECT_FALSE(ptr.s->anonymous);
    ASSERT_EQ(look_up("tolmux.@port[0]"), UCI_OK);
    EXPECT_TRUE(ptr.s->anonymous);
}

TEST_F(UciLookup, IndexOutOfRangeIsAMissingSection) {
    for (const char *text : {"tolmux.@port[3].name", "tolmux.@port[-4].name", "tolmux.@none[0].name"}) {
        ASSERT_EQ(look_up(text), UCI_OK) << text;
        EXPECT_FALSE(complete());
        EXPECT_EQ(ptr.last->type, UCI_TYPE_PACKAGE);
    }
}

TEST_F(UciLookup, MalformedExtendedSyntaxIsInvalid) {
    for (const char *section : {"@port", "@port[", "@port[]", "@port[x]", "@port[0", "@port[0]x", "port[0]",
                                "@port[0x]", "@port[99999999999999999999]", "@port[-99999999999999999999]", "a-b"})
        EXPECT_EQ(look_up("tolmux." + std::string(section) + ".name"), UCI_ERR_INVAL) << section;
}

TEST_F(UciLookup, ExtendedSyntaxIsInvalidWhenNotAskedFor) {
    EXPECT_EQ(look_up("tolmux.@port[0].name", false), UCI_ERR_INVAL);
    EXPECT_EQ(look_up("tolmux.tolmux.TrafficPlcRoot", false), UCI_OK);
}

TEST_F(UciLookup, PackageIsLoadedOncePerContext) {
    EXPECT_EQ(value("tolmux.tolmux.TrafficPlcRoot"), "1");
    config("config main 'tolmux'\n\toption TrafficPlcRoot '2'\n", "tolmux");
    EXPECT_EQ(value("tolmux.tolmux.TrafficPlcRoot"), "1");
}

TEST_F(UciLookup, PendingChangeIsApplied) {
    delta("tolmux.tolmux.eth_HasNeigh='3'\n", "tolmux");
    EXPECT_EQ(value("tolmux.tolmux.eth_HasNeigh"), "3");
}

TEST(UciContext, DirectoriesNeedAContextAndAName) {
    uci_context *ctx = uci_alloc_context();
    ASSERT_TRUE(ctx);
    EXPECT_STREQ(ctx->confdir, "/etc/config");
    EXPECT_EQ(uci_set_confdir(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set_savedir(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set_confdir(nullptr, "/"), UCI_ERR_INVAL);
    uci_free_context(ctx);
    uci_free_context(nullptr);
}

} // namespace
