// The three watched sockets: opening them, draining them.
#include "core/fatal.h"
#include "hub_test.h"
#include "netlink_bytes.h"
#include "support/sandbox.h"

#include "core/hub/netlink_sockets.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/socket.h>

namespace {

// One of the three sockets.
struct socket_kind {
    const char *name;
    const char *operation;
    int protocol;
    int groups;
    void (*init)(kolt_event_ctx *ev);
    uloop_fd kolt_event_ctx::*watcher;
    uint32_t kind; // of its events
};

const socket_kind BRIDGE{"Bridge",         "event_bridge_init", 39, 0, event_bridge_init, &kolt_event_ctx::bridge_fd,
                         KOLT_EVENT_BRIDGE};
const socket_kind WIFI{"Wifi", "event_wifi_init", 0, 1, event_wifi_init, &kolt_event_ctx::wifi_fd, 0};
const socket_kind NEIGHBOUR{
    "Neighbour", "event_neighbor_init", 53, 0, event_neighbor_init, &kolt_event_ctx::neigh_fd, KOLT_EVENT_NEIGHBOUR};

std::string socket_name(const testing::TestParamInfo<socket_kind> &row) {
    return row.param.name;
}

class WatchedSocket : public hub_test, public testing::WithParamInterface<socket_kind> {
protected:
    void init() {
        GetParam().init(&node.ev);
    }
    uloop_fd &watcher() {
        return node.ev.*GetParam().watcher;
    }
};
using WatchedSocketDeathTest = WatchedSocket;

class EventSocket : public WatchedSocket {
protected:
    EventSocket() {
        subscribe(&subscriber);
        init();
    }
    static void deliver(const std::string &datagram) {
        netlink.deliver(GetParam().protocol, datagram);
    }
    // The events as "type/len", one word each.
    [[nodiscard]] std::string events() const {
        std::string words;
        for (const received_event &event : subscriber.events)
            words += (words.empty() ? "" : " ") + std::to_string(event.type) + "/" + std::to_string(event.len);
        return words;
    }
    recording_subscriber subscriber{'s'};
};

class BridgeRegistration : public hub_test {};
class LinkSocketDeathTest : public hub_test {};

size_t descriptors_before;

void report_descriptors() {
    fprintf(stderr, "left open: %zu\n", open_descriptors() - descriptors_before);
}

// A datagram of `size` bytes whose header claims `length` and type 7.
std::string datagram(uint32_t length, size_t size) {
    std::string bytes = netlink_header(length, 7);
    bytes.resize(size, 'x');
    return bytes;
}

} // namespace

TEST_P(WatchedSocket, SocketIsOpenedBoundAndWatchedForReadingAlone) {
    init();
    const std::string protocol = std::to_string(GetParam().protocol);
    ASSERT_GE(netlink.calls.size(), 2U);
    EXPECT_EQ(netlink.calls[0], "socket(16, 3, " + protocol + ")");
    EXPECT_EQ(netlink.calls[1], "bind(" + protocol + ", pid own, groups " + std::to_string(GetParam().groups) + ")");
    EXPECT_TRUE(watcher().registered);
    EXPECT_EQ(watcher().flags & (ULOOP_READ | ULOOP_WRITE | ULOOP_EDGE_TRIGGER | ULOOP_BLOCKING), ULOOP_READ);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_P(WatchedSocket, SocketIsClosedOnExecAndDoesNotBlock) {
    init();
    EXPECT_NE(fcntl(watcher().fd, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(fcntl(watcher().fd, F_GETFL) & O_NONBLOCK, 0);
}

TEST_P(WatchedSocket, OverrunIsNotToldAsAnError) {
    init();
    const std::string option = std::to_string(SOL_NETLINK) + "/" + std::to_string(NETLINK_NO_ENOBUFS) + " 1";
    ASSERT_FALSE(netlink.options.empty());
    EXPECT_EQ(netlink.options[0], option);
}

TEST_P(WatchedSocket, RefusalToKeepQuietAboutAnOverrunIsSurvived) {
    netlink.setsockopt_error = ENOPROTOOPT;
    netlink.setsockopt_option = NETLINK_NO_ENOBUFS;
    init();
    EXPECT_TRUE(watcher().registered);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_P(WatchedSocket, WatcherIsZeroedFirst) {
    watcher().registered = true; // the loop would take it for a descriptor that it watches
    watcher().eof = true;
    watcher().error = true;
    watcher().fd = 12345;
    init();
    EXPECT_FALSE(watcher().eof);
    EXPECT_FALSE(watcher().error);
    EXPECT_NE(watcher().fd, 12345);
}

TEST_P(WatchedSocketDeathTest, SocketFailureIsFatal) {
    netlink.socket_errors[GetParam().protocol] = EPROTONOSUPPORT;
    EXPECT_FATAL(init(), GetParam().operation, "Fatal(Protocol not supported): socket");
}

TEST_P(WatchedSocketDeathTest, BindFailureIsFatal) {
    netlink.bind_errors[GetParam().protocol] = EADDRINUSE;
    EXPECT_FATAL(init(), GetParam().operation, "Fatal(Address already in use): bind");
}

TEST_P(WatchedSocketDeathTest, WatcherFailureIsFatal) {
    netlink.unpollable = true;
    EXPECT_FATAL(init(), GetParam().operation, "Fatal(Operation not permitted): uloop_fd_add");
}

// Of the three, the link socket alone is closed before its failure is logged.
TEST_F(LinkSocketDeathTest, LinkSocketIsClosedWhenItCannotBeBoundOrWatched) {
    const auto start = [this] {
        descriptors_before = open_descriptors();
        atexit(report_descriptors);
        event_wifi_init(&node.ev);
    };
    netlink.bind_errors[0] = EADDRINUSE;
    EXPECT_EXIT(start(), testing::ExitedWithCode(1), "Fatal\\(Address already in use\\): bind\nleft open: 0\n$");
    netlink.bind_errors.clear();
    netlink.unpollable = true;
    EXPECT_EXIT(start(), testing::ExitedWithCode(1),
                "Fatal\\(Operation not permitted\\): uloop_fd_add\nleft open: 0\n$");
}

INSTANTIATE_TEST_SUITE_P(Sockets, WatchedSocket, testing::Values(BRIDGE, WIFI, NEIGHBOUR), socket_name);
INSTANTIATE_TEST_SUITE_P(Sockets, WatchedSocketDeathTest, testing::Values(BRIDGE, WIFI, NEIGHBOUR), socket_name);

TEST_F(BridgeRegistration, RegistrationReachesEveryActiveBridgeInOrder) {
    for (const char *name : {"br-lan", "br-off", "br-guest"})
        add_bridge(name, 0);
    platform.bridges["br-lan"] = {};
    platform.bridges["br-guest"] = {};
    event_bridge_set_event(&node);
    EXPECT_THAT(platform.programming(), testing::ElementsAre("bridgeSetEventInfo(br-lan, " + own_pid() + ", 3, 38)",
                                                             "bridgeSetEventInfo(br-guest, " + own_pid() + ", 3, 38)"));
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(BridgeRegistration, RefusalIsLoggedAndTheWalkGoesOn) {
    for (const char *name : {"br-lan", "br-guest"}) {
        add_bridge(name, 0);
        platform.bridges[name] = {};
    }
    platform.fail("bridgeSetEventInfo", -1, 1);
    event_bridge_set_event(&node);
    EXPECT_EQ(platform.programming().size(), 2U);
    EXPECT_THAT(logged(), testing::ElementsAre(log_line{3, "event_bridge_set_event", "Error: bridgeSetEventInfo"}));
}

TEST_F(BridgeRegistration, OnlyANegativeResultIsARefusal) {
    add_bridge("br-lan", 0);
    platform.bridges["br-lan"] = {};
    platform.fail("bridgeSetEventInfo", 1);
    event_bridge_set_event(&node);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(BridgeRegistration, BridgesBehindTheCountAreNotLookedAt) {
    add_bridge("br-lan", 0);
    platform.bridges["br-lan"] = {};
    node.bridge_num = 0;
    event_bridge_set_event(&node);
    EXPECT_THAT(platform.calls, testing::IsEmpty());
}

TEST_F(BridgeRegistration, NameOf16CharactersIsTerminated) {
    add_bridge("abcdefghijklmnop", 0x71717171);
    platform.bridges["abcdefghijklmno"] = {}; // as much of it as the platform keeps
    event_bridge_set_event(&node);
    EXPECT_THAT(platform.programming(),
                testing::ElementsAre("bridgeSetEventInfo(abcdefghijklmnop, " + own_pid() + ", 3, 38)"));
}

TEST_F(BridgeRegistration, OnlyOpeningTheBridgeSocketRegistersTheBridges) {
    add_bridge("br-lan", 0);
    platform.bridges["br-lan"] = {};
    event_wifi_init(&node.ev);
    event_neighbor_init(&node.ev);
    EXPECT_THAT(platform.programming(), testing::IsEmpty());
    event_bridge_init(&node.ev);
    EXPECT_EQ(platform.programming().size(), 1U);
}

TEST_F(BridgeRegistration, RefusalDoesNotEndTheOpening) {
    add_bridge("br-lan", 0);
    platform.bridges["br-lan"] = {};
    platform.fail("bridgeSetEventInfo", -1);
    event_bridge_init(&node.ev);
    EXPECT_TRUE(node.ev.bridge_fd.registered);
}

TEST_F(BridgeRegistration, NeighbourRegistrationIsA20ByteRequest) {
    event_neighbor_init(&node.ev);
    ASSERT_EQ(netlink.requests.size(), 1U);
    const auto pid = static_cast<uint32_t>(getpid());
    EXPECT_EQ(netlink.requests[0].bytes, netlink_header(20, 13, 0, 0, pid) + host_order(pid));
    EXPECT_THAT(netlink.calls, testing::ElementsAre("socket(16, 3, 53)", "bind(53, pid own, groups 0)",
                                                    "socket(16, 2, 52)", "bind(52, pid own, groups 0)"));
}

TEST_F(BridgeRegistration, FailedNeighbourRegistrationIsIgnored) {
    netlink.socket_errors[52] = EPROTONOSUPPORT;
    event_neighbor_init(&node.ev);
    EXPECT_TRUE(node.ev.neigh_fd.registered);
    EXPECT_THAT(logged(),
                testing::ElementsAre(log_line{3, "kolt_netlink_msg", "Error: netlink socket create failed\n"}));
}

TEST_F(BridgeRegistration, UnansweredNeighbourRegistrationIsIgnored) {
    netlink.silent = true;
    event_neighbor_init(&node.ev);
    EXPECT_TRUE(node.ev.neigh_fd.registered);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_P(EventSocket, MessageBecomesAnEventOfItsKind) {
    deliver(netlink_message(0x1234, "payload"));
    serve_waiting();
    ASSERT_EQ(subscriber.events.size(), 1U);
    EXPECT_EQ(subscriber.events[0].kind, GetParam().kind);
    EXPECT_EQ(subscriber.events[0].type, 0x1234U);
    EXPECT_EQ(subscriber.events[0].len, 7U);
    EXPECT_EQ(subscriber.events[0].data, "payload");
    EXPECT_EQ(subscriber.events[0].from, &node);
}

// Each hostile datagram is followed by a good one, which must be the only event.
TEST_P(EventSocket, DatagramsThatHoldNoWholeMessageAreSkippedSilently) {
    const std::string hostile[] = {
        datagram(16, 15),         // shorter than a header
        datagram(1, 1),           //
        datagram(8, 40),          // header length 8
        datagram(15, 40),         //
        datagram(0, 40),          //
        datagram(17, 16),         // header length past the datagram
        datagram(41, 40),         //
        datagram(0xFFFFFFFF, 40), //
        datagram(0x80000000, 40), //
        datagram(16385, 16385),   // larger than the buffer, and its message too
        datagram(20000, 20000),   //
        datagram(17000, 16384),   //
    };
    for (const std::string &bytes : hostile) {
        subscriber.events.clear();
        deliver(bytes);
        deliver(netlink_message(9, "good"));
        serve_waiting();
        EXPECT_EQ(events(), "9/4") << bytes.size();
    }
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_P(EventSocket, LengthIsThatOfTheHeaderLess16) {
    deliver(datagram(16, 16)); // exactly a header
    deliver(datagram(16, 40)); // the rest is not the message's
    deliver(datagram(19, 19)); // unpadded
    deliver(datagram(39, 40));
    deliver(datagram(40, 40));
    serve_waiting();
    EXPECT_EQ(events(), "7/0 7/0 7/3 7/23 7/24");
}

TEST_P(EventSocket, DatagramsOfTheBufferSizeAndMoreAreTakenUpToIt) {
    deliver(datagram(16384, 16384));
    deliver(datagram(16384, 20000));
    deliver(datagram(100, 20000));
    serve_waiting();
    EXPECT_EQ(events(), "7/16368 7/16368 7/84");
    EXPECT_EQ(subscriber.events[0].data, std::string(16368, 'x'));
}

TEST_P(EventSocket, OnlyTheFirstMessageOfADatagramIsLookedAt) {
    deliver(netlink_message(1, "one.") + netlink_message(2, "two.") + netlink_message(3, "three"));
    deliver(netlink_message(4, "four"));
    serve_waiting();
    EXPECT_EQ(events(), "1/4 4/4");
}

TEST_P(EventSocket, AllWaitingDatagramsAreTakenInOnePass) {
    deliver(netlink_message(1, ""));
    deliver(datagram(8, 40));
    deliver(netlink_message(2, ""));
    deliver(netlink_message(3, ""));
    uloop_run_timeout(0);
    EXPECT_EQ(events(), "1/0 2/0 3/0");
}

TEST_P(EventSocket, EmptyDatagramDoesNotSilenceTheSocket) {
    deliver("");
    deliver(netlink_message(1, ""));
    serve_waiting();
    deliver(netlink_message(2, ""));
    serve_waiting();
    EXPECT_EQ(events(), "1/0 2/0");
}

TEST_P(EventSocket, EachEventReachesAllBeforeTheNextIsRead) {
    std::string order;
    recording_subscriber newer('n');
    newer.order = subscriber.order = &order;
    subscribe(&newer);
    deliver(netlink_message(1, ""));
    deliver(netlink_message(2, ""));
    serve_waiting();
    EXPECT_EQ(order, "nsns");
}

std::string behind_the_payload;

// A module that reads past the length finds zeroes, not the message before.
TEST_P(EventSocket, BufferIsZeroedBeforeEachReceive) {
    behind_the_payload.clear();
    kolt_module peeking;
    peeking.event_cb = [](config * /*from*/, kolt_list * /*sub*/, kolt_event_kind /*kind*/, kolt_event *event) {
        behind_the_payload.assign(reinterpret_cast<const char *>(event->data) + event->len, 64);
    };
    kolt_list_add(&node.ev.subscribers, &peeking.sub);
    deliver(datagram(1000, 1000));
    deliver(netlink_message(1, "four"));
    serve_waiting();
    EXPECT_EQ(behind_the_payload, std::string(64, '\0'));
}

INSTANTIATE_TEST_SUITE_P(Sockets, EventSocket, testing::Values(BRIDGE, NEIGHBOUR), socket_name);
