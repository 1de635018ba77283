// Link states, and what is told of power line, from the runtime files.
#include "probe_test.h"

#include "probes/node_state.h"

#include <syslog.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The values of an integer key: a link's "status" and the power-line file's "cap_has_plc".
struct flag_row {
    const char *name;
    const char *value;
    int expected;
};

class IntegerFlag : public probe_rows<flag_row> {};

TEST_P(IntegerFlag, LinkIsUpUnlessItsStatusReadsAsZero) {
    const at_log_level dump(3);
    write_file("/tmp/eth_runtime_info", std::string(R"({"status": )") + GetParam().value + "}");
    EXPECT_EQ(kolt_check_link_state(KOLT_LINK_ETHERNET), GetParam().expected);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_P(IntegerFlag, CapHasPowerLineUnlessItsFlagReadsAsZero) {
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
    kolt_link_type link;
    const char *path;
};

class LinkFile : public probe_rows<link_row> {
protected:
    void SetUp() override {
        for (const char *path : {"/tmp/eth_runtime_info", "/tmp/plc_runtime_info", "/tmp/wifi_runtime_info.2g",
                                 "/tmp/wifi_runtime_info.5g", "/tmp/wifi_runtime_info.5g2"})
            remove_file(path);
    }
};

TEST_P(LinkFile, LinkFileTellsItsOwnLinkAndNoOther) {
    write_file(GetParam().path, R"({"status": 1})");
    for (const kolt_link_type link : KOLT_LINKS)
        EXPECT_EQ(kolt_check_link_state(link), link == GetParam().link ? 1 : 0) << link;
}

TEST_P(LinkFile, LinkWithoutAStatusIsDownWithoutAMessage) {
    const at_log_level dump(3);
    write_file(GetParam().path, R"({"Status": 1})");
    EXPECT_EQ(kolt_check_link_state(GetParam().link), 0);
    write_file(GetParam().path, R"([{"status": 1}])");
    EXPECT_EQ(kolt_check_link_state(GetParam().link), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_P(LinkFile, LinkFileThatIsAbsentOrBrokenIsNamedAtDebugLevel) {
    const log_line message{LOG_DEBUG, "kolt_check_link_state",
                           std::string("Debug: parse link state ") + GetParam().path};
    const at_log_level debug(2);
    EXPECT_EQ(kolt_check_link_state(GetParam().link), 0);
    write_file(GetParam().path, R"({"status": )");
    EXPECT_EQ(kolt_check_link_state(GetParam().link), 0);
    EXPECT_THAT(logged(), ElementsAre(message, message));
}

TEST_P(LinkFile, LinkFileThatIsAbsentIsNotNamedBelowDebugLevel) {
    const at_log_level info(1);
    EXPECT_EQ(kolt_check_link_state(GetParam().link), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(NodeState, LinkFile,
                         testing::Values(link_row{"Ethernet", KOLT_LINK_ETHERNET, "/tmp/eth_runtime_info"},
                                         link_row{"Plc", KOLT_LINK_PLC, "/tmp/plc_runtime_info"},
                                         link_row{"Wifi2g", KOLT_LINK_2G, "/tmp/wifi_runtime_info.2g"},
                                         link_row{"Wifi5g", KOLT_LINK_5G, "/tmp/wifi_runtime_info.5g"},
                                         link_row{"Wifi5g2", KOLT_LINK_5G_2, "/tmp/wifi_runtime_info.5g2"}),
                         row_name<link_row>);

class PowerLine : public probe {
protected:
    void SetUp() override {
        remove_file("/tmp/plc_runtime_info");
    }
};

TEST_F(PowerLine, CapHasNoPowerLineWithoutItsFileOrKey) {
    const at_log_level dump(3);
    EXPECT_EQ(kolt_check_cap_has_plc(), 0);
    write_file("/tmp/plc_runtime_info", R"({"status": 1})");
    EXPECT_EQ(kolt_check_cap_has_plc(), 0);
    write_file("/tmp/plc_runtime_info", "cap_has_plc");
    EXPECT_EQ(kolt_check_cap_has_plc(), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(PowerLine, PowerLineBroadcastIsNeverClaimed) {
    write_file("/tmp/plc_runtime_info", R"({"status": 1, "cap_has_plc": 1})");
    EXPECT_EQ(kolt_is_plc_bcast_capable(), 0);
}

} // namespace
