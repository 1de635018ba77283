// What is told about interfaces, and how far it is believed.
#include "kernel/net/links.h"

#include "linux/support/network.h"
#include "support/rows.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if_arp.h>

using testing::Contains;
using testing::StrEq;

namespace {

class links_test : public kernel_test {
protected:
    link_info find(const char *name) {
        link_info link;
        EXPECT_EQ(link_find(rtnl_, name, &link), 0);
        return link;
    }

    test_link link_{"near", "far"};
};

TEST_F(links_test, dump_hands_out_each_interface_once) {
    std::vector<std::string> names;
    EXPECT_EQ(links_dump(rtnl_, [&](const link_info &link) { names.emplace_back(link.name.data()); }), 0);
    EXPECT_THAT(names, testing::UnorderedElementsAre("lo", "near", "far"));
}

TEST_F(links_test, an_interface_is_found_by_name_and_by_index_alike) {
    link_info link;
    EXPECT_EQ(link_get(rtnl_, link_.near(), &link), 0);
    EXPECT_THAT(link.name.data(), StrEq("near"));
    EXPECT_EQ(link.index, link_.near());
    EXPECT_EQ(link.mac, mac_of("near"));
    EXPECT_EQ(link.mtu, 1500U);
    EXPECT_TRUE(link.ethernet);
    EXPECT_FALSE(link.is_bridge || link.switch_port || link.deleted);
    EXPECT_EQ(find("near").index, link.index);
}

TEST_F(links_test, the_bridge_of_a_port_is_its_master) {
    const test_bridge bridge("bridge");
    EXPECT_EQ(find("near").master, 0U);
    bridge.add(link_.near());
    EXPECT_EQ(find("near").master, bridge.index());
    EXPECT_TRUE(find("bridge").is_bridge);
}

TEST_F(links_test, what_is_not_ethernet_has_no_mac) {
    const link_info loopback = find("lo");
    EXPECT_FALSE(loopback.ethernet);
    EXPECT_EQ(loopback.mac, mac_address{});
}

TEST_F(links_test, an_interface_works_while_both_ends_are_up) {
    EXPECT_TRUE(link_works(find("near")));
    set_up(link_.far(), false);
    EXPECT_TRUE(find("near").up);
    EXPECT_FALSE(find("near").carrier);
    EXPECT_FALSE(link_works(find("near")));
    set_up(link_.far(), true);
    link_.wait_until_up();
    EXPECT_TRUE(link_works(find("near")));
    set_up(link_.near(), false);
    EXPECT_FALSE(find("near").up);
    EXPECT_FALSE(link_works(find("near")));
}

struct missing {
    const char *name;
    const char *interface;
};

using missing_interface_test = table_test<missing, kernel_test>;

TEST_P(missing_interface_test, is_told_as_such) {
    link_info link;
    EXPECT_EQ(link_find(rtnl_, GetParam().interface, &link), ENODEV);
}

INSTANTIATE_TEST_SUITE_P(names, missing_interface_test,
                         testing::Values(missing{"unknown", "nobody"}, missing{"empty", ""},
                                         missing{"as_long_as_names_get", "fifteen-letters"},
                                         missing{"too_long", "sixteen-letters-"},
                                         missing{"much_too_long", "a-name-that-no-interface-can-have"}),
                         row_name<missing>);

TEST_F(links_test, no_interface_has_the_index_zero_or_an_unused_one) {
    link_info link;
    EXPECT_EQ(link_get(rtnl_, 0, &link), ENODEV);
    EXPECT_EQ(link_get(rtnl_, 4242, &link), ENODEV);
}

struct operation {
    const char *name;
    bool up;
    bool carrier;
    uint8_t operstate;
    bool deleted;
    bool works;
};

using link_works_test = table_test<operation>;

TEST_P(link_works_test, by_its_state) {
    link_info link;
    link.up = GetParam().up;
    link.carrier = GetParam().carrier;
    link.operstate = GetParam().operstate;
    link.deleted = GetParam().deleted;
    EXPECT_EQ(link_works(link), GetParam().works);
}

INSTANTIATE_TEST_SUITE_P(
    states, link_works_test,
    testing::Values(operation{"up", true, true, IF_OPER_UP, false, true},
                    operation{"driver_that_tells_no_state", true, true, IF_OPER_UNKNOWN, false, true},
                    operation{"waiting_for_authentication", true, true, IF_OPER_DORMANT, false, false},
                    operation{"lower_layer_down", true, true, IF_OPER_LOWERLAYERDOWN, false, false},
                    operation{"no_carrier", true, false, IF_OPER_DOWN, false, false},
                    operation{"taken_down", false, true, IF_OPER_UP, false, false},
                    operation{"deleted", true, true, IF_OPER_UP, true, false}),
    row_name<operation>);

// A message as the kernel would send it, about the interface 7.
struct told {
    rtnl_message message;
    explicit told(uint16_t type, uint8_t family = AF_UNSPEC, uint16_t kind = ARPHRD_ETHER) : message(type, 0) {
        auto *head = message.head<ifinfomsg>();
        head->ifi_family = family;
        head->ifi_type = kind;
        head->ifi_index = 7;
    }
};

TEST(link_parse_test, a_port_of_a_switch_chip_is_known_by_the_chips_number) {
    told link(RTM_NEWLINK);
    mnl_attr_put(link.message.header, IFLA_PHYS_SWITCH_ID, 4, "chip");
    link_info read;
    EXPECT_TRUE(link_parse(*link.message.header, &read));
    EXPECT_TRUE(read.switch_port);
}

TEST(link_parse_test, a_deleted_interface_is_told_as_such) {
    link_info read;
    EXPECT_TRUE(link_parse(*told(RTM_DELLINK).message.header, &read));
    EXPECT_TRUE(read.deleted);
    EXPECT_EQ(read.index, 7U);
}

TEST(link_parse_test, what_a_bridge_says_of_a_port_is_not_about_the_interface) {
    link_info read;
    EXPECT_FALSE(link_parse(*told(RTM_DELLINK, AF_BRIDGE).message.header, &read));
    EXPECT_FALSE(link_parse(*told(RTM_NEWLINK, AF_BRIDGE).message.header, &read));
}

TEST(link_parse_test, other_messages_are_left_alone) {
    link_info read;
    EXPECT_FALSE(link_parse(*told(RTM_NEWNEIGH).message.header, &read));
}

TEST(link_parse_test, a_message_that_ends_in_its_head_is_left_alone) {
    told link(RTM_NEWLINK);
    link.message.header->nlmsg_len -= 1;
    link_info read;
    EXPECT_FALSE(link_parse(*link.message.header, &read));
}

TEST(link_parse_test, attributes_of_the_wrong_size_count_as_missing) {
    told link(RTM_NEWLINK);
    mnl_attr_put_u8(link.message.header, IFLA_MASTER, 9);
    mnl_attr_put(link.message.header, IFLA_ADDRESS, 4, "four");
    mnl_attr_put(link.message.header, IFLA_IFNAME, 20, "twenty-letters-long!");
    link_info read;
    EXPECT_TRUE(link_parse(*link.message.header, &read));
    EXPECT_EQ(read.master, 0U);
    EXPECT_FALSE(read.ethernet);
    EXPECT_THAT(read.name.data(), StrEq("twenty-letters-"));
}

TEST(link_parse_test, an_attribute_that_runs_past_the_message_is_not_read) {
    told link(RTM_NEWLINK);
    mnl_attr_put_u32(link.message.header, IFLA_MTU, 1400);
    mnl_attr_put_u32(link.message.header, IFLA_MASTER, 9);
    link.message.header->nlmsg_len -= 4;
    link_info read;
    EXPECT_TRUE(link_parse(*link.message.header, &read));
    EXPECT_EQ(read.mtu, 1400U);
    EXPECT_EQ(read.master, 0U);
}

} // namespace
