// Ways past traffic control.
#include "kernel/net/offload.h"

#include "kernel/net/ethtool.h"
#include "linux/support/network.h"
#include "support/rows.h"

#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <cerrno>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

using testing::HasSubstr;
using testing::StrEq;

namespace {

using offload_test = kernel_test;

TEST_F(offload_test, an_ordinary_interface_has_none) {
    const test_link link("near", "far");
    const offload_findings findings = offload_find(rtnl_, "near");
    EXPECT_EQ(findings.switch_chip.answer, OFFLOAD_NO);
    EXPECT_THAT(findings.switch_chip.sentence.data(), StrEq("near is not a port of a switch chip"));
    EXPECT_EQ(findings.tc_offload.answer, OFFLOAD_NO);
    EXPECT_THAT(findings.tc_offload.sentence.data(), StrEq("near: hw-tc-offload is off"));
    EXPECT_EQ(findings.flow_table.answer, OFFLOAD_NO);
    EXPECT_THAT(findings.flow_table.sentence.data(), StrEq("near: no flow table uses it"));
    EXPECT_FALSE(findings.any());
}

TEST_F(offload_test, of_a_missing_interface_nothing_is_known) {
    const offload_findings findings = offload_find(rtnl_, "nobody");
    EXPECT_EQ(findings.switch_chip.answer, OFFLOAD_UNKNOWN);
    EXPECT_EQ(findings.tc_offload.answer, OFFLOAD_UNKNOWN);
    EXPECT_THAT(findings.tc_offload.sentence.data(), HasSubstr("No such device"));
    EXPECT_FALSE(findings.any());
}

TEST_F(offload_test, without_descriptors_nothing_is_known) {
    const test_link link("near", "far");
    const no_descriptors none;
    const offload_findings findings = offload_find(rtnl_, "near");
    EXPECT_EQ(findings.tc_offload.answer, OFFLOAD_UNKNOWN);
    EXPECT_EQ(findings.flow_table.answer, OFFLOAD_UNKNOWN);
    EXPECT_THAT(findings.flow_table.sentence.data(), HasSubstr("Too many open files"));
}

TEST(offload_any_test, is_one_yes_among_the_three) {
    const offload_finding yes{.answer = OFFLOAD_YES, .sentence = {}};
    const offload_finding no{.answer = OFFLOAD_NO, .sentence = {}};
    EXPECT_FALSE((offload_findings{no, no, no}.any()));
    EXPECT_TRUE((offload_findings{yes, no, no}.any()));
    EXPECT_TRUE((offload_findings{no, yes, no}.any()));
    EXPECT_TRUE((offload_findings{no, no, yes}.any()));
}

struct judgement {
    const char *name;
    offload_finding finding;
    offload_answer answer;
    const char *sentence;
};

using judgement_test = table_test<judgement>;

TEST_P(judgement_test, is_one_clear_sentence) {
    EXPECT_EQ(GetParam().finding.answer, GetParam().answer);
    EXPECT_THAT(GetParam().finding.sentence.data(), StrEq(GetParam().sentence));
}

link_info switch_port() {
    link_info link;
    link.switch_port = true;
    return link;
}

flow_table_use flow_table(bool hardware) {
    return {.found = true, .hardware = hardware, .name = {"fast"}};
}

INSTANTIATE_TEST_SUITE_P(
    answers, judgement_test,
    testing::Values(
        judgement{"switch_chip", judge_switch_chip("eth1", 0, switch_port()), OFFLOAD_YES,
                  "eth1 is a port of a switch chip, which forwards to its other ports by itself"},
        judgement{"no_switch_chip", judge_switch_chip("eth1", 0, {}), OFFLOAD_NO,
                  "eth1 is not a port of a switch chip"},
        judgement{"no_word_on_a_switch_chip", judge_switch_chip("eth1", ENODEV, switch_port()), OFFLOAD_UNKNOWN,
                  "eth1: cannot find out whether it is a port of a switch chip: No such device"},
        judgement{"tc_offload", judge_tc_offload("eth1", 0, true), OFFLOAD_YES,
                  "eth1: hw-tc-offload is on, so that hardware may forward past the programs"},
        judgement{"no_tc_offload", judge_tc_offload("eth1", 0, false), OFFLOAD_NO, "eth1: hw-tc-offload is off"},
        judgement{"no_features", judge_tc_offload("eth1", EOPNOTSUPP, true), OFFLOAD_NO, "eth1: hw-tc-offload is off"},
        judgement{"no_word_on_tc_offload", judge_tc_offload("eth1", EPERM, true), OFFLOAD_UNKNOWN,
                  "eth1: cannot find out whether hw-tc-offload is on: Operation not permitted"},
        judgement{"flow_table_in_hardware", judge_flow_table("eth1", 0, flow_table(true)), OFFLOAD_YES,
                  "eth1: the flow table \"fast\" has hardware forward its flows past the programs"},
        judgement{"flow_table", judge_flow_table("eth1", 0, flow_table(false)), OFFLOAD_YES,
                  "eth1: the flow table \"fast\" forwards its routed flows past the bridge"},
        judgement{"no_flow_table", judge_flow_table("eth1", 0, {}), OFFLOAD_NO, "eth1: no flow table uses it"},
        judgement{"no_word_on_flow_tables", judge_flow_table("eth1", EPERM, flow_table(true)), OFFLOAD_UNKNOWN,
                  "eth1: cannot find out whether a flow table uses it: Operation not permitted"}),
    row_name<judgement>);

TEST_F(offload_test, features_that_the_kernel_has_are_read) {
    const test_link link("near", "far");
    bool on = false;
    EXPECT_EQ(ethtool_feature("near", "tx-scatter-gather", &on), 0);
    EXPECT_TRUE(on);
    EXPECT_EQ(ethtool_feature("near", "loopback", &on), 0);
    EXPECT_FALSE(on);
    EXPECT_EQ(ethtool_feature("lo", "loopback", &on), 0);
    EXPECT_TRUE(on);
    EXPECT_EQ(ethtool_feature("near", "no-such-feature", &on), 0);
    EXPECT_FALSE(on);
}

struct feature_row {
    const char *name;
    const char *feature;
    bool on;
};

using is_feature_on_test = table_test<feature_row>;

// Forty features in two blocks, of which the last in each is on; the names of a third block have no block.
TEST_P(is_feature_on_test, by_the_place_of_its_name) {
    std::vector<std::array<char, ETH_GSTRING_LEN>> names(70);
    for (size_t place = 0; place < names.size(); place++)
        snprintf(names[place].data(), ETH_GSTRING_LEN, "feature-%zu", place);
    names[63].fill('x');
    const ethtool_get_features_block blocks[2] = {{~0U, 0, 1U << 31, 0}, {~0U, ~0U, 1U << 31 | 1U, ~0U}};
    const auto *plain = reinterpret_cast<const ethtool_name *>(names.data());
    EXPECT_EQ(is_feature_on(GetParam().feature, {plain, names.size()}, blocks), GetParam().on);
}

INSTANTIATE_TEST_SUITE_P(
    features, is_feature_on_test,
    testing::Values(feature_row{"first", "feature-0", false},
                    feature_row{"last_of_the_first_block", "feature-31", true},
                    feature_row{"first_of_the_second_block", "feature-32", true},
                    feature_row{"available_and_wanted_but_not_on", "feature-33", false},
                    feature_row{"name_without_terminator", "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx", true},
                    feature_row{"beyond_the_blocks", "feature-64", false}, feature_row{"unknown", "feature", false}),
    row_name<feature_row>);

// What the packet filter says of a flow table named "fast" that is on the two interfaces.
struct told_flow_table {
    rtnl_message message;
    told_flow_table(uint8_t kind, const char *first, const char *second, uint32_t flags)
        : message(static_cast<uint16_t>(NFNL_SUBSYS_NFTABLES << 8 | kind), 0) {
        nlmsghdr *header = message.header;
        message.head<nfgenmsg>();
        mnl_attr_put_strz(header, NFTA_FLOWTABLE_TABLE, "filter");
        mnl_attr_put_strz(header, NFTA_FLOWTABLE_NAME, "fast");
        mnl_attr_put_u32(header, NFTA_FLOWTABLE_FLAGS, htonl(flags));
        nlattr *hook = mnl_attr_nest_start(header, NFTA_FLOWTABLE_HOOK);
        nlattr *devices = mnl_attr_nest_start(header, NFTA_FLOWTABLE_HOOK_DEVS);
        mnl_attr_put_strz(header, NFTA_DEVICE_NAME, first);
        mnl_attr_put_strz(header, NFTA_DEVICE_NAME, second);
        mnl_attr_nest_end(header, devices);
        mnl_attr_nest_end(header, hook);
    }
};

struct flow_table_row {
    const char *name;
    uint8_t kind;
    const char *first;
    const char *second;
    uint32_t flags;
    bool found;
    bool hardware;
};

using flow_table_test = table_test<flow_table_row>;

TEST_P(flow_table_test, concerns_an_interface_or_not) {
    const flow_table_row &row = GetParam();
    const told_flow_table told(row.kind, row.first, row.second, row.flags);
    flow_table_use use;
    EXPECT_EQ(flow_table_parse(*told.message.header, "eth1", &use), row.found);
    EXPECT_EQ(use.found, row.found);
    EXPECT_EQ(use.hardware, row.hardware);
    EXPECT_THAT(use.name.data(), StrEq(row.found ? "fast" : ""));
}

INSTANTIATE_TEST_SUITE_P(
    tables, flow_table_test,
    testing::Values(
        flow_table_row{"of_its_name", NFT_MSG_NEWFLOWTABLE, "eth1", "eth2", 0, true, false},
        flow_table_row{"with_its_name_last", NFT_MSG_NEWFLOWTABLE, "eth2", "eth1", 0, true, false},
        flow_table_row{"in_hardware", NFT_MSG_NEWFLOWTABLE, "eth1", "eth2", NFT_FLOWTABLE_HW_OFFLOAD, true, true},
        flow_table_row{"that_counts", NFT_MSG_NEWFLOWTABLE, "eth1", "eth2", NFT_FLOWTABLE_COUNTER, true, false},
        flow_table_row{"of_all_names_that_begin_so", NFT_MSG_NEWFLOWTABLE, "wlan*", "eth*", 0, true, false},
        flow_table_row{"of_others", NFT_MSG_NEWFLOWTABLE, "eth2", "eth10", 0, false, false},
        flow_table_row{"of_longer_names", NFT_MSG_NEWFLOWTABLE, "eth1.5", "eth10*", 0, false, false},
        flow_table_row{"in_a_message_about_something_else", NFT_MSG_NEWTABLE, "eth1", "eth2", 0, false, false}),
    row_name<flow_table_row>);

TEST(flow_table_parse_test, a_table_without_interfaces_concerns_none) {
    rtnl_message message(static_cast<uint16_t>(NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_NEWFLOWTABLE), 0);
    flow_table_use use;
    EXPECT_FALSE(flow_table_parse(*message.header, "eth1", &use));
}

} // namespace
