// The hub: building it, delivering, running, tearing it down.
#include "core/hub/bus_connection.h"
#include "core/hub/hub.h"
#include "core/hub/ubus_events.h"

#include "core/fatal.h"
#include "hub_test.h"
#include "scripted_bus.h"

#include <csignal>
#include <fcntl.h>

namespace {

class Hub : public hub_test {};
using HubDeathTest = Hub;

uloop_timeout ending;

void end_soon(void (*how)(uloop_timeout *)) {
    ending = uloop_timeout{};
    ending.cb = how;
    uloop_timeout_set(&ending, 1);
}

bool is_open(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

// The hub that a dying process leaves, for what is reported at its exit.
config *left_behind;

void report_hub() {
    const kolt_event_ctx &ev = left_behind->ev;
    struct sigaction pipe_action {};
    sigaction(SIGPIPE, nullptr, &pipe_action);
    fprintf(stderr, "plc %u, subscribers %s, SIGPIPE %s, sockets %zu\n", ev.plc_state,
            ev.subscribers.next == &ev.subscribers && ev.subscribers.prev == &ev.subscribers ? "empty" : "broken",
            pipe_action.sa_handler == SIG_IGN ? "ignored" : "deadly", netlink.calls.size());
}

void report_calls() {
    for (const std::string &call : netlink.calls)
        fprintf(stderr, "%s; ", call.c_str());
    for (const std::string &call : platform.programming())
        fprintf(stderr, "%s; ", call.c_str());
    fprintf(stderr, "\n");
}

} // namespace

TEST_F(Hub, EventKindsArePinned) {
    EXPECT_EQ(KOLT_EVENT_START, 0U);
    EXPECT_EQ(KOLT_EVENT_CONFIGURE, 1U);
    EXPECT_EQ(KOLT_EVENT_LINK_STATE, 2U);
    EXPECT_EQ(KOLT_EVENT_BRIDGE, 3U);
    EXPECT_EQ(KOLT_EVENT_DEBUG, 4U);
    EXPECT_EQ(KOLT_EVENT_NEIGHBOUR, 5U);
}

TEST_F(Hub, RecordsHaveTheirMembersInOrder) {
    EXPECT_EQ(offsetof(kolt_event, type), 0U);
    EXPECT_EQ(offsetof(kolt_event, len), 4U);
    EXPECT_EQ(offsetof(kolt_event, data), 8U);
    const size_t offsets[] = {offsetof(kolt_event_ctx, subscribers),   offsetof(kolt_event_ctx, ubus_handler),
                              offsetof(kolt_event_ctx, bridge_fd),     offsetof(kolt_event_ctx, wifi_fd),
                              offsetof(kolt_event_ctx, neigh_fd),      offsetof(kolt_event_ctx, wifi_2g_state),
                              offsetof(kolt_event_ctx, wifi_5g_state), offsetof(kolt_event_ctx, wifi_5g_2_state),
                              offsetof(kolt_event_ctx, plc_state),     offsetof(kolt_event_ctx, eth_state)};
    for (size_t i = 1; i < std::size(offsets); i++)
        EXPECT_LT(offsets[i - 1], offsets[i]) << i;
}

TEST_F(Hub, NewestSubscriberIsCalledFirst) {
    std::string order;
    recording_subscriber loop_avoidance('l'), path_selection('p');
    loop_avoidance.order = path_selection.order = &order;
    subscribe(&loop_avoidance);
    subscribe(&path_selection);
    event_run_cb(&node.ev, KOLT_EVENT_START, nullptr);
    event_run_cb(&node.ev, KOLT_EVENT_DEBUG, nullptr);
    EXPECT_EQ(order, "plpl");
}

TEST_F(Hub, SubscriberGetsTheConfigTheKindAndThePayload) {
    recording_subscriber subscriber('s');
    subscribe(&subscriber);
    uint8_t bytes[] = {'a', 'b', 'c'};
    kolt_event event{.type = 0xFFFFFFFF, .len = 3, .data = bytes};
    event_run_cb(&node.ev, KOLT_EVENT_NEIGHBOUR, &event);
    ASSERT_EQ(subscriber.events.size(), 1U);
    EXPECT_EQ(subscriber.events[0].from, &node);
    EXPECT_EQ(subscriber.events[0].kind, 5U);
    EXPECT_EQ(subscriber.events[0].type, 0xFFFFFFFFU);
    EXPECT_EQ(subscriber.events[0].data, "abc");
}

TEST_F(Hub, NoKindIsFilteredOut) {
    recording_subscriber first('a'), second('b');
    subscribe(&first);
    subscribe(&second);
    kolt_event event{.type = 9};
    for (uint32_t kind = 0; kind <= 6; kind++)
        event_run_cb(&node.ev, static_cast<kolt_event_kind>(kind), &event);
    EXPECT_EQ(first.summary(), "0:9 1:9 2:9 3:9 4:9 5:9 6:9");
    EXPECT_EQ(second.summary(), first.summary());
}

TEST_F(Hub, NullPayloadIsHandedOnAsNull) {
    recording_subscriber subscriber('s');
    subscribe(&subscriber);
    event_run_cb(&node.ev, KOLT_EVENT_START, nullptr);
    ASSERT_EQ(subscriber.events.size(), 1U);
    EXPECT_FALSE(subscriber.events[0].has_payload);
}

TEST_F(Hub, EventsReachNobodyWithoutSubscribers) {
    event_run_cb(&node.ev, KOLT_EVENT_START, nullptr);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Hub, ConfigIsTheRecordThatContainsTheHub) {
    EXPECT_EQ(event_config(&node.ev), &node);
}

TEST_F(Hub, LoopDeliversTheStartEventOnceAndBeforeItRuns) {
    recording_subscriber subscriber('s');
    subscriber.act = [](config * /*from*/, kolt_event_kind /*kind*/) {
        end_soon([](uloop_timeout *) { uloop_end(); });
    };
    subscribe(&subscriber);
    uloop_timeout guard{};
    guard.cb = [](uloop_timeout *) { uloop_end(); };
    uloop_timeout_set(&guard, 10000);
    EXPECT_EQ(event_loop(&node.ev), 0);
    EXPECT_EQ(uloop_timeout_cancel(&guard), 0); // it was not what ended the loop
    EXPECT_EQ(subscriber.summary(), "0:0");
    EXPECT_FALSE(subscriber.events[0].has_payload);
    EXPECT_FALSE(ending.pending); // it ran
}

TEST_F(Hub, LoopEndsOnSignalsWithTheirNumber) {
    end_soon([](uloop_timeout *) { raise(SIGTERM); });
    EXPECT_EQ(event_loop(&node.ev), SIGTERM);
    event_return_stop_signals();
    end_soon([](uloop_timeout *) { raise(SIGINT); });
    EXPECT_EQ(event_loop(&node.ev), SIGINT);
}

TEST_F(HubDeathTest, MissingBusIsFatal) {
    EXPECT_FATAL(event_init(&node.ev), "event_ubus_init", "Fatal: ubus_connect");
}

TEST_F(HubDeathTest, RecordListAndSigpipeAreSetUpBeforeTheBusAndSocketsAfterIt) {
    const auto start = [this] {
        node.ev.plc_state = 9;
        node.ev.subscribers = kolt_list{};
        left_behind = &node;
        atexit(report_hub);
        event_init(&node.ev);
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(1),
                "Fatal: ubus_connect\nplc 0, subscribers empty, SIGPIPE ignored, sockets 0\n$");
}

TEST_F(HubDeathTest, RefusedRegistrationIsFatalWithTheBusText) {
    const scripted_bus bus(6);
    EXPECT_FATAL(event_init(&node.ev), "event_ubus_init", "Fatal: ubus_register_event_handler: Permission denied");
}

TEST_F(HubDeathTest, BridgeEventsAreRegisteredBeforeTheLinkSocketIsOpened) {
    const scripted_bus bus(0);
    add_bridge("br-lan", CONFIG_LOOP_AVOIDANCE);
    platform.bridges["br-lan"] = {};
    netlink.socket_errors[0] = EMFILE;
    const auto start = [this] {
        atexit(report_calls);
        event_init(&node.ev);
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(1),
                "event_wifi_init:[0-9]+: Fatal\\(Too many open files\\): socket\n" +
                    literally("socket(16, 3, 39); bind(39, pid own, groups 0); socket(16, 3, 0); bridgeSetEventInfo(") +
                    "[^;]*; \n$");
}

TEST_F(Hub, InitOpensTheSocketsInOrderAndLogsNothing) {
    const scripted_bus bus(0);
    event_init(&node.ev);
    EXPECT_THAT(netlink.calls,
                testing::ElementsAre("socket(16, 3, 39)", "bind(39, pid own, groups 0)", "socket(16, 3, 0)",
                                     "bind(0, pid own, groups 1)", "socket(16, 3, 53)", "bind(53, pid own, groups 0)",
                                     "socket(16, 2, 52)", "bind(52, pid own, groups 0)"));
    EXPECT_TRUE(node.ev.bridge_fd.registered);
    EXPECT_TRUE(node.ev.wifi_fd.registered);
    EXPECT_TRUE(node.ev.neigh_fd.registered);
    EXPECT_EQ(node.ev.subscribers.next, &node.ev.subscribers);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
    event_ubus_free();
}

TEST_F(Hub, InitSubscribesToTheDaemonsEvents) {
    const scripted_bus bus(0);
    event_init(&node.ev);
    EXPECT_EQ(node.ev.ubus_handler.cb, event_ubus_receive_cb);
    const std::string heard = bus.heard();
    EXPECT_THAT(heard, testing::HasSubstr(std::string("register\0", 9)));
    EXPECT_THAT(heard, testing::HasSubstr(std::string("\0\7pattern\0\0\0kolt.*\0", 19)));
    event_ubus_free();
}

TEST_F(Hub, BusEventReachesTheSubscribersThroughTheLoop) {
    const scripted_bus bus(0, debug_event(scripted_bus::OBJECT_ID, 2));
    recording_subscriber subscriber('s');
    event_init(&node.ev);
    subscribe(&subscriber);
    for (int pass = 0; pass < 50 && subscriber.events.empty(); pass++)
        uloop_run_timeout(100);
    EXPECT_EQ(subscriber.summary(), "4:2");
    event_ubus_free();
}

TEST_F(Hub, FreeClosesTheBusTheBridgeAndTheNeighbourSocketButNotTheLinkSocket) {
    scripted_bus bus(0);
    event_init(&node.ev);
    const int bridge_fd = node.ev.bridge_fd.fd, wifi_fd = node.ev.wifi_fd.fd, neigh_fd = node.ev.neigh_fd.fd;
    event_free(&node.ev);
    EXPECT_FALSE(is_open(bridge_fd));
    EXPECT_FALSE(is_open(neigh_fd));
    EXPECT_TRUE(is_open(wifi_fd));
    EXPECT_FALSE(node.ev.bridge_fd.registered);
    EXPECT_FALSE(node.ev.neigh_fd.registered);
    EXPECT_TRUE(bus.client_left());
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
    node.ev.bridge_fd.fd = node.ev.neigh_fd.fd = -1;
}

TEST_F(Hub, FreeLogsEachCloseThatFailsAndGoesOn) {
    scripted_bus bus(0);
    event_init(&node.ev);
    close(node.ev.bridge_fd.fd);
    close(node.ev.neigh_fd.fd);
    event_free(&node.ev);
    EXPECT_THAT(logged(), testing::ElementsAre(log_line{3, "event_free", "Error: close"},
                                               log_line{3, "event_free", "Error: close"}));
    EXPECT_TRUE(bus.client_left());
    node.ev.bridge_fd.fd = node.ev.neigh_fd.fd = -1;
}

TEST_F(Hub, FreeOfNegativeDescriptorsIsSilent) {
    const scripted_bus bus(0);
    event_init(&node.ev);
    for (uloop_fd *watcher : {&node.ev.bridge_fd, &node.ev.neigh_fd}) {
        uloop_fd_delete(watcher);
        close(watcher->fd);
        watcher->fd = -1;
    }
    event_free(&node.ev);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}
