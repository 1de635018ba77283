// The link_state event.
#include "blobmsg_builder.h"
#include "hub_test.h"
#include "support/sandbox.h"

#include <algorithm>
#include <cstdint>

namespace {

class LinkState : public hub_test {
protected:
    LinkState() {
        subscribe(&subscriber);
    }
    // The change detector lives as long as the process: it is left as it was found.
    ~LinkState() override {
        remove_file(PLC_FILE);
        event_ubus_receive_link_state(&node.ev, blobmsg_builder().int32("LINK_ETH", 0).message());
    }
    void receive(blobmsg_builder message) {
        event_ubus_receive_cb(nullptr, &node.ev.ubus_handler, "kolt.link_state", message.message());
    }
    static std::vector<std::string> lines() {
        return logged_texts("event_ubus_receive_link_state");
    }
    static constexpr char PLC_FILE[] = "/tmp/plc_runtime_info";
    recording_subscriber subscriber{'s'};
};

uint32_t eth_state_at_event;

} // namespace

TEST_F(LinkState, EachStateThatAnEventCarriesIsStored) {
    receive(blobmsg_builder()
                .int32("LINK_WIFI_2G", 1)
                .int32("LINK_WIFI_5G", 2)
                .int32("LINK_WIFI_5G_2", 3)
                .int32("LINK_PLC", 4)
                .int32("LINK_ETH", 5));
    EXPECT_EQ(node.ev.wifi_2g_state, 1U);
    EXPECT_EQ(node.ev.wifi_5g_state, 2U);
    EXPECT_EQ(node.ev.wifi_5g_2_state, 3U);
    EXPECT_EQ(node.ev.plc_state, 4U);
    EXPECT_EQ(node.ev.eth_state, 5U);
}

TEST_F(LinkState, StatesThatAnEventDoesNotCarryStay) {
    receive(blobmsg_builder().int32("LINK_WIFI_2G", 1).int32("LINK_PLC", 4));
    receive(blobmsg_builder().int32("LINK_WIFI_2G", 0));
    EXPECT_EQ(node.ev.wifi_2g_state, 0U);
    EXPECT_EQ(node.ev.plc_state, 4U);
}

TEST_F(LinkState, StatesAreLoggedInOneOrderWhateverTheOrderOfTheMessage) {
    const at_log_level scope(2);
    receive(blobmsg_builder()
                .int32("LINK_PLC", 4)
                .int32("LINK_ETH", 5)
                .int32("LINK_WIFI_5G_2", 3)
                .int32("LINK_WIFI_5G", 2)
                .int32("LINK_WIFI_2G", 0xFFFFFFFF));
    EXPECT_THAT(lines(), testing::ElementsAre("Debug: link_state parse ", "Debug: wifi 2g state -1",
                                              "Debug: wifi 5g state 2", "Debug: wifi 5g2 state 3", "Debug: eth state 5",
                                              "Debug: eth link state change, need_reconfig", "Debug: plc state 4"));
    EXPECT_EQ(logged().size(), 7U);
    for (const log_line &line : logged())
        EXPECT_EQ(line.priority, 7) << line.text;
}

TEST_F(LinkState, StatesAreNotLoggedBelowDebugLevel) {
    receive(blobmsg_builder().int32("LINK_ETH", 1).int32("LINK_PLC", 1));
    receive(blobmsg_builder());
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(LinkState, OnlyStatesThatArePresentAreLogged) {
    const at_log_level scope(2);
    receive(blobmsg_builder().int32("LINK_WIFI_5G", 1));
    EXPECT_THAT(logged_texts(), testing::ElementsAre("Debug: link_state parse ", "Debug: wifi 5g state 1"));
}

TEST_F(LinkState, FirstEthernetStateZeroIsNoChange) {
    receive(blobmsg_builder().int32("LINK_ETH", 0));
    EXPECT_EQ(subscriber.summary(), "2:0");
}

TEST_F(LinkState, EthernetChangeSetsTheFlagOnce) {
    receive(blobmsg_builder().int32("LINK_ETH", 1));
    receive(blobmsg_builder().int32("LINK_ETH", 1));
    receive(blobmsg_builder().int32("LINK_ETH", 0));
    receive(blobmsg_builder().int32("LINK_ETH", 0));
    receive(blobmsg_builder().int32("LINK_ETH", 2));
    receive(blobmsg_builder().int32("LINK_ETH", 1));
    EXPECT_EQ(subscriber.summary(), "2:1 2:0 2:1 2:0 2:1 2:1");
}

TEST_F(LinkState, UnchangedEthernetStateHasNoChangeLine) {
    receive(blobmsg_builder().int32("LINK_ETH", 1));
    const at_log_level scope(2);
    receive(blobmsg_builder().int32("LINK_ETH", 1));
    EXPECT_THAT(lines(), testing::ElementsAre("Debug: link_state parse ", "Debug: eth state 1"));
}

TEST_F(LinkState, FlagIsZeroWithoutTheEthernetState) {
    receive(blobmsg_builder().int32("LINK_ETH", 1));
    receive(blobmsg_builder().int32("LINK_WIFI_2G", 1).int32("LINK_WIFI_5G", 1).int32("LINK_PLC", 1));
    receive(blobmsg_builder().int32("LINK_ETH", 1)); // the remembered state is still 1
    EXPECT_EQ(subscriber.summary(), "2:1 2:0 2:0");
}

TEST_F(LinkState, EventOfUnknownAttributesIsDelivered) {
    receive(blobmsg_builder().int32("LINK_OTHER", 1));
    EXPECT_EQ(subscriber.summary(), "2:0");
}

TEST_F(LinkState, PayloadHasNoData) {
    receive(blobmsg_builder().int32("LINK_ETH", 1));
    ASSERT_EQ(subscriber.events.size(), 1U);
    EXPECT_EQ(subscriber.events[0].len, 0U);
    EXPECT_FALSE(subscriber.events[0].has_data);
    EXPECT_EQ(subscriber.events[0].from, &node);
}

TEST_F(LinkState, AttributesOfAnotherTypeAreMissing) {
    node.ev.eth_state = 7;
    receive(blobmsg_builder()
                .text("LINK_ETH", "1")
                .add(7, "LINK_PLC", std::string_view("\0", 1))
                .add(4, "LINK_WIFI_2G", big_endian(1, 8)));
    EXPECT_EQ(node.ev.eth_state, 7U);
    EXPECT_EQ(node.ev.wifi_2g_state, 0U);
    EXPECT_EQ(subscriber.summary(), "2:0");
}

TEST_F(LinkState, StatesAreStoredBeforeTheDelivery) {
    eth_state_at_event = 0;
    subscriber.act = [](config *from, kolt_event_kind /*kind*/) { eth_state_at_event = from->ev.eth_state; };
    receive(blobmsg_builder().int32("LINK_ETH", 3));
    EXPECT_EQ(eth_state_at_event, 3U);
}

TEST_F(LinkState, StatesAreStoredAlsoWithoutSubscribers) {
    kolt_list_init(&node.ev.subscribers);
    receive(blobmsg_builder().int32("LINK_WIFI_5G_2", 9));
    EXPECT_EQ(node.ev.wifi_5g_2_state, 9U);
}

TEST_F(LinkState, BridgesAreNotRegisteredAnew) {
    add_bridge("br-lan", 0);
    platform.bridges["br-lan"] = {};
    receive(blobmsg_builder().int32("LINK_ETH", 1));
    EXPECT_THAT(platform.programming(), testing::IsEmpty());
}

TEST_F(LinkState, MalformedMessageIsToldAndDropped) {
    node.ev.wifi_2g_state = 7;
    node.ev.eth_state = 8;
    const at_log_level scope(2);
    // A text without its end behind two good attributes.
    receive(blobmsg_builder()
                .int32("LINK_WIFI_2G", 1)
                .int32("LINK_ETH", 1)
                .raw(big_endian(0x8300000E, 4) + big_endian(4, 2) + std::string("mode\0\0RE\0\0", 10)));
    EXPECT_THAT(logged(),
                testing::ElementsAre(log_line{7, "event_ubus_receive_link_state", "Debug: link_state parse "},
                                     log_line{7, "event_ubus_receive_link_state", "Debug: link_state parse failed"}));
    EXPECT_EQ(node.ev.wifi_2g_state, 7U);
    EXPECT_EQ(node.ev.eth_state, 8U);
    EXPECT_EQ(subscriber.summary(), "");
}

TEST_F(LinkState, MalformedMessageLeavesTheChangeDetectorAlone) {
    receive(blobmsg_builder().int32("LINK_ETH", 1).raw(big_endian(0x83000008, 4) + big_endian(200, 2)));
    receive(blobmsg_builder().int32("LINK_ETH", 1));
    EXPECT_EQ(subscriber.summary(), "2:1");
}

TEST_F(LinkState, MessageWithoutAnyAttributeIsToldAsAFailedParse) {
    const at_log_level scope(2);
    receive(blobmsg_builder());
    event_ubus_receive_link_state(&node.ev, nullptr);
    EXPECT_THAT(lines(), testing::ElementsAre("Debug: link_state parse ", "Debug: link_state parse failed",
                                              "Debug: link_state parse ", "Debug: link_state parse failed"));
    EXPECT_EQ(subscriber.summary(), "");
}

TEST_F(LinkState, PowerLineDownWhileItsFileSaysUpPausesOneSecondBeforeTheDelivery) {
    write_file(PLC_FILE, R"({"status": 1})");
    const int64_t start = monotonic_ms();
    receive(blobmsg_builder().int32("LINK_PLC", 0));
    ASSERT_EQ(subscriber.events.size(), 1U);
    EXPECT_GE(subscriber.events[0].at_ms - start, 1000);
    EXPECT_LT(subscriber.events[0].at_ms - start, 5000);
}

TEST_F(LinkState, SignalsDoNotShortenThePause) {
    write_file(PLC_FILE, R"({"status": 1})");
    const repeated_signal alarm(70, ignore_signal);
    const int64_t start = monotonic_ms();
    receive(blobmsg_builder().int32("LINK_PLC", 0));
    ASSERT_EQ(subscriber.events.size(), 1U);
    EXPECT_GE(subscriber.events[0].at_ms - start, 1000);
    EXPECT_LT(subscriber.events[0].at_ms - start, 5000);
}

TEST_F(LinkState, NothingElsePauses) {
    int64_t shortest_ms = INT64_MAX; // a busy machine takes its time now and then, a pause always
    for (int tries = 0; tries < 5 && shortest_ms >= 1000; tries++) {
        remove_file(PLC_FILE);
        subscriber.events.clear();
        const stopwatch watch;
        receive(blobmsg_builder().int32("LINK_PLC", 0)); // there is no file
        write_file(PLC_FILE, R"({"status": 0})");
        receive(blobmsg_builder().int32("LINK_PLC", 0));
        write_file(PLC_FILE, R"({"status": 1})");
        receive(blobmsg_builder().int32("LINK_PLC", 1));
        receive(blobmsg_builder().text("LINK_PLC", "0"));
        receive(blobmsg_builder().int32("LINK_WIFI_2G", 0).int32("LINK_WIFI_5G", 0).int32("LINK_ETH", 0));
        shortest_ms = std::min(shortest_ms, watch.ms());
        EXPECT_EQ(subscriber.events.size(), 5U);
    }
    EXPECT_LT(shortest_ms, 1000);
}
