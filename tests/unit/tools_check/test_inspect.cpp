// A file as a whole.
#include "report_support.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct broken_row {
    const char *name;
    std::string_view text;
    const char *place;
    const char *said;
};
class BrokenFile : public testing::TestWithParam<broken_row> {};

std::string members(size_t count, const std::string &value) {
    std::string text;
    for (size_t i = 0; i < count; i++)
        text += (i == 0 ? "\"x" : ", \"x") + std::to_string(i) + "\": " + value;
    return text;
}

} // namespace

TEST_P(BrokenFile, SaysWhereAndWhyTheDaemonDoesNotStart) {
    const auto report = check_inspect(GetParam().text);
    EXPECT_FALSE(report->starts);
    EXPECT_FALSE(check_is_read(*report));
    EXPECT_THAT(findings(*report),
                ElementsAre("not-json: " + std::string(GetParam().said) + ": the daemon does not start"));
    EXPECT_THAT(places(*report), ElementsAre(std::string(GetParam().place) + " error not-json"));
}

INSTANTIATE_TEST_SUITE_P(
    Files, BrokenFile,
    testing::Values(broken_row{"Empty", "", "1:1", "the file is empty"},
                    broken_row{"Space", " \n ", "1:1", "the file is empty"},
                    broken_row{"Truncated", "{\"enable\": true\n", "2:1", "the file ends in the middle of a value"},
                    broken_row{"NoComma", "{\"a\": 1\n \"b\": 2}", "2:2",
                               "no JSON, object value separator ',' expected"},
                    broken_row{"Words", "enable=1", "1:1", "no JSON, unexpected character"},
                    broken_row{"Null", "null ", "1:1", "the file holds null"},
                    broken_row{"ZeroByte", std::string_view("{\"a\": 1 \0}", 10), "1:9", "no JSON, a zero byte"},
                    broken_row{"Number", "12", "1:3", "the file ends in the middle of a value"}),
    [](const auto &row) { return row.param.name; });

TEST(Inspect, ZeroByteThatLeavesTheParserWithAPartIsNamed) {
    const auto report = check_inspect(std::string_view("{\"a\": {}/*\0", 11));
    EXPECT_FALSE(check_is_read(*report));
    EXPECT_THAT(findings(*report),
                ElementsAre("not-json: no JSON, a zero byte: the daemon takes a part of the file for the whole"));
    EXPECT_THAT(places(*report), ElementsAre("1:11 error not-json"));
}

TEST(Inspect, DeepNestingIsRefusedAsTheDaemonRefusesIt) {
    EXPECT_THAT(findings(std::string(100000, '[')), ElementsAre(HasSubstr("not-json: no JSON, nesting too deep")));
}

TEST(Inspect, SoundFileGivesNoFinding) {
    const auto report = check_inspect(file_with("", R"("eth0": {"type": "ethernet"})"));
    EXPECT_THAT(findings(*report), IsEmpty());
    EXPECT_TRUE(report->starts);
    EXPECT_EQ(report->record.enable, 1);
}

TEST(Inspect, FileThatHoldsNoObjectCountsAsAnEmptyOne) {
    for (const char *text : {"[1]", "\"x\"", "5 "}) {
        const auto report = check_inspect(text);
        EXPECT_THAT(findings(*report),
                    ElementsAre("wrong-type: the file should hold an object; what it holds counts as an empty one"));
        EXPECT_TRUE(check_is_read(*report) && report->starts);
    }
}

TEST(Inspect, MissingEnableIsSaidAndADisabledDaemonIsNot) {
    EXPECT_THAT(findings("{}"), ElementsAre("missing-setting: \"enable\" is missing: the daemon ends at once, as one "
                                            "that is disabled"));
    EXPECT_THAT(findings(R"({"enable": false})"), IsEmpty());
}

TEST(Inspect, EnabledDaemonNeedsItsSections) {
    EXPECT_THAT(findings(R"({"enable": true})"),
                ElementsAre("missing-section: \"bridges\" is missing: no bridge is managed",
                            HasSubstr("missing-section: \"param\" is missing"),
                            "missing-section: \"interfaces\" is missing: no port is known"));
}

TEST(Inspect, TextThatIsReadAsTrueIsSaid) {
    EXPECT_THAT(findings(R"({"enable": "false", "bridges": {}, "param": {"period": 1}, "interfaces": {}})"),
                ElementsAre(R"(wrong-type: "enable" should be true or false; "false" is read as on)"));
}

TEST(Inspect, SectionOfAnotherTypeIsAnEmptyOne) {
    const auto report =
        check_inspect(R"({"enable": true, "bridges": 5, "param": [], "interfaces": "x", "backhual": null})");
    EXPECT_THAT(places(*report),
                ElementsAre("1:29 warning wrong-type", "1:32 warning missing-setting", "1:41 warning wrong-type",
                            "1:59 warning wrong-type", "1:76 warning wrong-type"));
}

TEST(Inspect, MisspeltKeysAreFoundInEverySectionWithWhatWasMeant) {
    EXPECT_THAT(findings(R"({"enable": true, "Bridges": {}, "param": {"period": 1, "hightreshold": 1, "type": 1},
        "bridges": {"b": {"loop_avoidence": true}}, "interfaces": {"x": {"type": "5g", "non_relay": true}},
        "backhual": {"x": {"cuople": "y"}}, "zzz": 1})"),
                ElementsAre("unknown-key: \"Bridges\" is no setting of the file; did you mean \"bridges\"?",
                            "unknown-key: \"hightreshold\" is no setting of \"param\"; did you mean "
                            "\"high_threshold\"?",
                            "unknown-key: \"type\" is no setting of \"param\"; it belongs to an interface",
                            "unknown-key: \"loop_avoidence\" is no setting of a bridge; did you mean "
                            "\"loop_avoidance\"?",
                            "unknown-key: \"non_relay\" is no setting of an interface; did you mean \"nonrelay\"?",
                            "left-out: \"x\" is left out: it has no \"couple\"",
                            "unknown-key: \"cuople\" is no setting of a couple; did you mean \"couple\"?",
                            "unknown-key: \"zzz\" is no setting of the file"));
}

TEST(Inspect, RepeatedKeysAreFoundWhereTheyAreRepeated) {
    EXPECT_THAT(places("{\"enable\": true,\n\"enable\": false,\n\"bridges\": {\"a\": {},\n\"a\": {}}}"),
                ElementsAre("2:1 warning repeated-key", "4:1 warning repeated-key"));
}

TEST(Inspect, OddJsonIsNotedOncePerKind) {
    EXPECT_THAT(places("{'enable': false, // one\n // two\n} x"),
                ElementsAre("1:2 note odd-json", "1:17 note odd-json", "1:19 note odd-json", "3:3 note odd-json"));
}

TEST(Inspect, PathSelectionWithoutLoopAvoidanceIsSaid) {
    const auto said = [](const std::string &flags) {
        return findings(R"({"enable": true, "bridges": {"br-lan": {)" + flags +
                        R"(}}, "param": {"period": 5}, "interfaces": {}})");
    };
    EXPECT_THAT(said(R"("path_selection": true)"),
                ElementsAre("never-flushed: \"br-lan\" has path selection without loop avoidance: when a link goes, "
                            "streams stay on it, since nothing flushes the bridge's tables"));
    EXPECT_THAT(said(R"("path_selection": true, "loop_avoidance": true)"), IsEmpty());
    EXPECT_THAT(said(R"("loop_avoidance": true)"), IsEmpty());
}

TEST(Inspect, BridgesPastTheEighthAreLeftOut) {
    const auto report = check_inspect(R"({"enable": false, "bridges": {)" + members(10, "{}") + "}}");
    EXPECT_EQ(report->record.bridge_num, 8U);
    EXPECT_THAT(findings(*report),
                ElementsAre("too-many: only 8 entries of \"bridges\" are kept; \"x8\" and all behind it are left out"));
    ASSERT_EQ(report->left_out.size(), 2U);
    EXPECT_EQ(report->left_out[0].key, "x8");
    EXPECT_EQ(report->left_out[1].key, "x9");
}

TEST(Inspect, BridgeThatIsNoObjectHasNoFeatures) {
    EXPECT_THAT(findings(R"({"enable": false, "bridges": {"a": 7, "b": {"loop_avoidance": 1}}})"),
                ElementsAre("wrong-type: \"a\" should be an object; what it is counts as an empty one",
                            "wrong-type: \"loop_avoidance\" should be true or false; 1 is read as on"));
}

TEST(Inspect, NamesThatTheKernelDoesNotGiveAreFound) {
    const auto names = [](const std::string &name) {
        return findings(R"({"enable": false, "bridges": {")" + name + R"(": {}}})");
    };
    EXPECT_THAT(names("abcdefghijklmno"), IsEmpty());
    EXPECT_THAT(names("abcdefghijklmnop"), ElementsAre(HasSubstr("long-name: \"abcdefghijklmnop\" is no name of")));
    EXPECT_THAT(names("abcdefghijklmnopq"),
                ElementsAre(HasSubstr("long-name: \"abcdefghijklmnopq\" is cut to \"abcdefghijklmnop\"")));
    for (const char *name : {"", ".", "..", "a/b", "a b", "a:b", "a\\tb"})
        EXPECT_THAT(names(name), ElementsAre(HasSubstr("bad-name: "))) << name;
}

TEST(Inspect, FindingsOfAHugeFileTakeNoTime) {
    const auto report = check_inspect(R"({"enable": false, "param": {"period": 1, )" + members(3000, "1") + "}}");
    EXPECT_EQ(report->findings.size(), 3000U);
}
