// The bus going away and coming back while the daemon runs, and stopping while it starts.
#include "core/fatal.h"
#include "core/hub/bus_connection.h"
#include "core/hub/netlink_sockets.h"
#include "hub_test.h"
#include "netlink_bytes.h"
#include "scripted_bus.h"

#include <algorithm>
#include <csignal>
#include <functional>

namespace {

const log_line LOST{3, "event_ubus_connection_lost", "Error: ubus connection lost"};
const log_line CONNECTED{6, "event_ubus_reconnect", "Info: ubus connected"};

// No pass of the loop may take longer: the longest attempt, and what a busy machine adds. An attempt without an end
// would take all the time that there is.
constexpr int64_t LONGEST_PASS_MS = 5000;

const std::string EVENT_2 = debug_event(scripted_bus::OBJECT_ID, 2);
const std::string EVENT_3 = debug_event(scripted_bus::OBJECT_ID, 3);

class BusConnection : public hub_test {
protected:
    BusConnection() {
        subscribe(&subscriber);
    }
    ~BusConnection() override {
        event_ubus_free();
    }

    // Runs the loop in short passes until `done`, at most for some seconds; whether it was done.
    bool run_until(const std::function<bool()> &done) {
        const stopwatch watch;
        while (!done() && watch.ms() < 8000) {
            const stopwatch pass;
            uloop_run_timeout(20);
            longest_pass = std::max(longest_pass, pass.ms());
        }
        return done();
    }
    bool run_until_logged(const log_line &line) {
        return run_until([&line] { return std::ranges::find(logged(), line) != logged().end(); });
    }
    bool run_until_heard(const std::string &summary) {
        return run_until([this, &summary] { return subscriber.summary() == summary; });
    }

    recording_subscriber subscriber{'s'};
    int64_t longest_pass = 0;
};
using BusConnectionDeathTest = BusConnection;

} // namespace

TEST_F(BusConnection, ConnectionLostWhileIdleIsMadeAnewAndDeliversEventsAgain) {
    const scripted_bus bus([](scripted_bus &broker) {
        close(broker.registered());
        const int again = broker.registered();
        scripted_bus::say(again, EVENT_3);
        broker.serve(again);
    });
    event_ubus_init(&node.ev);
    EXPECT_TRUE(run_until_heard("4:3"));
    EXPECT_THAT(logged(), testing::ElementsAre(LOST, CONNECTED));
}

TEST_F(BusConnection, ConnectionLostRightBehindAnEventIsMadeAnewAfterTheEvent) {
    const scripted_bus bus([](scripted_bus &broker) {
        const int first = broker.registered();
        scripted_bus::say(first, EVENT_2);
        close(first);
        const int again = broker.registered();
        scripted_bus::say(again, EVENT_3);
        broker.serve(again);
    });
    subscriber.act = [](config * /*from*/, kolt_event_kind /*kind*/) { usleep(50000); };
    event_ubus_init(&node.ev);
    EXPECT_TRUE(run_until_heard("4:2 4:3"));
    EXPECT_THAT(logged(), testing::ElementsAre(LOST, CONNECTED));
}

TEST_F(BusConnection, ConnectionWhoseBrokerClosesOnlyItsSendingSideIsMadeAnew) {
    const scripted_bus bus([](scripted_bus &broker) {
        const int first = broker.registered();
        shutdown(first, SHUT_WR);
        const int again = broker.registered();
        scripted_bus::say(again, EVENT_3);
        broker.serve(again);
    });
    event_ubus_init(&node.ev);
    EXPECT_TRUE(run_until_heard("4:3"));
    EXPECT_THAT(logged(), testing::ElementsAre(LOST, CONNECTED));
}

TEST_F(BusConnection, ConnectionThatIsLostTwiceIsToldTwice) {
    const scripted_bus bus([](scripted_bus &broker) {
        close(broker.registered());
        close(broker.registered());
        const int again = broker.registered();
        scripted_bus::say(again, EVENT_3);
        broker.serve(again);
    });
    event_ubus_init(&node.ev);
    EXPECT_TRUE(run_until_heard("4:3"));
    EXPECT_THAT(logged(), testing::ElementsAre(LOST, CONNECTED, LOST, CONNECTED));
}

TEST_F(BusConnection, LostConnectionIsTriedForOnceASecond) {
    const scripted_bus bus([](scripted_bus &broker) {
        close(broker.registered());
        for (int refused = 0; refused < 2; refused++)
            close(broker.accepted());
        broker.serve(broker.registered());
    });
    event_ubus_init(&node.ev);
    ASSERT_TRUE(run_until_logged(LOST));
    const stopwatch watch;
    EXPECT_TRUE(run_until_logged(CONNECTED));
    EXPECT_GE(watch.ms(), 2900);
    EXPECT_LT(watch.ms(), 5000);
    EXPECT_THAT(logged(), testing::ElementsAre(LOST, CONNECTED)) << "attempts that fail are not told";
}

TEST_F(BusConnection, AttemptsAtABrokerThatHangsDoNotStallTheLoop) {
    const scripted_bus bus([](scripted_bus &broker) {
        close(broker.registered());
        scripted_bus::wait_for_end(broker.accepted()); // never greets
        scripted_bus::wait_for_end(broker.greeted());  // never answers the registration
        broker.serve(broker.registered());
    });
    event_ubus_init(&node.ev);
    EXPECT_TRUE(run_until_logged(CONNECTED));
    EXPECT_GE(longest_pass, 150) << "the broker did hang";
    EXPECT_LT(longest_pass, LONGEST_PASS_MS);
    EXPECT_THAT(logged(), testing::ElementsAre(LOST, CONNECTED));
}

TEST_F(BusConnection, OtherSourcesAreServedWhileTheConnectionIsLost) {
    const scripted_bus bus([](scripted_bus &broker) {
        close(broker.registered());
        scripted_bus::wait_for_end(broker.accepted());
    });
    event_ubus_init(&node.ev);
    event_bridge_init(&node.ev);
    ASSERT_TRUE(run_until_logged(LOST));
    netlink.deliver(KOLT_NETLINK_BRIDGE, netlink_message(6, "x"));
    EXPECT_TRUE(run_until_heard("3:6"));
}

TEST_F(BusConnection, SigtermEndsTheLoopWhileTheConnectionIsLost) {
    const scripted_bus bus([](scripted_bus &broker) { close(broker.registered()); });
    event_ubus_init(&node.ev);
    uloop_timeout end{};
    end.cb = [](uloop_timeout * /*timer*/) { raise(SIGTERM); };
    uloop_timeout_set(&end, 300);
    EXPECT_EQ(event_loop(&node.ev), SIGTERM);
    EXPECT_THAT(logged(), testing::ElementsAre(LOST)) << "it was lost, and that did not end the loop";
}

TEST_F(BusConnection, LostConnectionThatIsFreedIsNotTriedForAnyMore) {
    const scripted_bus bus([](scripted_bus &broker) {
        close(broker.registered());
        broker.serve(broker.registered());
    });
    event_ubus_init(&node.ev);
    ASSERT_TRUE(run_until_logged(LOST));
    event_ubus_free();
    const size_t open = open_descriptors();
    const stopwatch watch;
    while (watch.ms() < 1500)
        uloop_run_timeout(100);
    EXPECT_THAT(logged(), testing::ElementsAre(LOST));
    EXPECT_EQ(open_descriptors(), open);
}

struct stop_row {
    const char *name;
    int number;
};
class Stop : public BusConnection, public testing::WithParamInterface<stop_row> {};
using StopDeathTest = Stop;

TEST_P(StopDeathTest, SignalEndsTheProcessWhileTheBrokerDoesNotGreet) {
    const scripted_bus bus([](scripted_bus &broker) {
        const int client = broker.accepted();
        usleep(50000);
        scripted_bus::send_signal(client, GetParam().number);
        scripted_bus::wait_for_end(client);
    });
    const stopwatch watch;
    EXPECT_FATAL(event_init(&node.ev), "event_ubus_init", "Fatal: ubus_connect");
    EXPECT_LT(watch.ms(), 2000) << "not the library's own time-out";
}

TEST_P(StopDeathTest, SignalEndsTheProcessWhileTheRegistrationIsNotAnswered) {
    const scripted_bus bus([](scripted_bus &broker) {
        const int client = broker.greeted();
        usleep(50000);
        scripted_bus::send_signal(client, GetParam().number);
        scripted_bus::wait_for_end(client);
    });
    const stopwatch watch;
    EXPECT_EXIT(event_init(&node.ev), testing::ExitedWithCode(1),
                "event_ubus_init:[0-9]+: Fatal: ubus_register_event_handler: [^\n]+\n$");
    EXPECT_LT(watch.ms(), 2000) << "not the library's own time-out";
}

INSTANTIATE_TEST_SUITE_P(Signals, StopDeathTest,
                         testing::Values(stop_row{"Sigterm", SIGTERM}, stop_row{"Sigint", SIGINT}),
                         [](const auto &row) { return std::string(row.param.name); });
