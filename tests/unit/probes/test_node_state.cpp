#include "probe_test.h"

#include "probes/node_state.h"

#include <cstring>
#include <syslog.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char WORK_MODE[] = "/tmp/work_mode";

struct mode_row {
    const char *name;
    const char *text;
    uint32_t expected;
};

class WorkMode : public probe_rows<mode_row> {};

TEST_P(WorkMode, IsReadFromItsText) {
    const at_log_level dump(3);
    write_file(WORK_MODE, GetParam().text);
    EXPECT_EQ(kolt_get_work_mode(), GetParam().expected);
    EXPECT_THAT(logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    NodeState, WorkMode,
    testing::Values(
        mode_row{"Re", R"({"work_mode": "RE"})", 0}, mode_row{"Fap", R"({"work_mode": "FAP"})", 1},
        mode_row{"Ap", R"({"work_mode": "AP"})", 1}, mode_row{"Hap", R"({"work_mode": "HAP"})", 2},
        mode_row{"OtherText", R"({"work_mode": "BRIDGE"})", 3}, mode_row{"LowerCaseAp", R"({"work_mode": "ap"})", 3},
        mode_row{"LowerCaseRe", R"({"work_mode": "re"})", 3}, mode_row{"MixedCase", R"({"work_mode": "Hap"})", 3},
        mode_row{"TrailingBlank", R"({"work_mode": "RE "})", 3}, mode_row{"OnlyAPrefix", R"({"work_mode": "R"})", 3},
        mode_row{"EmptyText", R"({"work_mode": ""})", 3}, mode_row{"KeyMissing", R"({"cap_mac": "RE"})", 3},
        mode_row{"EmptyObject", "{}", 3}, mode_row{"KeyOfAnotherCase", R"({"Work_Mode": "RE"})", 3},
        mode_row{"Null", R"({"work_mode": null})", 3}, mode_row{"Number", R"({"work_mode": 0})", 3},
        mode_row{"Boolean", R"({"work_mode": true})", 3}, mode_row{"Array", R"({"work_mode": ["RE"]})", 3},
        mode_row{"Object", R"({"work_mode": {"work_mode": "RE"}})", 3},
        mode_row{"AnArrayIsAnEmptyObject", R"(["work_mode", "RE"])", 3}, mode_row{"ATextIsAnEmptyObject", R"("RE")", 3},
        mode_row{"AmongOtherKeys", R"({"a": [1, {"work_mode": "RE"}], "work_mode": "HAP", "b": 2})", 2}),
    row_name<mode_row>);

class UnknownWorkMode : public probe_rows<mode_row> {};

TEST_P(UnknownWorkMode, OfAFileThatDoesNotParseIsLogged) {
    write_file(WORK_MODE, GetParam().text);
    EXPECT_EQ(kolt_get_work_mode(), 3U);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_work_mode", "Error: parse work_mode"}));
}

INSTANTIATE_TEST_SUITE_P(NodeState, UnknownWorkMode,
                         testing::Values(mode_row{"EmptyFile", "", 3}, mode_row{"CutShort", R"({"work_mode": "RE")", 3},
                                         mode_row{"NoJson", "RE\n", 3}),
                         row_name<mode_row>);

class NodeState : public probe {
protected:
    void SetUp() override {
        probe::SetUp();
        for (const char *path :
             {WORK_MODE, "/tmp/lanwatch_recv_dhcp_if", "/tmp/eth_runtime_info", "/tmp/plc_runtime_info",
              "/tmp/wifi_runtime_info.2g", "/tmp/wifi_runtime_info.5g", "/tmp/wifi_runtime_info.5g2",
              "/tmp/sync-server/mesh_dev_list", "/tmp/runtime_ip_info_lan"})
            remove_file(path);
    }
};

TEST_F(NodeState, AbsentWorkModeFileIsUnknownAndLogged) {
    EXPECT_EQ(kolt_get_work_mode(), 3U);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_work_mode", "Error: parse work_mode"}));
}

TEST_F(NodeState, WorkModeErrorIsLoggedAtEveryLevel) {
    const at_log_level quiet(0);
    EXPECT_EQ(kolt_get_work_mode(), 3U);
    EXPECT_THAT(logged_texts(), ElementsAre("Error: parse work_mode"));
}

TEST_F(NodeState, WorkModeIsReadAfreshOnEveryCall) {
    write_file(WORK_MODE, R"({"work_mode": "RE"})");
    EXPECT_EQ(kolt_get_work_mode(), 0U);
    write_file(WORK_MODE, R"({"work_mode": "HAP"})");
    EXPECT_EQ(kolt_get_work_mode(), 2U);
}

TEST_F(NodeState, WorkModeFileMayBeLong) {
    write_file(WORK_MODE, long_object(R"("work_mode": "HAP")"));
    EXPECT_EQ(kolt_get_work_mode(), 2U);
}

TEST_F(NodeState, WorkModeOfOneText) {
    EXPECT_EQ(kolt_work_mode_from_string("RE"), 0U);
    EXPECT_EQ(kolt_work_mode_from_string("FAP"), 1U);
    EXPECT_EQ(kolt_work_mode_from_string("AP"), 1U);
    EXPECT_EQ(kolt_work_mode_from_string("HAP"), 2U);
    EXPECT_EQ(kolt_work_mode_from_string("ap"), 3U);
    EXPECT_EQ(kolt_work_mode_from_string("FAPX"), 3U);
    EXPECT_EQ(kolt_work_mode_from_string(""), 3U);
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

TEST_P(DhcpInterface, IsCopiedIntoSixteenBytes) {
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

TEST_P(LanGateway, IsCopiedIntoSixteenBytes) {
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

// The values of an integer key: a link's "status" and the power-line file's "cap_has_plc".
struct flag_row {
    const char *name;
    const char *value;
    int expected;
};

class IntegerFlag : public probe_rows<flag_row> {};

TEST_P(IntegerFlag, OfALinkState) {
    const at_log_level dump(3);
    write_file("/tmp/eth_runtime_info", std::string(R"({"status": )") + GetParam().value + "}");
    EXPECT_EQ(kolt_check_link_state(0), GetParam().expected);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_P(IntegerFlag, OfThePowerLineOfTheCap) {
    const at_log_level dump(3);
    write_file("/tmp/plc_runtime_info", std::string(R"({"cap_has_plc": )") + GetParam().value + "}");
    EXPECT_EQ(kolt_check_cap_has_plc(), GetParam().expected);
    EXPECT_THAT(logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(NodeState, IntegerFlag,
                         testing::Values(flag_row{"Zero", "0", 0}, flag_row{"One", "1", 1}, flag_row{"Two", "2", 1},
                                         flag_row{"Negative", "-1", 1}, flag_row{"Above32Bits", "4294967296", 1},
                                         flag_row{"Fraction", "1.5", 1}, flag_row{"FractionBelowOne", "0.5", 0},
                                         flag_row{"True", "true", 1}, flag_row{"False", "false", 0},
                                         flag_row{"TextOfADigit", R"("1")", 1}, flag_row{"TextOfZero", R"("0")", 0},
                                         flag_row{"OtherText", R"("up")", 0}, flag_row{"EmptyText", R"("")", 0},
                                         flag_row{"Null", "null", 0}, flag_row{"Array", "[1]", 0},
                                         flag_row{"Object", R"({"status": 1})", 0}),
                         row_name<flag_row>);

struct link_row {
    const char *name;
    uint32_t link;
    const char *path;
};

class LinkFile : public probe_rows<link_row> {
protected:
    void SetUp() override {
        probe_rows::SetUp();
        for (const char *path : {"/tmp/eth_runtime_info", "/tmp/plc_runtime_info", "/tmp/wifi_runtime_info.2g",
                                 "/tmp/wifi_runtime_info.5g", "/tmp/wifi_runtime_info.5g2"})
            remove_file(path);
    }
};

TEST_P(LinkFile, TellsItsOwnLinkAndNoOther) {
    write_file(GetParam().path, R"({"status": 1})");
    for (uint32_t link = 0; link < 5; link++)
        EXPECT_EQ(kolt_check_link_state(link), link == GetParam().link ? 1 : 0) << link;
}

TEST_P(LinkFile, WithoutStatusIsDownWithoutAMessage) {
    const at_log_level dump(3);
    write_file(GetParam().path, R"({"Status": 1})");
    EXPECT_EQ(kolt_check_link_state(GetParam().link), 0);
    write_file(GetParam().path, R"([{"status": 1}])");
    EXPECT_EQ(kolt_check_link_state(GetParam().link), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_P(LinkFile, ThatIsAbsentOrBrokenIsNamedAtDebugLevel) {
    const log_line message{LOG_DEBUG, "kolt_check_link_state",
                           std::string("Debug: parse link state ") + GetParam().path};
    const at_log_level debug(2);
    EXPECT_EQ(kolt_check_link_state(GetParam().link), 0);
    write_file(GetParam().path, R"({"status": )");
    EXPECT_EQ(kolt_check_link_state(GetParam().link), 0);
    EXPECT_THAT(logged(), ElementsAre(message, message));
}

TEST_P(LinkFile, ThatIsAbsentIsNotNamedBelowDebugLevel) {
    const at_log_level info(1);
    EXPECT_EQ(kolt_check_link_state(GetParam().link), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(NodeState, LinkFile,
                         testing::Values(link_row{"Ethernet", 0, "/tmp/eth_runtime_info"},
                                         link_row{"Plc", 1, "/tmp/plc_runtime_info"},
                                         link_row{"Wifi2g", 2, "/tmp/wifi_runtime_info.2g"},
                                         link_row{"Wifi5g", 3, "/tmp/wifi_runtime_info.5g"},
                                         link_row{"Wifi5g2", 4, "/tmp/wifi_runtime_info.5g2"}),
                         row_name<link_row>);

TEST_F(NodeState, CapHasNoPowerLineWithoutItsFileOrKey) {
    const at_log_level dump(3);
    EXPECT_EQ(kolt_check_cap_has_plc(), 0);
    write_file("/tmp/plc_runtime_info", R"({"status": 1})");
    EXPECT_EQ(kolt_check_cap_has_plc(), 0);
    write_file("/tmp/plc_runtime_info", "cap_has_plc");
    EXPECT_EQ(kolt_check_cap_has_plc(), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(NodeState, PowerLineBroadcastIsNeverClaimed) {
    write_file("/tmp/plc_runtime_info", R"({"status": 1, "cap_has_plc": 1})");
    EXPECT_EQ(kolt_is_plc_bcast_capable(), 0);
}

} // namespace
