// A connection that is lost: who is told, how often, and the next connection in the same process.
#include "support.h"

#include <csignal>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr uint32_t LOST_OBJECT_ID = 0x00c0ffee;

int losses;
bool was_registered;
int events;
int handling_pipe[2]; // written to when the handling of an event begins
int gone_pipe[2];     // written to when the broker has closed its end

bool read_mark(int fd) {
    char mark;
    return read(fd, &mark, 1) == 1;
}

bool write_mark(int fd) {
    return write(fd, "x", 1) == 1;
}

void count_loss(ubus_context *ctx) {
    losses++;
    was_registered = ctx->sock.registered;
}

void count_event(ubus_context *, ubus_event_handler *, const char *, blob_attr *) {
    events++;
}

// Handles an event for as long as it takes the broker to go.
void outlast_broker(ubus_context *, ubus_event_handler *, const char *, blob_attr *) {
    EXPECT_TRUE(write_mark(handling_pipe[1]));
    EXPECT_TRUE(read_mark(gone_pipe[0]));
    events++;
}

class UbusLoss : public LoopTest {
protected:
    void SetUp() override {
        LoopTest::SetUp();
        losses = events = 0;
        was_registered = false;
        ASSERT_EQ(pipe(handling_pipe), 0);
        ASSERT_EQ(pipe(gone_pipe), 0);
    }
    void TearDown() override {
        ubus_free(ctx);
        broker.reset();
        for (const int fd : {handling_pipe[0], handling_pipe[1], gone_pipe[0], gone_pipe[1]})
            close(fd);
        LoopTest::TearDown();
    }
    // Connects to a broker that grants a registration and goes on with the script.
    void connect(ScriptedBroker::Script script, ubus_event_handler_t callback) {
        broker = std::make_unique<ScriptedBroker>(dir.path("sock"), [script = std::move(script)](int fd) {
            greet(fd);
            reply_object(fd, LOST_OBJECT_ID);
            reply_status(fd, 0);
            script(fd);
        });
        ctx = ubus_connect(dir.path("sock").c_str());
        ASSERT_TRUE(ctx);
        handler.cb = callback;
        ASSERT_EQ(ubus_register_event_handler(ctx, &handler, "kolt.*"), 0);
        ASSERT_EQ(ubus_add_uloop(ctx), 0);
    }
    // Runs the loop until the loss and for some turns more, in which it must not be told again.
    static void run_past_the_loss() {
        EXPECT_TRUE(eventually([] {
            (void)uloop_run_timeout(10);
            return losses > 0;
        }));
        for (int i = 0; i < 5; i++)
            (void)uloop_run_timeout(5);
        EXPECT_EQ(losses, 1);
    }
    TempDir dir;
    std::unique_ptr<ScriptedBroker> broker;
    ubus_context *ctx = nullptr;
    ubus_event_handler handler = {};
};

TEST_F(UbusLoss, OfAnIdleClientIsToldOnceWithTheDescriptorOutOfTheLoop) {
    ASSERT_NO_FATAL_FAILURE(connect([](int) {}, count_event));
    ctx->connection_lost = count_loss;
    run_past_the_loss();
    EXPECT_FALSE(was_registered);
}

TEST_F(UbusLoss, ByAHalfClosedStreamIsToldOnceWithTheDescriptorInTheLoop) {
    ASSERT_NO_FATAL_FAILURE(connect(
        [](int fd) {
            EXPECT_EQ(shutdown(fd, SHUT_WR), 0);
            EXPECT_TRUE(closes(fd));
        },
        count_event));
    ctx->connection_lost = count_loss;
    run_past_the_loss();
    EXPECT_TRUE(was_registered);
    broker->finish();
}

TEST_F(UbusLoss, ByABrokenStreamIsToldOnce) {
    ASSERT_NO_FATAL_FAILURE(connect(
        [](int fd) {
            EXPECT_TRUE(send_bytes(fd, Bytes(100, '\xff')));
            EXPECT_TRUE(closes(fd));
        },
        count_event));
    ctx->connection_lost = count_loss;
    run_past_the_loss();
    EXPECT_TRUE(was_registered);
    broker->finish();
}

TEST_F(UbusLoss, DuringAnEventIsToldOnceWithTheDescriptorInTheLoop) {
    ASSERT_NO_FATAL_FAILURE(connect(
        [](int fd) {
            EXPECT_TRUE(send_bytes(fd, event_message(1, LOST_OBJECT_ID, "kolt.x", {})));
            EXPECT_TRUE(read_mark(handling_pipe[0]));
        },
        outlast_broker));
    ctx->connection_lost = count_loss;
    std::thread closer([this] {
        broker->finish();
        EXPECT_TRUE(write_mark(gone_pipe[1]));
    });
    run_past_the_loss();
    closer.join();
    EXPECT_EQ(events, 1);
    EXPECT_TRUE(was_registered);
}

TEST_F(UbusLoss, DuringARequestIsToldOnce) {
    ASSERT_NO_FATAL_FAILURE(connect([](int fd) { receive_message(fd); }, count_event));
    ctx->connection_lost = count_loss;
    blob_buf buf = {};
    ASSERT_EQ(blobmsg_buf_init(&buf), 0);
    EXPECT_EQ(ubus_send_event(ctx, "kolt.x", buf.head), UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(ubus_send_event(ctx, "kolt.x", buf.head), UBUS_STATUS_CONNECTION_FAILED);
    blob_buf_free(&buf);
    run_past_the_loss();
}

// A client that, when its bus is lost, tries again from a timer until a broker answers.
struct returning_client {
    uloop_timeout retry = {};
    std::string path;
    ubus_context *ctx = nullptr;
    ubus_event_handler handler = {};
    int failures = 0;
};

returning_client *returning;

void try_again(uloop_timeout *timer) {
    ubus_free(returning->ctx);
    returning->ctx = ubus_connect(returning->path.c_str());
    returning->handler = {};
    returning->handler.cb = [](ubus_context *, ubus_event_handler *, const char *, blob_attr *) {
        events++;
        kill(getpid(), SIGTERM);
    };
    if (!returning->ctx || ubus_register_event_handler(returning->ctx, &returning->handler, "kolt.*") != 0 ||
        ubus_add_uloop(returning->ctx) != 0) {
        returning->failures++;
        uloop_timeout_set(timer, 5);
    }
}

TEST_F(UbusLoss, IsMadeGoodByATimerThatConnectsAgain) {
    ASSERT_NO_FATAL_FAILURE(connect([](int) {}, count_event));
    returning_client client;
    returning = &client;
    client.path = dir.path("next");
    client.retry.cb = try_again;
    std::swap(client.ctx, ctx);
    client.ctx->connection_lost = [](ubus_context *) { uloop_timeout_set(&returning->retry, 1); };
    std::unique_ptr<ScriptedBroker> second;
    static bool other_timer_fired;
    other_timer_fired = false;
    uloop_timeout other = {};
    other.cb = [](uloop_timeout *) { other_timer_fired = true; };
    uloop_timeout_set(&other, 30);
    EXPECT_TRUE(eventually([&] {
        (void)uloop_run_timeout(5);
        return client.failures >= 3 && other_timer_fired;
    }));
    second = std::make_unique<ScriptedBroker>(client.path, [](int fd) {
        greet(fd);
        reply_object(fd, LOST_OBJECT_ID);
        reply_status(fd, 0);
        EXPECT_TRUE(send_bytes(fd, event_message(1, LOST_OBJECT_ID, "kolt.x", {})));
        EXPECT_TRUE(closes(fd));
    });
    // The loop's own handling of the signal has survived, too.
    EXPECT_EQ(uloop_run(), SIGTERM);
    EXPECT_EQ(events, 1);
    ubus_free(client.ctx);
    second->finish();
}

} // namespace
