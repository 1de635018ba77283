// Whether the node hangs directly on the central access point.
#include "probe_test.h"

#include "probes/node_state.h"

namespace {

using testing::IsEmpty;

constexpr const char *LINK_FILES[] = {"/tmp/eth_runtime_info", "/tmp/plc_runtime_info", "/tmp/wifi_runtime_info.2g",
                                      "/tmp/wifi_runtime_info.5g", "/tmp/wifi_runtime_info.5g2"};

void remove_state_files() {
    remove_file(WORK_MODE);
    for (const char *path : LINK_FILES)
        remove_file(path);
}

std::string member(const std::string &key, const std::string &text) {
    return "{\"" + key + "\": \"" + text + "\"}";
}

struct mac_row {
    const char *name;
    const char *value; // JSON
    int result;
    mac_address expected;
};

class NodeMac : public probe_rows<mac_row> {
protected:
    using reader = int (*)(uint8_t *);

    static void expect_mac(const char *key, reader read, const char *other_key, reader read_other) {
        const at_log_level dump(3);
        remove_state_files();
        write_file(WORK_MODE, "{\"" + std::string(key) + "\": " + GetParam().value + "}");
        mac_address mac;
        mac.fill(0xEE);
        EXPECT_EQ(read(mac.data()), GetParam().result);
        if (GetParam().result == 1) {
            EXPECT_EQ(mac, GetParam().expected);
        }
        EXPECT_EQ(read_other(mac.data()), 0) << other_key << " is not in the file";
        EXPECT_THAT(logged(), IsEmpty());
    }
};

TEST_P(NodeMac, CapMacIsReadFromItsText) {
    expect_mac("cap_mac", kolt_get_cap_mac, "parent_mac", kolt_get_parent_mac);
}

TEST_P(NodeMac, ParentMacIsReadFromItsText) {
    expect_mac("parent_mac", kolt_get_parent_mac, "cap_mac", kolt_get_cap_mac);
}

INSTANTIATE_TEST_SUITE_P(
    NodeState, NodeMac,
    testing::Values(mac_row{"ColonForm", R"("00:1A:2B:3C:4D:5E")", 1, {0, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}},
                    mac_row{"LowerCase", R"("aa:bb:cc:dd:ee:ff")", 1, {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}},
                    mac_row{"HyphenFormIsAllZero", R"("00-1A-2B-3C-4D-5E")", 1, {}},
                    mac_row{"UnparsableIsAllZero", R"("abc")", 1, {}}, mac_row{"EmptyIsAllZero", R"("")", 1, {}},
                    mac_row{"NumberReadsAsText", "17", 1, {0x17}}, mac_row{"ArrayReadsAsText", R"(["00:1A"])", 1, {}},
                    mac_row{"ObjectReadsAsText", "{}", 1, {}}, mac_row{"Null", "null", 0, {}}),
    row_name<mac_row>);

class CapConnection : public probe {
protected:
    void SetUp() override {
        remove_state_files();
    }
};

TEST_F(CapConnection, MacsOfAnAbsentOrBrokenFileAreNotTold) {
    const at_log_level dump(3);
    mac_address mac{};
    EXPECT_EQ(kolt_get_cap_mac(mac.data()), 0);
    EXPECT_EQ(kolt_get_parent_mac(mac.data()), 0);
    write_file(WORK_MODE, R"({"cap_mac": "00:11:22:33:44:55", )");
    EXPECT_EQ(kolt_get_cap_mac(mac.data()), 0);
    write_file(WORK_MODE, R"(["cap_mac", "parent_mac"])");
    EXPECT_EQ(kolt_get_cap_mac(mac.data()), 0);
    EXPECT_EQ(kolt_get_parent_mac(mac.data()), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

struct rootap_row {
    const char *name;
    kolt_link_type link;
    mac_address cap;
    const char *rootap;
    int expected;
};

class RootAp : public probe_rows<rootap_row> {};

TEST_P(RootAp, RootApIsTheCapAtTheOffsetOfItsLink) {
    const at_log_level dump(3);
    remove_state_files();
    write_file(LINK_FILES[GetParam().link], member("rootap_mac", GetParam().rootap));
    mac_address cap = GetParam().cap;
    EXPECT_EQ(kolt_check_rootap_is_cap(GetParam().link, cap.data()), GetParam().expected);
    EXPECT_EQ(cap, GetParam().cap) << "the caller's MAC was changed";
    EXPECT_THAT(logged(), IsEmpty());
}

constexpr mac_address CAP{0x10, 0x22, 0x33, 0x44, 0x55, 0x60};
constexpr mac_address CARRYING{0x10, 0x22, 0x33, 0x44, 0x55, 0xFE};
constexpr mac_address OVERFLOWING{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE};

INSTANTIATE_TEST_SUITE_P(
    NodeStateOffsets, RootAp,
    testing::Values(rootap_row{"EthernetAddsNothing", KOLT_LINK_ETHERNET, CAP, "10:22:33:44:55:60", 1},
                    rootap_row{"EthernetOneMore", KOLT_LINK_ETHERNET, CAP, "10:22:33:44:55:61", 0},
                    rootap_row{"PlcAddsNothing", KOLT_LINK_PLC, CAP, "10:22:33:44:55:60", 1},
                    rootap_row{"PlcOneMore", KOLT_LINK_PLC, CAP, "10:22:33:44:55:61", 0},
                    rootap_row{"Wifi2gAddsTwo", KOLT_LINK_2G, CAP, "10:22:33:44:55:62", 1},
                    rootap_row{"Wifi2gWithoutOffset", KOLT_LINK_2G, CAP, "10:22:33:44:55:60", 0},
                    rootap_row{"Wifi2gThreeMore", KOLT_LINK_2G, CAP, "10:22:33:44:55:63", 0},
                    rootap_row{"Wifi5gAddsThree", KOLT_LINK_5G, CAP, "10:22:33:44:55:63", 1},
                    rootap_row{"Wifi5gTwoMore", KOLT_LINK_5G, CAP, "10:22:33:44:55:62", 0},
                    rootap_row{"Wifi5gFourMore", KOLT_LINK_5G, CAP, "10:22:33:44:55:64", 0},
                    rootap_row{"Wifi5gWithCarry", KOLT_LINK_5G, CARRYING, "10:22:33:44:56:01", 1},
                    rootap_row{"Wifi5gCarryMissing", KOLT_LINK_5G, CARRYING, "10:22:33:44:55:01", 0},
                    rootap_row{"Wifi5gCarryThroughAll", KOLT_LINK_5G, OVERFLOWING, "FF:00:00:00:00:01", 1},
                    rootap_row{"LowerCaseText", KOLT_LINK_5G, CARRYING, "ff:22:33:44:56:01", 1},
                    rootap_row{"UnparsableIsAllZero", KOLT_LINK_ETHERNET, {}, "abc", 1}),
    row_name<rootap_row>);

INSTANTIATE_TEST_SUITE_P(NodeStateOctets, RootAp,
                         testing::Values(rootap_row{"FirstOctetDoesNotMatter", KOLT_LINK_5G, CAP, "EE:22:33:44:55:63",
                                                    1},
                                         rootap_row{"SecondOctetDiffers", KOLT_LINK_5G, CAP, "10:23:33:44:55:63", 0},
                                         rootap_row{"ThirdOctetDiffers", KOLT_LINK_5G, CAP, "10:22:32:44:55:63", 0},
                                         rootap_row{"FourthOctetDiffers", KOLT_LINK_5G, CAP, "10:22:33:45:55:63", 0},
                                         rootap_row{"FifthOctetDiffers", KOLT_LINK_5G, CAP, "10:22:33:44:54:63", 0}),
                         row_name<rootap_row>);

// On the second 5 GHz link the offset is the root AP's own first octet.
INSTANTIATE_TEST_SUITE_P(
    NodeStateSecond5g, RootAp,
    testing::Values(rootap_row{"AddsTheFirstOctetOfTheRootAp", KOLT_LINK_5G_2, CAP, "04:22:33:44:55:64", 1},
                    rootap_row{"DoesNotAddFour", KOLT_LINK_5G_2, CAP, "05:22:33:44:55:64", 0},
                    rootap_row{"FirstOctetZero", KOLT_LINK_5G_2, CAP, "00:22:33:44:55:60", 1},
                    rootap_row{"LargeFirstOctetCarries", KOLT_LINK_5G_2, CAP, "FE:22:33:44:56:5E", 1},
                    rootap_row{"DoesNotAddTheFirstOctetOfTheCap", KOLT_LINK_5G_2, CAP, "00:22:33:44:55:70", 0}),
    row_name<rootap_row>);

TEST_F(CapConnection, NoRootApIsTheCapBeyondTheFiveLinks) {
    for (const char *path : LINK_FILES)
        write_file(path, member("rootap_mac", "10:22:33:44:55:60"));
    EXPECT_EQ(kolt_check_rootap_is_cap(KOLT_LINK_ETHERNET, CAP.data()), 1);
    EXPECT_EQ(kolt_check_rootap_is_cap(KOLT_LINK_NONE, CAP.data()), 0);
    EXPECT_EQ(kolt_check_rootap_is_cap(static_cast<kolt_link_type>(4294967295), CAP.data()), 0);
}

TEST_F(CapConnection, NoRootApIsAMissingCap) {
    write_file(LINK_FILES[0], member("rootap_mac", "00:00:00:00:00:00"));
    EXPECT_EQ(kolt_check_rootap_is_cap(KOLT_LINK_ETHERNET, nullptr), 0);
}

TEST_F(CapConnection, RootApThatIsNotToldIsNotTheCap) {
    const at_log_level dump(3);
    const mac_address zero{};
    EXPECT_EQ(kolt_check_rootap_is_cap(KOLT_LINK_5G, zero.data()), 0) << "no file";
    for (const char *text : {"{", "{}", "[]", R"({"rootap_mac": null})", R"({"cap_mac": "00:00:00:00:00:00"})"}) {
        write_file(LINK_FILES[3], text);
        EXPECT_EQ(kolt_check_rootap_is_cap(KOLT_LINK_5G, zero.data()), 0) << text;
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(CapConnection, RootApOfAnotherTypeReadsAsText) {
    const mac_address zero{};
    // The first octet does not matter; the others of these texts are zero.
    for (const char *value : {"17", "true", R"(["11:22:33:44:55:66"])", R"({"mac": "11:22:33:44:55:66"})"}) {
        write_file(LINK_FILES[0], std::string(R"({"rootap_mac": )") + value + "}");
        EXPECT_EQ(kolt_check_rootap_is_cap(KOLT_LINK_ETHERNET, zero.data()), 1) << value;
        EXPECT_EQ(kolt_check_rootap_is_cap(KOLT_LINK_ETHERNET, CAP.data()), 0) << value;
    }
}

struct direct_row {
    const char *name;
    const char *cap;
    const char *rootaps[5]; // null: no file
    int expected;
};

class DirectCap : public probe_rows<direct_row> {};

TEST_P(DirectCap, DirectConnectionToTheCapIsAskedOfTheWifiLinks) {
    const at_log_level dump(3);
    remove_state_files();
    if (GetParam().cap != nullptr)
        write_file(WORK_MODE, member("cap_mac", GetParam().cap));
    for (size_t link = 0; link < 5; link++) {
        if (GetParam().rootaps[link] != nullptr)
            write_file(LINK_FILES[link], member("rootap_mac", GetParam().rootaps[link]));
    }
    EXPECT_EQ(kolt_check_direct_connect_cap(), GetParam().expected);
    EXPECT_THAT(logged(), IsEmpty());
}

constexpr char CAP_TEXT[] = "10:22:33:44:55:60";
constexpr char OTHER[] = "10:22:33:44:77:88";

INSTANTIATE_TEST_SUITE_P(
    NodeState, DirectCap,
    testing::Values(direct_row{"By2g", CAP_TEXT, {nullptr, nullptr, "10:22:33:44:55:62", OTHER, OTHER}, 1},
                    direct_row{"By5g", CAP_TEXT, {nullptr, nullptr, OTHER, "10:22:33:44:55:63", OTHER}, 1},
                    direct_row{"BySecond5g", CAP_TEXT, {nullptr, nullptr, OTHER, OTHER, "01:22:33:44:55:61"}, 1},
                    direct_row{
                        "BySecond5gAlone", CAP_TEXT, {nullptr, nullptr, nullptr, nullptr, "01:22:33:44:55:61"}, 1},
                    direct_row{"ByNone", CAP_TEXT, {nullptr, nullptr, OTHER, OTHER, OTHER}, 0},
                    direct_row{"EthernetAndPlcDoNotCount", CAP_TEXT, {CAP_TEXT, CAP_TEXT, OTHER, OTHER, OTHER}, 0},
                    direct_row{"WithoutAnyLinkFile", CAP_TEXT, {}, 0},
                    direct_row{"WithoutACap", nullptr, {nullptr, nullptr, OTHER, OTHER, OTHER}, 0}),
    row_name<direct_row>);

class DirectAp : public probe_rows<file_row> {};

TEST_P(DirectAp, DirectAccessPointIsJudgedOnTheTexts) {
    const at_log_level dump(3);
    write_file(WORK_MODE, GetParam().text);
    EXPECT_EQ(kolt_is_direct_connect_ap(), static_cast<int>(GetParam().expected));
    EXPECT_THAT(logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    NodeState, DirectAp,
    testing::Values(
        file_row{"EqualTexts", R"({"cap_mac": "AA:BB:CC:DD:EE:FF", "parent_mac": "AA:BB:CC:DD:EE:FF"})", 1},
        file_row{"OtherCaseIsAnotherParent", R"({"cap_mac": "AA:BB:CC:DD:EE:FF", "parent_mac": "aa:bb:cc:dd:ee:ff"})",
                 0},
        file_row{"SeventeenthCharacterDiffers",
                 R"({"cap_mac": "AA:BB:CC:DD:EE:FF", "parent_mac": "AA:BB:CC:DD:EE:F0"})", 0},
        file_row{"FirstCharacterDiffers", R"({"cap_mac": "AA:BB:CC:DD:EE:FF", "parent_mac": "BA:BB:CC:DD:EE:FF"})", 0},
        file_row{"OnlySeventeenCount", R"({"cap_mac": "AA:BB:CC:DD:EE:FF:01", "parent_mac": "AA:BB:CC:DD:EE:FF:02"})",
                 1},
        file_row{"LongTexts",
                 R"({"cap_mac": "AA:BB:CC:DD:EE:FF and more than a buffer", "parent_mac": "AA:BB:CC:DD:EE:FF"})", 1},
        file_row{"ShorterText", R"({"cap_mac": "AA:BB:CC:DD:EE:FF", "parent_mac": "AA:BB:CC:DD:EE:F"})", 0},
        file_row{"NoMacsAtAll", R"({"cap_mac": "x", "parent_mac": "x"})", 1},
        file_row{"BothMissing", R"({"work_mode": "RE"})", 1},
        file_row{"CapMissing", R"({"parent_mac": "AA:BB:CC:DD:EE:FF"})", 0},
        file_row{"ParentMissing", R"({"cap_mac": "AA:BB:CC:DD:EE:FF"})", 0},
        file_row{"MissingEqualsEmpty", R"({"cap_mac": ""})", 1},
        file_row{"BothNull", R"({"cap_mac": null, "parent_mac": null})", 1},
        file_row{"OneNull", R"({"cap_mac": "A", "parent_mac": null})", 0},
        file_row{"NumbersReadAsText", R"({"cap_mac": 12, "parent_mac": "12"})", 1},
        file_row{"ArraysReadAsText", R"({"cap_mac": ["A"], "parent_mac": ["A"]})", 1},
        file_row{"DifferentObjectsReadAsText", R"({"cap_mac": {"a": 1}, "parent_mac": {"a": 2}})", 0},
        file_row{"AnArrayIsAnEmptyObject", R"(["cap_mac"])", 1}, file_row{"Unparsable", R"({"cap_mac": "A", )", 1},
        file_row{"EmptyFile", "", 1}),
    row_name<file_row>);

TEST_F(CapConnection, NodeThatCannotTellIsDirectlyAttached) {
    const at_log_level dump(3);
    EXPECT_EQ(kolt_is_direct_connect_ap(), 1);
    EXPECT_THAT(logged(), IsEmpty());
}

} // namespace
