// Connecting to a broker, its greeting, and what it may send at any time.
#include "support.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class UbusConnection : public LoopTest {
protected:
    ubus_context *connect() const {
        return ubus_connect(dir.path("sock").c_str());
    }
    // Connects to a broker with that script behind its greeting, and attaches to the loop.
    ubus_context *attach(ScriptedBroker::Script script) {
        broker = std::make_unique<ScriptedBroker>(dir.path("sock"), [script = std::move(script)](int fd) {
            greet(fd);
            script(fd);
        });
        ubus_context *ctx = connect();
        EXPECT_TRUE(ctx);
        EXPECT_TRUE(!ctx || ubus_add_uloop(ctx) == 0);
        return ctx;
    }
    TempDir dir;
    std::unique_ptr<ScriptedBroker> broker;
};

TEST_F(UbusConnection, TakesItsIdFromTheGreeting) {
    ScriptedBroker scripted(dir.path("sock"), [](int fd) { greet(fd, 0x11223344); });
    ubus_context *ctx = connect();
    ASSERT_TRUE(ctx);
    EXPECT_EQ(ctx->local_id, 0x11223344u);
    EXPECT_TRUE(fcntl(ctx->sock.fd, F_GETFD) & FD_CLOEXEC);
    EXPECT_FALSE(ctx->sock.registered);
    ubus_free(ctx);
}

TEST_F(UbusConnection, CreatesTheLoop) {
    uloop_done();
    ScriptedBroker scripted(dir.path("sock"), [](int fd) { greet(fd); });
    ubus_context *ctx = connect();
    ASSERT_TRUE(ctx);
    EXPECT_EQ(ubus_add_uloop(ctx), 0);
    ubus_free(ctx);
}

TEST_F(UbusConnection, IsNullWithoutABroker) {
    EXPECT_EQ(connect(), nullptr);
    EXPECT_EQ(errno, ENOENT);
    dir.write("sock", "no socket");
    EXPECT_EQ(connect(), nullptr);
    EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_F(UbusConnection, IsNullForAPathThatASocketCannotHave) {
    EXPECT_EQ(ubus_connect(std::string(108, 'p').c_str()), nullptr);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(UbusConnection, FreeOfNullIsAllowed) {
    ubus_free(nullptr);
}

TEST_F(UbusConnection, FreeClosesTheSocket) {
    ScriptedBroker scripted(dir.path("sock"), [](int fd) {
        greet(fd);
        EXPECT_TRUE(closes(fd));
    });
    ubus_context *ctx = connect();
    ASSERT_TRUE(ctx);
    ubus_free(ctx);
}

TEST_F(UbusConnection, FreeAfterTheLoopIsDoneIsAllowed) {
    ScriptedBroker scripted(dir.path("sock"), [](int fd) { greet(fd); });
    ubus_context *ctx = connect();
    ASSERT_TRUE(ctx);
    ASSERT_EQ(ubus_add_uloop(ctx), 0);
    uloop_done();
    ubus_free(ctx);
}

struct GreetingRow {
    const char *name;
    Bytes bytes;
    friend void PrintTo(const GreetingRow &row, std::ostream *out) {
        *out << row.name;
    }
};

class UbusGreeting : public UbusConnection, public ::testing::WithParamInterface<GreetingRow> {};

TEST_P(UbusGreeting, IsNoGreeting) {
    ScriptedBroker scripted(dir.path("sock"), [](int fd) { send_bytes(fd, GetParam().bytes); });
    EXPECT_EQ(connect(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(, UbusGreeting,
                         ::testing::Values(GreetingRow{"Nothing", ""},
                                           GreetingRow{"Half", wire_message(UBUS_MSG_HELLO, 0, 5).substr(0, 7)},
                                           GreetingRow{"OtherType", wire_message(UBUS_MSG_STATUS, 0, 5)},
                                           GreetingRow{"NoId", wire_message(UBUS_MSG_HELLO, 0, 0)},
                                           GreetingRow{"OtherProtocol", "220 ready to serve\r\n"},
                                           GreetingRow{"TooLong", from_hex("000000000000000500ffffff")}),
                         [](const auto &param) { return param.param.name; });

TEST_F(UbusConnection, IdleClientOutlivesTheBroker) {
    ubus_context *ctx = attach([](int) {});
    ASSERT_TRUE(ctx);
    broker->finish();
    static bool ended;
    ended = false;
    uloop_timeout end = {};
    end.cb = [](uloop_timeout *) {
        ended = true;
        uloop_end();
    };
    uloop_timeout_set(&end, 50);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_TRUE(ended);
    EXPECT_FALSE(ctx->sock.registered);
    ubus_free(ctx);
}

TEST_F(UbusConnection, LoopEndsWhenTheBrokerClosesOnlyItsSendingSide) {
    ubus_context *ctx = attach([](int fd) {
        EXPECT_EQ(shutdown(fd, SHUT_WR), 0);
        EXPECT_TRUE(closes(fd));
    });
    ASSERT_TRUE(ctx);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_TRUE(ctx->sock.registered);
    ubus_free(ctx);
}

TEST_F(UbusConnection, ManyMessagesOfABrokerThatHasGoneAreAllRead) {
    static int losses;
    losses = 0;
    ubus_context *ctx = attach([](int fd) {
        Bytes messages;
        for (uint16_t seq = 0; seq < 100; seq++)
            messages += wire_message(UBUS_MSG_STATUS, seq, 0);
        EXPECT_TRUE(send_bytes(fd, messages));
    });
    ASSERT_TRUE(ctx);
    broker->finish();
    ctx->connection_lost = [](ubus_context *) {
        losses++;
        uloop_end();
    };
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(losses, 1);
    ubus_free(ctx);
}

TEST_F(UbusConnection, LoopEndsWhenTheBrokerBreaksTheProtocol) {
    ubus_context *ctx = attach([](int fd) {
        EXPECT_TRUE(send_bytes(fd, from_hex("ff00000000000000"
                                            "00000004")));
        EXPECT_TRUE(closes(fd));
    });
    ASSERT_TRUE(ctx);
    EXPECT_EQ(uloop_run(), 0);
    broker->finish();
    ubus_free(ctx);
}

TEST_F(UbusConnection, MessageLongerThanTheLimitIsRefused) {
    ubus_context *ctx = attach([](int fd) {
        EXPECT_TRUE(send_bytes(fd, from_hex("0005000100000000"
                                            "000ffff9")));
        EXPECT_TRUE(closes(fd));
    });
    ASSERT_TRUE(ctx);
    EXPECT_EQ(uloop_run(), 0);
    broker->finish();
    ubus_free(ctx);
}

TEST_F(UbusConnection, OwnerMayDecideWhatALostConnectionMeans) {
    static int losses;
    losses = 0;
    ubus_context *ctx = attach([](int) {});
    ASSERT_TRUE(ctx);
    ctx->connection_lost = [](ubus_context *lost) {
        losses++;
        uloop_fd_delete(&lost->sock);
        uloop_end();
    };
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(losses, 1);
    ubus_free(ctx);
}

TEST_F(UbusConnection, HalfAMessageDoesNotHoldTheLoop) {
    ubus_context *ctx = attach([](int fd) {
        EXPECT_TRUE(send_bytes(fd, event_message(1, 5, "kolt.debug", {}).substr(0, 20)));
        EXPECT_TRUE(closes(fd));
    });
    ASSERT_TRUE(ctx);
    uloop_timeout end = {};
    end.cb = [](uloop_timeout *) { uloop_end(); };
    uloop_timeout_set(&end, 50);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_FALSE(guard_fired);
    ubus_free(ctx);
}

TEST_F(UbusConnection, SignalInterruptsTheWaitForTheGreeting) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    struct sigaction before = {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    const pid_t self = getpid();
    const auto start = std::chrono::steady_clock::now();
    ScriptedBroker scripted(dir.path("sock"), [self](int fd) {
        // Again and again, because the first may come before the wait has begun.
        EXPECT_TRUE(eventually([&] {
            kill(self, SIGUSR1);
            pollfd entry = {fd, POLLIN, 0};
            return poll(&entry, 1, 10) == 1;
        }));
    });
    EXPECT_EQ(connect(), nullptr);
    EXPECT_EQ(errno, EINTR);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
    scripted.finish();
    ASSERT_EQ(sigaction(SIGUSR1, &before, nullptr), 0);
}

TEST_F(UbusConnection, WaitForTheGreetingGoesOnAfterASignalThatRestartsIt) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    struct sigaction before = {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    const pid_t self = getpid();
    ScriptedBroker scripted(dir.path("sock"), [self](int fd) {
        for (int i = 0; i < 20; i++) {
            kill(self, SIGUSR1);
            pollfd entry = {fd, POLLIN, 0};
            ASSERT_EQ(poll(&entry, 1, 10), 0) << "the client has gone";
        }
        greet(fd);
        EXPECT_TRUE(closes(fd));
    });
    ubus_context *ctx = connect();
    ASSERT_NE(ctx, nullptr);
    ubus_free(ctx);
    scripted.finish();
    ASSERT_EQ(sigaction(SIGUSR1, &before, nullptr), 0);
}

TEST_F(UbusConnection, MessagesThatAskForNothingAreIgnored) {
    ubus_context *ctx = attach([](int fd) {
        for (const ubus_msg_type type :
             {UBUS_MSG_HELLO, UBUS_MSG_STATUS, UBUS_MSG_DATA, UBUS_MSG_PING, UBUS_MSG_NOTIFY})
            EXPECT_TRUE(send_bytes(fd, wire_message(type, 9, 0, number_attr(UBUS_ATTR_STATUS, 1))));
        EXPECT_TRUE(send_bytes(fd, wire_message(200, 9, 0)));
        EXPECT_EQ(shutdown(fd, SHUT_WR), 0);
        EXPECT_TRUE(closes(fd));
    });
    ASSERT_TRUE(ctx);
    EXPECT_EQ(uloop_run(), 0);
    ubus_free(ctx);
}

} // namespace
