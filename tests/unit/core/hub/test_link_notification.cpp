// Expired Wi-Fi stations: which interface a link notification is about, and what follows.
#include "link_message_test.h"

#include <sys/socket.h>

namespace {

class LinkMessage : public link_message_test {
protected:
    // An access point's interface that is not configured, with its two VLANs on two bridges.
    void add_vlans(uint8_t path, uint8_t relay) {
        add_interface("wlan0.1", path, relay);
        add_interface("wlan0.2", 0, 0);
        add_active_bridge("br-lan", CONFIG_LOOP_AVOIDANCE, {first.index()});
        add_active_bridge("br-guest", CONFIG_LOOP_AVOIDANCE, {second.index()});
    }
    test_interface wlan{"wlan0"}, first{"wlan0.1"}, second{"wlan0.2"};
};

class DirectLinkMessage : public link_message_test {
protected:
    DirectLinkMessage() {
        port = add_interface("wlan1", 1, 1);
        add_active_bridge("br-lan", CONFIG_LOOP_AVOIDANCE, {wlan.index()});
    }
    test_interface wlan{"wlan1"};
    config_interface *port;
};

class FlushHaTable : public link_message_test {};

// Sends a datagram to the process's own link-notification socket, past the fake.
void notify(const std::string &bytes) {
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    sockaddr_nl target{};
    target.nl_family = AF_NETLINK;
    target.nl_pid = static_cast<uint32_t>(getpid());
    iovec part{const_cast<char *>(bytes.data()), bytes.size()};
    msghdr message{};
    message.msg_name = &target;
    message.msg_namelen = sizeof target;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    EXPECT_EQ(sendmsg(fd, &message, 0), static_cast<ssize_t>(bytes.size())) << strerror(errno);
    close(fd);
}

} // namespace

TEST_F(LinkMessage, ExpiryOnAnUnconfiguredInterfaceIsThatOfItsFirstVlan) {
    add_vlans(1, 1);
    handle(expiry(wlan.index()));
    EXPECT_THAT(changes(),
                testing::ElementsAre("bridgeFlushHATable(br-lan)", "bridgeFlushHATable(br-guest)",
                                     "bridgeDelFdbByName(br-lan, wlan0.1)", "bridgeDelFdbByName(br-guest, wlan0.2)"));
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(LinkMessage, EntriesAreDeletedFirstForTheOneNameOnAllBridgesThenForTheOther) {
    add_vlans(1, 1);
    platform.bridges["br-lan"] = {second.index(), first.index()};
    platform.bridges["br-guest"] = {second.index(), first.index()};
    handle(expiry(wlan.index()));
    EXPECT_THAT(changes(),
                testing::ElementsAre("bridgeFlushHATable(br-lan)", "bridgeFlushHATable(br-guest)",
                                     "bridgeDelFdbByName(br-lan, wlan0.1)", "bridgeDelFdbByName(br-guest, wlan0.1)",
                                     "bridgeDelFdbByName(br-lan, wlan0.2)", "bridgeDelFdbByName(br-guest, wlan0.2)"));
}

TEST_F(LinkMessage, EntriesAreDeletedOncePerPortOfTheName) {
    add_vlans(1, 1);
    platform.bridges["br-lan"] = {first.index(), first.index()};
    platform.bridges["br-guest"] = {};
    handle(expiry(wlan.index()));
    EXPECT_THAT(changes(),
                testing::ElementsAre("bridgeFlushHATable(br-lan)", "bridgeFlushHATable(br-guest)",
                                     "bridgeDelFdbByName(br-lan, wlan0.1)", "bridgeDelFdbByName(br-lan, wlan0.1)"));
}

TEST_F(LinkMessage, EntriesAreDeletedAlsoOnBridgesWithoutLoopAvoidance) {
    add_vlans(1, 1);
    node.bridges[0].flags = CONFIG_PATH_SELECTION;
    node.bridges[1].flags = 0;
    handle(expiry(wlan.index()));
    EXPECT_THAT(changes(),
                testing::ElementsAre("bridgeDelFdbByName(br-lan, wlan0.1)", "bridgeDelFdbByName(br-guest, wlan0.2)"));
}

TEST_F(LinkMessage, InactiveBridgesAreLeftAlone) {
    add_vlans(1, 1);
    platform.bridges.erase("br-lan");
    handle(expiry(wlan.index()));
    EXPECT_THAT(changes(),
                testing::ElementsAre("bridgeFlushHATable(br-guest)", "bridgeDelFdbByName(br-guest, wlan0.2)"));
}

TEST_F(LinkMessage, VlanMustBeARelayPathPort) {
    add_vlans(1, 1);
    const std::pair<uint8_t, uint8_t> flags[] = {{0, 1}, {1, 0}, {0, 0}};
    for (const auto &[path, relay] : flags) {
        node.interfaces[0].path = path;
        node.interfaces[0].relay = relay;
        handle(expiry(wlan.index()));
        EXPECT_THAT(changes(), testing::IsEmpty());
    }
}

TEST_F(LinkMessage, OnlyTheFirstVlanIsLookedUp) {
    add_vlans(1, 1);
    strcpy(node.interfaces[0].name, "other");
    node.interfaces[1].path = node.interfaces[1].relay = 1;
    handle(expiry(wlan.index()));
    EXPECT_THAT(changes(), testing::IsEmpty());
}

TEST_F(LinkMessage, UnconfiguredInterfaceDoesNothing) {
    add_active_bridge("br-lan", CONFIG_LOOP_AVOIDANCE, {first.index()});
    handle(expiry(wlan.index()));
    EXPECT_THAT(platform.calls, testing::IsEmpty());
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(LinkMessage, NameOf13CharactersHasVlans) {
    const test_interface base("abcdefghijklm"), vlan("abcdefghijklm.1");
    add_interface("abcdefghijklm.1", 1, 1);
    add_active_bridge("br-lan", CONFIG_LOOP_AVOIDANCE, {vlan.index()});
    handle(expiry(base.index()));
    EXPECT_THAT(changes(),
                testing::ElementsAre("bridgeFlushHATable(br-lan)", "bridgeDelFdbByName(br-lan, abcdefghijklm.1)"));
}

TEST_F(LinkMessage, NameOf14CharactersHasNone) {
    const test_interface base("abcdefghijklmn"), cut("abcdefghijklmn.");
    add_interface("abcdefghijklmn.", 1, 1); // what the VLAN's name would be cut to
    add_active_bridge("br-lan", CONFIG_LOOP_AVOIDANCE, {cut.index()});
    handle(expiry(base.index()));
    EXPECT_THAT(changes(), testing::IsEmpty());
}

TEST_F(LinkMessage, NameOf14CharactersIsStillLookedUpItself) {
    const test_interface base("abcdefghijklmn");
    add_interface("abcdefghijklmn", 1, 1);
    add_active_bridge("br-lan", CONFIG_LOOP_AVOIDANCE, {base.index()});
    handle(expiry(base.index()));
    EXPECT_THAT(changes(), testing::ElementsAre("bridgeFlushHATable(br-lan)"));
}

TEST_F(DirectLinkMessage, ConfiguredInterfaceFlushesTheTablesAndDeletesNoEntries) {
    handle(expiry(wlan.index()));
    EXPECT_THAT(changes(), testing::ElementsAre("bridgeFlushHATable(br-lan)"));
}

TEST_F(DirectLinkMessage, InterfaceThatIsNoPathDoesNothing) {
    port->path = 0;
    handle(expiry(wlan.index()));
    EXPECT_THAT(platform.calls, testing::IsEmpty());
}

TEST_F(DirectLinkMessage, InterfaceThatIsNoRelayDoesNothing) {
    port->relay = 0;
    handle(expiry(wlan.index()));
    EXPECT_THAT(platform.calls, testing::IsEmpty());
}

// The interface itself is configured, so its VLAN does not step in.
TEST_F(DirectLinkMessage, VlanDoesNotReplaceAConfiguredInterface) {
    port->path = 0;
    add_interface("wlan1.1", 1, 1);
    handle(expiry(wlan.index()));
    EXPECT_THAT(platform.calls, testing::IsEmpty());
}

TEST_F(DirectLinkMessage, UnknownIndexIsLoggedAndMatchesNothing) {
    handle(expiry(4711));
    EXPECT_THAT(logged(),
                testing::ElementsAre(log_line{3, "nl_wifi_newlink_handle", "Error: config_index_to_name fail"}));
    EXPECT_THAT(platform.calls, testing::IsEmpty());
}

TEST_F(DirectLinkMessage, FlushIsToldAtDebugLevel) {
    const at_log_level scope(2);
    handle(expiry(wlan.index()));
    EXPECT_THAT(logged_texts("nl_wifi_newlink_handle"), testing::ElementsAre("Debug: wifi flush table"));
    EXPECT_EQ(logged().front().priority, 7);
}

TEST_F(DirectLinkMessage, IndexIsTheSecondWordOfTheInterfaceInfo) {
    const std::string info =
        host_order(uint32_t{4711}) + host_order(wlan.index()) + host_order(uint32_t{4712}) + host_order(uint32_t{4713});
    handle(netlink_message(RTM_NEWLINK, info + attribute(WIRELESS, record(EXPIRED))));
    EXPECT_THAT(changes(), testing::ElementsAre("bridgeFlushHATable(br-lan)"));
}

TEST_F(DirectLinkMessage, MessageShorterThanItsFixedHeadDoesNothing) {
    const std::string whole = expiry(wlan.index());
    for (uint32_t length = 16; length < 32; length++)
        handle(netlink_header(length, RTM_NEWLINK) + whole.substr(16, length - 16));
    EXPECT_THAT(platform.calls, testing::IsEmpty());
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(DirectLinkMessage, MessageFromTheSocketUsesTheConfigOfTheHub) {
    event_wifi_init(&node.ev);
    notify(expiry(wlan.index()));
    serve_waiting();
    EXPECT_THAT(changes(), testing::ElementsAre("bridgeFlushHATable(br-lan)"));
}

TEST_F(DirectLinkMessage, OtherMessageTypesAreDropped) {
    event_wifi_init(&node.ev);
    for (const uint16_t type : std::initializer_list<uint16_t>{RTM_DELLINK, RTM_GETLINK, 0, RTM_NEWADDR, 0x1010})
        notify(netlink_message(type, link_info(wlan.index()) + attribute(WIRELESS, record(EXPIRED))));
    serve_waiting();
    EXPECT_THAT(changes(), testing::IsEmpty());
}

TEST_F(DirectLinkMessage, MalformedDatagramsAreSkippedSilently) {
    event_wifi_init(&node.ev);
    const std::string whole = expiry(wlan.index());
    notify(whole.substr(0, 15));
    notify(host_order(uint32_t{8}) + whole.substr(4));
    notify(host_order(static_cast<uint32_t>(whole.size() + 1)) + whole.substr(4));
    serve_waiting();
    EXPECT_THAT(changes(), testing::IsEmpty());
    notify(whole);
    serve_waiting();
    EXPECT_EQ(changes().size(), 1U);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(DirectLinkMessage, OnlyTheFirstMessageOfADatagramIsLookedAt) {
    event_wifi_init(&node.ev);
    notify(link_message(wlan.index(), "") + expiry(wlan.index()));
    serve_waiting();
    EXPECT_THAT(changes(), testing::IsEmpty());
    notify(expiry(wlan.index()) + expiry(wlan.index()));
    serve_waiting();
    EXPECT_EQ(changes().size(), 1U);
}

TEST_F(DirectLinkMessage, LinkMessageProducesNoEvent) {
    recording_subscriber subscriber('s');
    subscribe(&subscriber);
    event_wifi_init(&node.ev);
    notify(expiry(wlan.index()));
    serve_waiting();
    EXPECT_EQ(changes().size(), 1U);
    EXPECT_EQ(subscriber.summary(), "");
}

TEST_F(FlushHaTable, FlushReachesActiveLoopAvoidingBridgesInOrder) {
    add_active_bridge("br-a", CONFIG_LOOP_AVOIDANCE, {});
    add_active_bridge("br-b", CONFIG_PATH_SELECTION, {});
    add_bridge("br-c", CONFIG_LOOP_AVOIDANCE);
    add_active_bridge("br-d", CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION, {});
    wifi_flush_ha_table(&node);
    EXPECT_THAT(changes(), testing::ElementsAre("bridgeFlushHATable(br-a)", "bridgeFlushHATable(br-d)"));
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(FlushHaTable, AnyFailureIsLoggedAndTheWalkGoesOn) {
    add_active_bridge("br-a", CONFIG_LOOP_AVOIDANCE, {});
    add_active_bridge("br-b", CONFIG_LOOP_AVOIDANCE, {});
    for (const int result : {1, -1}) {
        platform.calls.clear();
        clear_log();
        platform.fail("bridgeFlushHATable", result, 1);
        wifi_flush_ha_table(&node);
        EXPECT_EQ(changes().size(), 2U);
        EXPECT_THAT(logged(),
                    testing::ElementsAre(log_line{3, "wifi_flush_ha_table", "Error: bridgeFlushHATable fail"}));
    }
}

TEST_F(FlushHaTable, NameOf16CharactersIsTerminated) {
    add_bridge("abcdefghijklmnop", 0x71717171);
    platform.bridges["abcdefghijklmno"] = {}; // as much of it as the platform keeps
    wifi_flush_ha_table(&node);
    EXPECT_THAT(changes(), testing::ElementsAre("bridgeFlushHATable(abcdefghijklmnop)"));
}
