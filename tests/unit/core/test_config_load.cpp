// The file as a whole, and its bridges.
#include "config_file.h"

#include <cstring>
#include <filesystem>

namespace {

struct enable_row {
    const char *name;
    const char *text;
    int enable;
};
class Enable : public testing::TestWithParam<enable_row> {};

struct broken_row {
    const char *name;
    const char *text;
};
class BrokenFileDeathTest : public testing::TestWithParam<broken_row> {};

class ConfigLoad : public testing::Test {
protected:
    ConfigLoad() {
        clear_log();
    }
};

} // namespace

TEST_P(Enable, EnableIsTheBooleanOfItsValue) {
    EXPECT_EQ(loaded(GetParam().text)->enable, GetParam().enable);
}

INSTANTIATE_TEST_SUITE_P(
    Values, Enable,
    testing::Values(enable_row{"True", R"({"enable": true})", 1}, enable_row{"False", R"({"enable": false})", 0},
                    enable_row{"Missing", "{}", 0}, enable_row{"Null", R"({"enable": null})", 0},
                    enable_row{"One", R"({"enable": 1})", 1}, enable_row{"Zero", R"({"enable": 0})", 0},
                    enable_row{"TwoIsExactlyOne", R"({"enable": 2})", 1},
                    enable_row{"EmptyText", R"({"enable": ""})", 0}, enable_row{"AnyText", R"({"enable": "0"})", 1},
                    enable_row{"TopLevelArray", "[1]", 0}),
    [](const auto &row) { return row.param.name; });

TEST_P(BrokenFileDeathTest, BrokenFileIsFatal) {
    EXPECT_FATAL(loaded(GetParam().text), "config_load", "Fatal: parse config");
}

INSTANTIATE_TEST_SUITE_P(Files, BrokenFileDeathTest,
                         testing::Values(broken_row{"Empty", ""}, broken_row{"Truncated", R"({"enable": true)"},
                                         broken_row{"NoJson", "enable=1\n"},
                                         broken_row{"BadNumber", R"({"enable": 1x})"},
                                         broken_row{"ControlBytes", "\x01\x02\x03"}),
                         [](const auto &row) { return row.param.name; });

TEST(ConfigFileDeathTest, MissingFileIsFatal) {
    config record;
    EXPECT_FATAL(config_load(&record, "/tmp/no-such-file.json"), "config_load", "Fatal: parse config");
}

TEST(ConfigFileDeathTest, FolderIsFatal) {
    config record;
    EXPECT_FATAL(config_load(&record, "/tmp"), "config_load", "Fatal: parse config");
}

TEST(ConfigFileDeathTest, BottomlessNestingIsFatal) {
    const std::string deep(100000, '[');
    EXPECT_FATAL(loaded(deep), "config_load", "Fatal: parse config");
}

TEST_F(ConfigLoad, EverySectionIsRead) {
    const auto record = loaded(R"({"enable": true, "bridges": {"br-lan": {}}, "param": {"period": 3},
        "interfaces": {"eth0": {"type": "ethernet"}}, "backhual": {"eth1": {"couple": "eth2"}}})");
    EXPECT_EQ(record->bridge_num, 1U);
    EXPECT_EQ(record->param.period, 3000U);
    EXPECT_EQ(record->interface_num, 1U);
    EXPECT_EQ(record->couple_num, 1U);
}

TEST_F(ConfigLoad, HubAndModuleListAreNotTouched) {
    config record;
    record.ev.plc_state = 5;
    kolt_list_init(&record.modules);
    load_text(&record, R"({"enable": true, "param": {}})");
    EXPECT_EQ(record.ev.plc_state, 5U);
    EXPECT_EQ(record.modules.next, &record.modules);
}

TEST_F(ConfigLoad, CountsOfBridgesAndInterfacesStartAtZero) {
    config record;
    record.bridge_num = 8;
    record.interface_num = 128;
    load_text(&record, "{}");
    EXPECT_EQ(record.bridge_num, 0U);
    EXPECT_EQ(record.interface_num, 0U);
}

TEST_F(ConfigLoad, ParamIsReadBeforeTheInterfacesThatStandInFrontOfIt) {
    const auto record = loaded(R"({"interfaces": {"eth0": {"type": "ethernet", "exchange": 1}},
        "param": {"eth_vlan_id": 3}})");
    ASSERT_EQ(record->interface_num, 1U);
    EXPECT_EQ(field(record->interfaces[0].name), "eth3");
}

TEST_F(ConfigLoad, SectionsThatAreNoObjectsAreLeftOut) {
    for (const char *value : {"5", "[1, 2]", "\"text\"", "true", "null", "{}"}) {
        const std::string text(value);
        const auto record = loaded(R"({"enable": true, "bridges": )" + text + R"(, "param": )" + text +
                                   R"(, "interfaces": )" + text + R"(, "backhual": )" + text + "}");
        EXPECT_EQ(record->enable, 1) << text;
        EXPECT_EQ(record->bridge_num + record->interface_num + record->couple_num, 0U) << text;
    }
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(ConfigLoad, BridgeFlagsComeFromTheTwoFeatures) {
    const auto record = loaded(R"({"bridges": {"none": {}, "loop": {"loop_avoidance": true},
        "path": {"path_selection": true}, "both": {"path_selection": 1, "loop_avoidance": 1},
        "off": {"loop_avoidance": false, "path_selection": 0}, "null": {"loop_avoidance": null}, "no object": 7}})");
    ASSERT_EQ(record->bridge_num, 7U);
    const uint32_t flags[] = {0, 1, 2, 3, 0, 0, 0};
    for (size_t i = 0; i < std::size(flags); i++)
        EXPECT_EQ(record->bridges[i].flags, flags[i]) << field(record->bridges[i].name);
}

TEST_F(ConfigLoad, BridgesKeepTheOrderOfTheFile) {
    const auto record = loaded(R"({"bridges": {"z": {}, "a": {}, "m": {}}})");
    ASSERT_EQ(record->bridge_num, 3U);
    EXPECT_EQ(field(record->bridges[0].name), "z");
    EXPECT_EQ(field(record->bridges[1].name), "a");
    EXPECT_EQ(field(record->bridges[2].name), "m");
}

TEST_F(ConfigLoad, PresentSectionZeroesAllOfItsArray) {
    config record;
    memset(static_cast<void *>(record.bridges), 'x', sizeof record.bridges);
    memset(static_cast<void *>(record.interfaces), 'x', sizeof record.interfaces);
    memset(static_cast<void *>(record.couples), 'x', sizeof record.couples);
    load_text(&record, R"({"bridges": {"b": {"loop_avoidance": true}}, "interfaces": {}, "backhual": {}})");
    EXPECT_EQ(record.bridges[0].flags, 1U);
    EXPECT_STREQ(record.bridges[0].name, "b");
    EXPECT_EQ(record.bridges[0].name[15], '\0');
    EXPECT_EQ(record.bridges[7].name[0], '\0');
    EXPECT_EQ(record.bridges[7].flags, 0U);
    EXPECT_EQ(record.interfaces[127].name[0], '\0');
    EXPECT_EQ(record.interfaces[127].ctl_iface, 0);
    EXPECT_EQ(record.couples[15].guest[15], '\0');
}

TEST_F(ConfigLoad, BridgeNamesAreBoundAt16Characters) {
    const auto record = loaded(R"({"bridges": {"abcdefghijklmno": {}, "abcdefghijklmnop": {"path_selection": true},
        "abcdefghijklmnopq": {"loop_avoidance": true}, "": {}}})");
    ASSERT_EQ(record->bridge_num, 4U);
    EXPECT_EQ(field(record->bridges[0].name), "abcdefghijklmno");
    EXPECT_EQ(field(record->bridges[1].name), "abcdefghijklmnop");
    EXPECT_EQ(record->bridges[1].flags, 2U);
    EXPECT_EQ(field(record->bridges[2].name), "abcdefghijklmnop");
    EXPECT_EQ(record->bridges[2].flags, 1U);
    EXPECT_EQ(field(record->bridges[3].name), "");
}

TEST_F(ConfigLoad, EightBridgesFitWithoutAMessage) {
    const auto record = loaded(R"({"bridges": {)" + members("br", 8, "{}") + "}}");
    EXPECT_EQ(record->bridge_num, 8U);
    EXPECT_EQ(field(record->bridges[7].name), "br7");
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(ConfigLoad, NinthBridgeIsDroppedWithOneInfoLine) {
    const auto record = loaded(R"({"bridges": {)" + members("br", 10, "{}") + R"(}, "param": {"period": 1}})");
    EXPECT_EQ(record->bridge_num, 8U);
    EXPECT_EQ(record->interface_num, 0U);
    EXPECT_EQ(record->param.period, 1000U); // the next section is still read
    EXPECT_THAT(logged(), testing::ElementsAre(log_line{6, "config_load", "Info: too many bridges"}));
}

TEST_F(ConfigLoad, NinthBridgeIsDroppedSilentlyAtLevelZero) {
    const at_log_level scope(0);
    EXPECT_EQ(loaded(R"({"bridges": {)" + members("br", 9, "{}") + "}}")->bridge_num, 8U);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(ConfigLoad, FileIsClosedAgain) {
    const size_t before = open_descriptors();
    (void)loaded(R"({"enable": true})");
    EXPECT_EQ(open_descriptors(), before);
}
