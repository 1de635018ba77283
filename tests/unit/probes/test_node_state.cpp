// Work mode, DHCP interface and gateway from the runtime files.
#include "probe_test.h"

#include "probes/node_state.h"

#include <cstring>
#include <syslog.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct mode_row {
    const char *name;
    const char *text;
    kolt_work_mode expected;
};

class WorkMode : public probe_rows<mode_row> {};

TEST_P(WorkMode, WorkModeIsReadFromItsText) {
    const at_log_level dump(3);
    write_file(WORK_MODE, GetParam().text);
    EXPECT_EQ(kolt_get_work_mode(), GetParam().expected);
    EXPECT_THAT(logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    NodeState, WorkMode,
    testing::Values(mode_row{"Re", R"({"work_mode": "RE"})", KOLT_MODE_RE},
                    mode_row{"Fap", R"({"work_mode": "FAP"})", KOLT_MODE_FAP},
                    mode_row{"Ap", R"({"work_mode": "AP"})", KOLT_MODE_FAP},
                    mode_row{"Hap", R"({"work_mode": "HAP"})", KOLT_MODE_HAP},
                    mode_row{"OtherText", R"({"work_mode": "BRIDGE"})", KOLT_MODE_UNKNOWN},
                    mode_row{"LowerCaseAp", R"({"work_mode": "ap"})", KOLT_MODE_UNKNOWN},
                    mode_row{"LowerCaseRe", R"({"work_mode": "re"})", KOLT_MODE_UNKNOWN},
                    mode_row{"MixedCase", R"({"work_mode": "Hap"})", KOLT_MODE_UNKNOWN},
                    mode_row{"TrailingBlank", R"({"work_mode": "RE "})", KOLT_MODE_UNKNOWN},
                    mode_row{"OnlyAPrefix", R"({"work_mode": "R"})", KOLT_MODE_UNKNOWN},
                    mode_row{"EmptyText", R"({"work_mode": ""})", KOLT_MODE_UNKNOWN},
                    mode_row{"KeyMissing", R"({"cap_mac": "RE"})", KOLT_MODE_UNKNOWN},
                    mode_row{"EmptyObject", "{}", KOLT_MODE_UNKNOWN},
                    mode_row{"KeyOfAnotherCase", R"({"Work_Mode": "RE"})", KOLT_MODE_UNKNOWN},
                    mode_row{"Null", R"({"work_mode": null})", KOLT_MODE_UNKNOWN},
                    mode_row{"Number", R"({"work_mode": 0})", KOLT_MODE_UNKNOWN},
                    mode_row{"Boolean", R"({"work_mode": true})", KOLT_MODE_UNKNOWN},
                    mode_row{"Array", R"({"work_mode": ["RE"]})", KOLT_MODE_UNKNOWN},
                    mode_row{"Object", R"({"work_mode": {"work_mode": "RE"}})", KOLT_MODE_UNKNOWN},
                    mode_row{"AnArrayIsAnEmptyObject", R"(["work_mode", "RE"])", KOLT_MODE_UNKNOWN},
                    mode_row{"ATextIsAnEmptyObject", R"("RE")", KOLT_MODE_UNKNOWN},
                    mode_row{"AmongOtherKeys", R"({"a": [1, {"work_mode": "RE"}], "work_mode": "HAP", "b": 2})",
                             KOLT_MODE_HAP}),
    row_name<mode_row>);

class UnknownWorkMode : public probe_rows<mode_row> {};

TEST_P(UnknownWorkMode, WorkModeFileThatDoesNotParseIsUnknownAndLogged) {
    write_file(WORK_MODE, GetParam().text);
    EXPECT_EQ(kolt_get_work_mode(), KOLT_MODE_UNKNOWN);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_work_mode", "Error: parse work_mode"}));
}

INSTANTIATE_TEST_SUITE_P(NodeState, UnknownWorkMode,
                         testing::Values(mode_row{"EmptyFile", "", KOLT_MODE_UNKNOWN},
                                         mode_row{"CutShort", R"({"work_mode": "RE")", KOLT_MODE_UNKNOWN},
                                         mode_row{"NoJson", "RE\n", KOLT_MODE_UNKNOWN}),
                         row_name<mode_row>);

class NodeState : public probe {
protected:
    void SetUp() override {
        for (const char *path :
             {WORK_MODE, "/tmp/lanwatch_recv_dhcp_if", "/tmp/eth_runtime_info", "/tmp/plc_runtime_info",
              "/tmp/wifi_runtime_info.2g", "/tmp/wifi_runtime_info.5g", "/tmp/wifi_runtime_info.5g2",
              "/tmp/sync-server/mesh_dev_list", "/tmp/runtime_ip_info_lan"})
            remove_file(path);
    }
};

TEST_F(NodeState, AbsentWorkModeFileIsUnknownAndLogged) {
    EXPECT_EQ(kolt_get_work_mode(), KOLT_MODE_UNKNOWN);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_work_mode", "Error: parse work_mode"}));
}

TEST_F(NodeState, WorkModeErrorIsLoggedAtEveryLevel) {
    const at_log_level quiet(0);
    EXPECT_EQ(kolt_get_work_mode(), KOLT_MODE_UNKNOWN);
    EXPECT_THAT(logged_texts(), ElementsAre("Error: parse work_mode"));
}

TEST_F(NodeState, WorkModeIsReadAfreshOnEveryCall) {
    write_file(WORK_MODE, R"({"work_mode": "RE"})");
    EXPECT_EQ(kolt_get_work_mode(), KOLT_MODE_RE);
    write_file(WORK_MODE, R"({"work_mode": "HAP"})");
    EXPECT_EQ(kolt_get_work_mode(), KOLT_MODE_HAP);
}

TEST_F(NodeState, WorkModeFileMayBeLong) {
    write_file(WORK_MODE, long_object(R"("work_mode": "HAP")"));
    EXPECT_EQ(kolt_get_work_mode(), KOLT_MODE_HAP);
}

TEST_F(NodeState, OnlyTheFourModeTextsAreWorkModes) {
    EXPECT_EQ(kolt_work_mode_from_string("RE"), KOLT_MODE_RE);
    EXPECT_EQ(kolt_work_mode_from_string("FAP"), KOLT_MODE_FAP);
    EXPECT_EQ(kolt_work_mode_from_string("AP"), KOLT_MODE_FAP);
    EXPECT_EQ(kolt_work_mode_from_string("HAP"), KOLT_MODE_HAP);
    EXPECT_EQ(kolt_work_mode_from_string("ap"), KOLT_MODE_UNKNOWN);
    EXPECT_EQ(kolt_work_mode_from_string("FAPX"), KOLT_MODE_UNKNOWN);
    EXPECT_EQ(kolt_work_mode_from_string(""), KOLT_MODE_UNKNOWN);
}

struct text_row {
    const char *name;
    const char *text;
    int result;
    const char *expected; // what stands in the 16 bytes
};

class DhcpInterface : public probe_rows<text_row> {};
class LanGateway : public probe_rows<text_row> {};

// The 16 bytes as text, cut at their first zero, and proof that nothing behind them was written.
struct text_field {
    char bytes[24];
    text_field() {
        memset(bytes, '~', sizeof bytes);
    }
    [[nodiscard]] std::string text() const {
        return {bytes, strnlen(bytes, 16)};
    }
    [[nodiscard]] std::string behind() const {
        return {bytes + 16, 8};
    }
};

TEST_P(DhcpInterface, DhcpInterfaceIsCopiedIntoSixteenBytes) {
    const at_log_level dump(3);
    write_file("/tmp/lanwatch_recv_dhcp_if", GetParam().text);
    text_field name;
    EXPECT_EQ(kolt_get_dhcp_ifname(name.bytes), GetParam().result);
    if (GetParam().result == 1) {
        EXPECT_EQ(name.text(), GetParam().expected);
    }
    EXPECT_EQ(name.behind(), "~~~~~~~~");
    EXPECT_THAT(logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    NodeState, DhcpInterface,
    testing::Values(text_row{"Short", R"({"recv_dhcp_if": "eth0"})", 1, "eth0"},
                    text_row{"Empty", R"({"recv_dhcp_if": ""})", 1, ""},
                    text_row{"FifteenCharacters", R"({"recv_dhcp_if": "0123456789abcde"})", 1, "0123456789abcde"},
                    text_row{"SixteenAreUnterminated", R"({"recv_dhcp_if": "0123456789abcdef"})", 1,
                             "0123456789abcdef"},
                    text_row{"SeventeenAreCut", R"({"recv_dhcp_if": "0123456789abcdefg"})", 1, "0123456789abcdef"},
                    text_row{"NumberReadsAsText", R"({"recv_dhcp_if": 42})", 1, "42"},
                    text_row{"BooleanReadsAsText", R"({"recv_dhcp_if": false})", 1, "false"},
                    text_row{"ArrayReadsAsText", R"({"recv_dhcp_if": ["eth0"]})", 1, R"([ "eth0" ])"},
                    text_row{"ObjectReadsAsText", R"({"recv_dhcp_if": {"a": 1}})", 1, R"({ "a": 1 })"},
                    text_row{"Null", R"({"recv_dhcp_if": null})", 0, ""},
                    text_row{"KeyMissing", R"({"a": "eth0"})", 0, ""},
                    text_row{"NoObject", R"(["recv_dhcp_if"])", 0, ""}, text_row{"NoJson", "eth0", 0, ""}),
    row_name<text_row>);

TEST_P(LanGateway, LanGatewayIsCopiedIntoSixteenBytes) {
    const at_log_level dump(3);
    write_file("/tmp/runtime_ip_info_lan", GetParam().text);
    text_field address;
    EXPECT_EQ(kolt_get_lan_gw_ip(address.bytes), GetParam().result);
    if (GetParam().result == 1) {
        EXPECT_EQ(address.text(), GetParam().expected);
    }
    EXPECT_EQ(address.behind(), "~~~~~~~~");
    EXPECT_THAT(logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    NodeState, LanGateway,
    testing::Values(text_row{"Address", R"({"lan_gw": "192.168.0.1"})", 1, "192.168.0.1"},
                    text_row{"FifteenCharacters", R"({"lan_gw": "192.168.100.254"})", 1, "192.168.100.254"},
                    text_row{"SixteenAreUnterminated", R"({"lan_gw": "1192.168.100.254"})", 1, "1192.168.100.254"},
                    text_row{"MoreAreCut", R"({"lan_gw": "1192.168.100.254:80"})", 1, "1192.168.100.254"},
                    text_row{"NumberReadsAsText", R"({"lan_gw": 17})", 1, "17"},
                    text_row{"ArrayReadsAsText", R"({"lan_gw": ["1.2.3.4"]})", 1, R"([ "1.2.3.4" ])"},
                    text_row{"ObjectReadsAsText", R"({"lan_gw": {"a": 1}})", 1, R"({ "a": 1 })"},
                    text_row{"Null", R"({"lan_gw": null})", 0, ""},
                    text_row{"KeyMissing", R"({"lan_ip": "1.2.3.4"})", 0, ""}, text_row{"NoJson", "1.2.3.4", 0, ""}),
    row_name<text_row>);

TEST_F(NodeState, AbsentFilesTellNeitherDhcpInterfaceNorGateway) {
    const at_log_level dump(3);
    text_field field;
    EXPECT_EQ(kolt_get_dhcp_ifname(field.bytes), 0);
    EXPECT_EQ(kolt_get_lan_gw_ip(field.bytes), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(NodeState, DhcpInterfaceIntoNullIsRefused) {
    write_file("/tmp/lanwatch_recv_dhcp_if", R"({"recv_dhcp_if": "eth0"})");
    EXPECT_EQ(kolt_get_dhcp_ifname(nullptr), 0);
    remove_file("/tmp/lanwatch_recv_dhcp_if");
    EXPECT_EQ(kolt_get_dhcp_ifname(nullptr), 0);
}

} // namespace
