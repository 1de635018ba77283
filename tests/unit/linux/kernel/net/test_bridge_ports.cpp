// What bridges and their ports are set to.
#include "kernel/net/bridge_ports.h"

#include "kernel/net/fdb.h"
#include "linux/support/network.h"
#include "support/rows.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <linux/capability.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

using testing::ElementsAre;
using testing::UnorderedElementsAre;

namespace {

constexpr mac_address CLIENT = {0x02, 0, 0, 0, 0, 0x77};
constexpr uint32_t NOBODY = 4242;

class bridge_ports_test : public kernel_test {
protected:
    bridge_ports_test() {
        bridge_.add(link_.near());
    }

    bridge_port described() {
        bridge_port port;
        EXPECT_EQ(bridge_port_get(rtnl_, link_.near(), &port), 0);
        return port;
    }

    test_bridge bridge_{"bridge"};
    test_link link_{"near", "far"};
    test_link outside_{"outside", "other"}; // not in the bridge
};

TEST_F(bridge_ports_test, a_new_port_is_as_the_kernel_makes_it) {
    const bridge_port port = described();
    EXPECT_EQ(port.index, link_.near());
    EXPECT_EQ(port.bridge, bridge_.index());
    EXPECT_EQ(port.number, 1);
    EXPECT_EQ(port.state, BR_STATE_FORWARDING);
    EXPECT_EQ(port.flags, bridge_port_flags{});
    EXPECT_FALSE(port.hairpin || port.isolated || port.locked);
    EXPECT_EQ(port.group_fwd_mask, 0);
}

TEST_F(bridge_ports_test, a_port_is_closed_and_opened) {
    EXPECT_EQ(bridge_port_set_forwarding(rtnl_, link_.near(), false), 0);
    EXPECT_EQ(described().state, BR_STATE_DISABLED);
    EXPECT_EQ(described().flags, bridge_port_flags{});
    EXPECT_EQ(bridge_port_set_forwarding(rtnl_, link_.near(), true), 0);
    EXPECT_EQ(described().state, BR_STATE_FORWARDING);
}

TEST_F(bridge_ports_test, a_port_that_is_down_is_closed_already) {
    set_up(link_.near(), false);
    EXPECT_EQ(bridge_port_set_forwarding(rtnl_, link_.near(), false), ENETDOWN);
    EXPECT_EQ(bridge_port_set_forwarding(rtnl_, link_.near(), true), ENETDOWN);
    EXPECT_EQ(described().state, BR_STATE_DISABLED);
    EXPECT_EQ(bridge_port_set_forwarding(rtnl_, NOBODY, false), ENODEV);
    EXPECT_EQ(bridge_port_set_forwarding(rtnl_, outside_.near(), false), EOPNOTSUPP);
}

struct flag_row {
    const char *name;
    bridge_port_flags flags;
    std::vector<std::string> files; // learning, unicast_flood, multicast_flood, broadcast_flood, multicast_router
};

using bridge_port_set_test = table_test<flag_row, bridge_ports_test>;

TEST_P(bridge_port_set_test, sets_just_the_flags_that_are_wanted) {
    EXPECT_EQ(bridge_port_set(rtnl_, link_.near(), GetParam().flags), 0);
    const std::vector<std::string> files = {setting("near", "brport/learning"), setting("near", "brport/unicast_flood"),
                                            setting("near", "brport/multicast_flood"),
                                            setting("near", "brport/broadcast_flood"),
                                            setting("near", "brport/multicast_router")};
    EXPECT_EQ(files, GetParam().files);
    EXPECT_EQ(described().flags, GetParam().flags);
    EXPECT_EQ(described().state, BR_STATE_FORWARDING);
}

TEST_P(bridge_port_set_test, puts_back_what_was_read) {
    const bridge_port_flags before = described().flags;
    EXPECT_EQ(bridge_port_set(rtnl_, link_.near(), GetParam().flags), 0);
    EXPECT_EQ(bridge_port_set(rtnl_, link_.near(), before), 0);
    EXPECT_EQ(described().flags, before);
}

INSTANTIATE_TEST_SUITE_P(
    flags, bridge_port_set_test,
    testing::Values(flag_row{"all_as_they_are", {}, {"1", "1", "1", "1", "1"}},
                    flag_row{"no_learning", {.learning = false}, {"0", "1", "1", "1", "1"}},
                    flag_row{"no_unknown_unicast", {.flood = false}, {"1", "0", "1", "1", "1"}},
                    flag_row{"no_multicast", {.mcast_flood = false}, {"1", "1", "0", "1", "1"}},
                    flag_row{"no_broadcast", {.bcast_flood = false}, {"1", "1", "1", "0", "1"}},
                    flag_row{"never_a_router", {.mcast_router = MCAST_ROUTER_NEVER}, {"1", "1", "1", "1", "0"}},
                    flag_row{"always_a_router", {.mcast_router = MCAST_ROUTER_ALWAYS}, {"1", "1", "1", "1", "2"}},
                    flag_row{"closed", {false, false, false, false, MCAST_ROUTER_NEVER}, {"0", "0", "0", "0", "0"}}),
    row_name<flag_row>);

TEST_F(bridge_ports_test, other_settings_of_the_port_are_read) {
    rtnl_message message(RTM_SETLINK, 0);
    auto *head = message.head<ifinfomsg>();
    head->ifi_family = AF_BRIDGE;
    head->ifi_index = static_cast<int>(link_.near());
    nlattr *nest = mnl_attr_nest_start(message.header, IFLA_PROTINFO);
    mnl_attr_put_u8(message.header, IFLA_BRPORT_MODE, 1);
    mnl_attr_put_u8(message.header, IFLA_BRPORT_ISOLATED, 1);
    mnl_attr_put_u8(message.header, IFLA_BRPORT_LOCKED, 1);
    mnl_attr_put_u16(message.header, IFLA_BRPORT_GROUP_FWD_MASK, 0x4000);
    mnl_attr_nest_end(message.header, nest);
    EXPECT_EQ(rtnl_.request(message), 0);
    const bridge_port port = described();
    EXPECT_TRUE(port.hairpin);
    EXPECT_TRUE(port.isolated);
    EXPECT_TRUE(port.locked);
    EXPECT_EQ(port.group_fwd_mask, 0x4000);
}

TEST_F(bridge_ports_test, dump_hands_out_the_ports_of_one_bridge_or_of_all) {
    const test_bridge another("another");
    another.add(outside_.near());
    const auto ports_of = [this](uint32_t bridge) {
        std::vector<uint32_t> ports;
        EXPECT_EQ(bridge_ports_dump(rtnl_, bridge, [&](const bridge_port &port) { ports.push_back(port.index); }), 0);
        return ports;
    };
    EXPECT_THAT(ports_of(bridge_.index()), ElementsAre(link_.near()));
    EXPECT_THAT(ports_of(another.index()), ElementsAre(outside_.near()));
    EXPECT_THAT(ports_of(0), UnorderedElementsAre(link_.near(), outside_.near()));
    EXPECT_THAT(ports_of(NOBODY), ElementsAre());
}

// What the three calls do with an interface that is no port.
struct no_port {
    const char *name;
    const char *interface;
    int result;
};

using no_port_test = table_test<no_port, bridge_ports_test>;

TEST_P(no_port_test, is_refused) {
    const std::string name = GetParam().interface;
    const uint32_t index = name == "nobody" ? NOBODY : name == "outside" ? outside_.near() : bridge_.index();
    bridge_port port;
    EXPECT_EQ(bridge_port_get(rtnl_, index, &port), GetParam().result);
    EXPECT_EQ(bridge_port_set(rtnl_, index, {}), GetParam().result);
    EXPECT_EQ(bridge_port_flush(rtnl_, index), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(interfaces, no_port_test,
                         testing::Values(no_port{"missing", "nobody", ENODEV},
                                         no_port{"in_no_bridge", "outside", EOPNOTSUPP},
                                         no_port{"the_bridge_itself", "bridge", EOPNOTSUPP}),
                         row_name<no_port>);

TEST_F(bridge_ports_test, the_index_zero_is_no_port_and_no_bridge) {
    bridge_port port;
    bridge_settings settings;
    EXPECT_EQ(bridge_port_get(rtnl_, 0, &port), ENODEV);
    EXPECT_EQ(bridge_get(rtnl_, 0, &settings), ENODEV);
}

TEST_F(bridge_ports_test, setting_needs_the_right_and_reading_does_not) {
    const without_capability none(CAP_NET_ADMIN);
    EXPECT_EQ(bridge_port_set(rtnl_, link_.near(), {.flood = false}), EPERM);
    EXPECT_EQ(bridge_port_flush(rtnl_, link_.near()), EPERM);
    EXPECT_TRUE(described().flags.flood);
}

TEST_F(bridge_ports_test, a_flush_forgets_what_was_learnt_on_the_port_and_nothing_else) {
    bridge_.add(outside_.near());
    constexpr mac_address PINNED = {0x02, 0, 0, 0, 0, 0x88};
    constexpr mac_address ELSEWHERE = {0x02, 0, 0, 0, 0, 0x99};
    const fdb_place pin{.mac = PINNED, .port = link_.near()};
    EXPECT_EQ(fdb_pin(rtnl_, {&pin, 1}), 0);
    link_.send(ethernet_frame(BROADCAST, CLIENT, 0x1234));
    outside_.send(ethernet_frame(BROADCAST, ELSEWHERE, 0x1234));
    fdb_record record;
    EXPECT_EQ(fdb_find(rtnl_, bridge_.index(), CLIENT, &record), 0);
    EXPECT_EQ(bridge_port_flush(rtnl_, link_.near()), 0);
    EXPECT_EQ(fdb_find(rtnl_, bridge_.index(), CLIENT, &record), ENOENT);
    EXPECT_EQ(fdb_find(rtnl_, bridge_.index(), PINNED, &record), 0);
    EXPECT_EQ(fdb_find(rtnl_, bridge_.index(), ELSEWHERE, &record), 0);
    EXPECT_EQ(fdb_find(rtnl_, bridge_.index(), mac_of("near"), &record), 0);
    EXPECT_TRUE(record.is_local);
}

struct bridge_row {
    const char *name;
    const char *file;
    const char *value;
    bridge_settings expected; // but for the index
};

using bridge_get_test = table_test<bridge_row, bridge_ports_test>;

TEST_P(bridge_get_test, reads_what_the_bridge_is_set_to) {
    bridge_.set(GetParam().file, GetParam().value);
    bridge_settings settings;
    EXPECT_EQ(bridge_get(rtnl_, bridge_.index(), &settings), 0);
    EXPECT_EQ(settings.index, bridge_.index());
    EXPECT_EQ(settings.stp, GetParam().expected.stp);
    EXPECT_EQ(settings.vlan_filtering, GetParam().expected.vlan_filtering);
    EXPECT_EQ(settings.mcast_snooping, GetParam().expected.mcast_snooping);
    EXPECT_EQ(settings.group_fwd_mask, GetParam().expected.group_fwd_mask);
    EXPECT_EQ(settings.ageing_ticks, GetParam().expected.ageing_ticks);
}

bridge_settings usual() {
    bridge_settings settings;
    settings.mcast_snooping = true;
    settings.ageing_ticks = 30000;
    return settings;
}

bridge_settings usual_but(void (*differ)(bridge_settings &)) {
    bridge_settings settings = usual();
    differ(settings);
    return settings;
}

INSTANTIATE_TEST_SUITE_P(
    settings, bridge_get_test,
    testing::Values(bridge_row{"as_the_kernel_makes_it", "stp_state", "0", usual()},
                    bridge_row{"stp", "stp_state", "1", usual_but([](bridge_settings &settings) { settings.stp = 1; })},
                    bridge_row{"ageing", "ageing_time", "1000",
                               usual_but([](bridge_settings &settings) { settings.ageing_ticks = 1000; })},
                    bridge_row{"no_snooping", "multicast_snooping", "0",
                               usual_but([](bridge_settings &settings) { settings.mcast_snooping = false; })},
                    bridge_row{"neighbour_frames", "group_fwd_mask", "0x4000",
                               usual_but([](bridge_settings &settings) { settings.group_fwd_mask = 0x4000; })}),
    row_name<bridge_row>);

TEST_F(bridge_ports_test, what_is_no_bridge_is_told_as_such) {
    bridge_settings settings;
    EXPECT_EQ(bridge_get(rtnl_, link_.near(), &settings), EOPNOTSUPP);
    EXPECT_EQ(bridge_get(rtnl_, NOBODY, &settings), ENODEV);
}

rtnl_message &bridge_says(rtnl_message &message) {
    auto *head = message.head<ifinfomsg>();
    head->ifi_family = AF_BRIDGE;
    head->ifi_index = 7;
    return message;
}

TEST(bridge_port_parse_test, a_port_that_left_has_no_bridge) {
    rtnl_message message(RTM_DELLINK, 0);
    bridge_port port;
    EXPECT_TRUE(bridge_port_parse(*bridge_says(message).header, &port));
    EXPECT_EQ(port.index, 7U);
    EXPECT_EQ(port.bridge, 0U);
}

TEST(bridge_port_parse_test, what_a_bridge_says_of_itself_is_about_no_port) {
    rtnl_message message(RTM_NEWLINK, 0);
    bridge_port port;
    EXPECT_FALSE(bridge_port_parse(*bridge_says(message).header, &port));
}

TEST(bridge_port_parse_test, a_message_that_ends_in_its_head_is_left_alone) {
    rtnl_message message(RTM_DELLINK, 0);
    bridge_says(message).header->nlmsg_len -= 1;
    bridge_port port;
    EXPECT_FALSE(bridge_port_parse(*message.header, &port));
}

TEST(bridge_port_parse_test, ports_of_devices_other_than_bridges_are_left_alone) {
    rtnl_message message(RTM_NEWLINK, 0);
    message.head<ifinfomsg>()->ifi_index = 7;
    nlattr *info = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
    mnl_attr_put_strz(message.header, IFLA_INFO_SLAVE_KIND, "bond");
    mnl_attr_nest_end(message.header, mnl_attr_nest_start(message.header, IFLA_INFO_SLAVE_DATA));
    mnl_attr_nest_end(message.header, info);
    bridge_port port;
    EXPECT_FALSE(bridge_port_parse(*message.header, &port));
}

} // namespace
