// The table of settings, against what the loader makes of each.
#include "core/config_settings.h"
#include "report_support.h"

#include <algorithm>
#include <set>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

bool is_number(const config_setting &row) {
    return row.kind == CONFIG_NUMBER || row.kind == CONFIG_NUMBER_CUT_FIRST || row.kind == CONFIG_SECONDS;
}

// The settings that have a place in a record or a getter, as gtest's parameters want them: by their index.
std::vector<size_t> rows(bool (*wanted)(const config_setting &)) {
    std::vector<size_t> found;
    for (size_t i = 0; i < CONFIG_SETTINGS.size(); i++) {
        const config_setting &row = CONFIG_SETTINGS[i];
        if ((row.section == CONFIG_PARAM || row.section == CONFIG_INTERFACE) && wanted(row))
            found.push_back(i);
    }
    return found;
}

std::string row_name(const testing::TestParamInfo<size_t> &info) {
    const config_setting &row = CONFIG_SETTINGS[info.param];
    return std::string(row.section == CONFIG_PARAM ? "param_" : "interface_") + row.key;
}

class NumberSetting : public testing::TestWithParam<size_t> {};
class FlagSetting : public testing::TestWithParam<size_t> {};

// What is said of a file that gives the setting this value, but for settings that nothing reads or uses.
std::vector<std::string> said(const config_setting &row, const std::string &value) {
    const std::string member = '"' + std::string(row.key) + "\": " + value;
    const auto report =
        check_inspect(row.section == CONFIG_INTERFACE ? file_with("", R"("x": {"type": "5g", )" + member + "}")
                      : row.key == std::string_view("period")
                          ? R"({"enable": true, "bridges": {}, "interfaces": {}, "param": {)" + member + "}}"
                          : file_with(member));
    std::vector<std::string> lines;
    for (const check_finding &finding : report->findings) {
        if (finding.code != std::string_view("unread-key") && finding.code != std::string_view("unused-vlan"))
            lines.push_back(finding.code);
    }
    return lines;
}

} // namespace

TEST_P(NumberSetting, EndsOfTheRangeAreKeptAsTheyAre) {
    const config_setting &row = CONFIG_SETTINGS[GetParam()];
    EXPECT_THAT(said(row, std::to_string(row.sound.lowest)), IsEmpty());
    EXPECT_THAT(said(row, std::to_string(row.sound.highest)), IsEmpty());
}

TEST_P(NumberSetting, WhatIsPastTheRangeIsChangedOrSaidToMakeNoSense) {
    const config_setting &row = CONFIG_SETTINGS[GetParam()];
    for (const int64_t value : {int64_t{row.sound.lowest} - 1, int64_t{row.sound.highest} + 1})
        EXPECT_THAT(said(row, std::to_string(value)), ElementsAre(testing::AnyOf("changed-value", "unsound-value")))
            << value;
}

TEST_P(NumberSetting, OtherThingsThanWholeNumbersAreNamed) {
    const config_setting &row = CONFIG_SETTINGS[GetParam()];
    EXPECT_THAT(said(row, "\"1\""), ElementsAre("wrong-type"));
    EXPECT_THAT(said(row, "true"), ElementsAre("wrong-type"));
    EXPECT_THAT(said(row, "[1]"), ElementsAre("wrong-type"));
    EXPECT_THAT(said(row, "1.5"), ElementsAre("changed-value"));
    EXPECT_THAT(said(row, "1.0"), IsEmpty());
    EXPECT_THAT(said(row, "99999999999999999999"), ElementsAre("changed-value"));
    EXPECT_THAT(said(row, "null"), testing::Contains("null-value"));
}

INSTANTIATE_TEST_SUITE_P(Table, NumberSetting, testing::ValuesIn(rows(is_number)), row_name);

TEST_P(FlagSetting, OnlyTrueAndFalseAreWrittenSo) {
    const config_setting &row = CONFIG_SETTINGS[GetParam()];
    EXPECT_THAT(said(row, "true"), IsEmpty());
    EXPECT_THAT(said(row, "false"), IsEmpty());
    for (const char *value : {"1", "0", "\"false\"", "{}"})
        EXPECT_THAT(said(row, value), ElementsAre("wrong-type")) << value;
}

INSTANTIATE_TEST_SUITE_P(Table, FlagSetting, testing::ValuesIn(rows([](const config_setting &row) {
                             return row.kind == CONFIG_FLAG || row.kind == CONFIG_NEGATED_FLAG;
                         })),
                         row_name);

TEST(Settings, KeysAreNamedOnceInTheirSection) {
    std::set<std::pair<int, std::string_view>> keys;
    for (const config_setting &row : CONFIG_SETTINGS)
        EXPECT_TRUE(keys.emplace(row.section, row.key).second) << row.key;
}

TEST(Settings, DefaultsAreWhatAnEmptyObjectGives) {
    const auto report = check_inspect(file_with("", R"("x": {"type": "5g"})"));
    ASSERT_EQ(report->interfaces.size(), 1U);
    EXPECT_EQ(report->interfaces[0].settings.size(), 8U);
    EXPECT_EQ(report->param.size(), 26U);
    for (const auto &settings : {report->param, report->interfaces[0].settings})
        for (const check_setting &setting : settings) {
            if (setting.row->key == std::string_view("period"))
                continue;
            EXPECT_EQ(setting.origin, CHECK_DEFAULT) << setting.row->key;
            EXPECT_EQ(setting.value, static_cast<uint32_t>(setting.row->fallback)) << setting.row->key;
        }
}

TEST(Settings, WithoutParamEverythingIsZeroOrOff) {
    const auto report = check_inspect(R"({"enable": true, "bridges": {}, "interfaces": {}})");
    for (const check_setting &setting : report->param) {
        EXPECT_EQ(setting.origin, CHECK_NO_SECTION) << setting.row->key;
        EXPECT_EQ(setting.value, 0U) << setting.row->key;
    }
    EXPECT_THAT(findings(*report), ElementsAre(HasSubstr("\"param\" is missing: all its settings are 0 or off")));
}

TEST(Settings, MissingPeriodIsSaid) {
    EXPECT_THAT(findings(R"({"enable": true, "bridges": {}, "interfaces": {}, "param": {}})"),
                ElementsAre(HasSubstr("missing-setting: \"period\" is missing, the daemon runs with 0: ")));
}

TEST(Settings, ChangedValuesSayWhatTheyBecomeAndWhy) {
    EXPECT_THAT(findings_with(R"("high_threshold": 150)"),
                ElementsAre("changed-value: \"high_threshold\": 150 becomes 100, only 0 to 100 is taken"));
    EXPECT_THAT(findings_with(R"("adjusted_streams": 300)"),
                ElementsAre("changed-value: \"adjusted_streams\": 300 becomes 44, only its last 8 bits are kept"));
    EXPECT_THAT(
        findings_with(R"("adjusted_streams": 2000)"),
        ElementsAre("changed-value: \"adjusted_streams\": 2000 becomes 232, only 0 to 1000 is taken, and of 1000 "
                    "only the last 8 bits are kept"));
    EXPECT_THAT(findings_with(R"("adjusted_streams": -1)"),
                ElementsAre("changed-value: \"adjusted_streams\": -1 becomes 0, only 0 to 1000 is taken"));
    EXPECT_THAT(findings_with(R"("rate_threshold": 65537)"),
                ElementsAre("changed-value: \"rate_threshold\": 65537 becomes 1, only its last 16 bits are kept"));
    EXPECT_THAT(
        findings_with(R"("rate_threshold": 5000000000)"),
        ElementsAre("changed-value: \"rate_threshold\": 5000000000 becomes 65535, it is read as 2147483647, and of "
                    "that only the last 16 bits are kept"));
    EXPECT_THAT(findings_with("", R"("x": {"type": "5g", "priority": 5000000000})"),
                ElementsAre("changed-value: \"priority\": 5000000000 becomes 10, it is read as 2147483647, and of that "
                            "only the last 8 bits are kept, and of those 0 to 10"));
    EXPECT_THAT(findings_with("", R"("x": {"type": "5g", "priority": 300})"),
                ElementsAre("changed-value: \"priority\": 300 becomes 10, only its last 8 bits are kept, and of those "
                            "0 to 10"));
    EXPECT_THAT(findings_with(R"("reserved_ratio": 9.9)"),
                ElementsAre("changed-value: \"reserved_ratio\": 9.9 becomes 9, only whole numbers are taken"));
    EXPECT_THAT(findings(R"({"enable": true, "bridges": {}, "interfaces": {}, "param": {"period": 5000000}})"),
                ElementsAre("changed-value: \"period\": 5000000 becomes 705032, it is counted in 32 bits, in "
                            "milliseconds"));
    EXPECT_THAT(findings(R"({"enable": true, "bridges": {}, "interfaces": {}, "param": {"period": 5000000000}})"),
                ElementsAre("changed-value: \"period\": 5000000000 becomes 4294966, it is read as 2147483647, which is "
                            "counted in 32 bits, in milliseconds"));
}

TEST(Settings, WhatNothingReadsIsNoted) {
    EXPECT_THAT(findings_with(R"("plc_enable": true)", R"("x": {"type": "5g", "ctl_iface": false})"),
                ElementsAre("unread-key: \"plc_enable\" has no effect: nothing reads it",
                            "unread-key: \"ctl_iface\" has no effect: nothing reads it"));
}
