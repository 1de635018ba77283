// Requests that wait for their answer, and what arrives meanwhile.
#include "support.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr uint32_t REQUESTED_OBJECT_ID = 0x00c0ffee;

class UbusRequest : public LoopTest {
protected:
    // Registers a handler at a broker with that script behind its greeting; returns the status.
    int run(ScriptedBroker::Script script, const char *pattern = "kolt.*") {
        broker = std::make_unique<ScriptedBroker>(dir.path("sock"), [script = std::move(script)](int fd) {
            greet(fd);
            script(fd);
        });
        ctx = ubus_connect(dir.path("sock").c_str());
        EXPECT_TRUE(ctx);
        handler.cb = [](ubus_context *, ubus_event_handler *, const char *type, blob_attr *) {
            events.push_back(type);
            uloop_end();
        };
        return ctx ? ubus_register_event_handler(ctx, &handler, pattern) : -1;
    }
    void SetUp() override {
        LoopTest::SetUp();
        events.clear();
    }
    void TearDown() override {
        ubus_free(ctx);
        broker.reset();
        LoopTest::TearDown();
    }
    TempDir dir;
    std::unique_ptr<ScriptedBroker> broker;
    ubus_context *ctx = nullptr;
    ubus_event_handler handler = {};
    static std::vector<std::string> events;
};

std::vector<std::string> UbusRequest::events;

TEST_F(UbusRequest, SequencesCountFromOne) {
    Bytes first;
    Bytes second;
    EXPECT_EQ(run([&](int fd) {
                  first = reply_object(fd, REQUESTED_OBJECT_ID);
                  second = reply_status(fd, 0);
              }),
              0);
    broker->finish();
    EXPECT_EQ(to_hex(first.substr(0, 4)), "00060001");
    EXPECT_EQ(to_hex(second.substr(0, 4)), "00050002");
}

TEST_F(UbusRequest, AnswerMayArriveInPieces) {
    EXPECT_EQ(run([&](int fd) {
                  receive_message(fd);
                  const Bytes answer =
                      wire_message(UBUS_MSG_DATA, 1, 0, number_attr(UBUS_ATTR_OBJID, REQUESTED_OBJECT_ID)) +
                      wire_message(UBUS_MSG_STATUS, 1, 0, number_attr(UBUS_ATTR_STATUS, 0));
                  for (const char byte : answer)
                      EXPECT_TRUE(send_bytes(fd, Bytes(1, byte)));
                  reply_status(fd, 0);
              }),
              0);
    EXPECT_EQ(handler.obj.id, REQUESTED_OBJECT_ID);
}

TEST_F(UbusRequest, StatusOfTheAnswerIsReturned) {
    EXPECT_EQ(run([](int fd) {
                  reply_object(fd, REQUESTED_OBJECT_ID);
                  reply_status(fd, UBUS_STATUS_PERMISSION_DENIED);
              }),
              UBUS_STATUS_PERMISSION_DENIED);
}

TEST_F(UbusRequest, RefusedObjectIsNotRegistered) {
    EXPECT_EQ(run([](int fd) { reply_status(fd, UBUS_STATUS_NO_MEMORY); }), UBUS_STATUS_NO_MEMORY);
    EXPECT_EQ(handler.obj.id, 0u);
}

TEST_F(UbusRequest, ObjectWithoutAnIdIsNoResponse) {
    EXPECT_EQ(run([](int fd) { reply_status(fd, 0); }), UBUS_STATUS_NO_DATA);
}

TEST_F(UbusRequest, StatusMessageWithoutStatusIsAParseError) {
    EXPECT_EQ(run([](int fd) {
                  receive_message(fd);
                  EXPECT_TRUE(send_bytes(fd, wire_message(UBUS_MSG_STATUS, 1, 0)));
              }),
              UBUS_STATUS_PARSE_ERROR);
}

TEST_F(UbusRequest, MalformedStatusMessageIsAParseError) {
    EXPECT_EQ(run([](int fd) {
                  receive_message(fd);
                  EXPECT_TRUE(send_bytes(fd, wire_message(UBUS_MSG_STATUS, 1, 0, from_hex("01000008000000000100"))));
              }),
              UBUS_STATUS_PARSE_ERROR);
}

TEST_F(UbusRequest, BrokerThatGoesAwayIsConnectionFailed) {
    EXPECT_EQ(run([](int fd) { receive_message(fd); }), UBUS_STATUS_CONNECTION_FAILED);
}

TEST_F(UbusRequest, BrokerThatBreaksTheProtocolIsConnectionFailed) {
    EXPECT_EQ(run([](int fd) {
                  receive_message(fd);
                  EXPECT_TRUE(send_bytes(fd, from_hex("000100010000000000ffffff")));
                  EXPECT_TRUE(closes(fd));
              }),
              UBUS_STATUS_CONNECTION_FAILED);
}

TEST_F(UbusRequest, BrokerThatNeverAnswersIsATimeout) {
    EXPECT_EQ(run([](int fd) { EXPECT_TRUE(closes(fd)); }), UBUS_STATUS_TIMEOUT);
    ubus_free(ctx);
    ctx = nullptr;
}

TEST_F(UbusRequest, BrokerThatOnlyAnswersOtherRequestsIsATimeout) {
    std::atomic<bool> done = false;
    EXPECT_EQ(run([&](int fd) {
                  const Bytes stale = wire_message(UBUS_MSG_STATUS, 77, 0, number_attr(UBUS_ATTR_STATUS, 0));
                  while (!done && send_bytes(fd, stale)) {
                  }
              }),
              UBUS_STATUS_TIMEOUT);
    done = true;
    ubus_free(ctx);
    ctx = nullptr;
    broker->finish();
}

TEST_F(UbusRequest, SignalThatEndsTheLoopEndsTheWaitToo) {
    const pid_t self = getpid();
    const auto start = std::chrono::steady_clock::now();
    const int status = run([self](int fd) {
        receive_message(fd);
        // Again and again, because the first may come before the wait has begun.
        EXPECT_TRUE(eventually([&] {
            kill(self, SIGTERM);
            pollfd entry = {fd, POLLIN, 0};
            return poll(&entry, 1, 10) == 1;
        }));
    });
    EXPECT_EQ(status, UBUS_STATUS_TIMEOUT);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
    ubus_free(ctx);
    ctx = nullptr;
    broker->finish();
}

int cut_in_handler = -1;

void cut_connection(int) {
    (void)shutdown(cut_in_handler, SHUT_RDWR);
    uloop_end();
}

TEST_F(UbusRequest, SignalHandlerThatCutsTheConnectionEndsTheWaitAsConnectionFailed) {
    struct sigaction action = {};
    action.sa_handler = cut_connection;
    struct sigaction before = {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    const pid_t self = getpid();
    const auto start = std::chrono::steady_clock::now();
    ScriptedBroker scripted(dir.path("sock"), [self](int fd) {
        greet(fd);
        receive_message(fd);
        kill(self, SIGUSR1);
        EXPECT_TRUE(closes(fd));
    });
    ctx = ubus_connect(dir.path("sock").c_str());
    ASSERT_TRUE(ctx);
    cut_in_handler = ctx->sock.fd;
    EXPECT_EQ(ubus_register_event_handler(ctx, &handler, nullptr), UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
    scripted.finish();
    ASSERT_EQ(sigaction(SIGUSR1, &before, nullptr), 0);
}

TEST_F(UbusRequest, MessageOfAnotherSequenceIsKeptAndHandledLater) {
    Bytes answer;
    ASSERT_EQ(run([&](int fd) {
                  reply_object(fd, REQUESTED_OBJECT_ID);
                  receive_message(fd);
                  // The event has the sequence of the request that is waiting: the broker counts its own.
                  EXPECT_TRUE(
                      send_bytes(fd, event_message(2, REQUESTED_OBJECT_ID, "kolt.early", number_member("n", 1)) +
                                         wire_message(UBUS_MSG_STATUS, 2, 1, number_attr(UBUS_ATTR_STATUS, 0))));
                  answer = receive_message(fd);
                  EXPECT_TRUE(closes(fd));
              }),
              0);
    EXPECT_TRUE(events.empty());
    ASSERT_EQ(ubus_add_uloop(ctx), 0);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(events, std::vector<std::string>{"kolt.early"});
    ubus_free(ctx);
    ctx = nullptr;
    broker->finish();
    EXPECT_EQ(to_hex(answer), "000100020000000000000014"
                              "0100000800000000"
                              "0300000800c0ffee");
}

TEST_F(UbusRequest, KeptMessagesAreHandledInOrderAlsoWhenTheLoopEndsBetween) {
    ASSERT_EQ(run([&](int fd) {
                  reply_object(fd, REQUESTED_OBJECT_ID);
                  receive_message(fd);
                  EXPECT_TRUE(
                      send_bytes(fd, event_message(1, REQUESTED_OBJECT_ID, "kolt.1", {}) +
                                         event_message(2, REQUESTED_OBJECT_ID, "kolt.2", {}) +
                                         wire_message(UBUS_MSG_STATUS, 2, 1, number_attr(UBUS_ATTR_STATUS, 0))));
                  EXPECT_TRUE(closes(fd));
              }),
              0);
    ASSERT_EQ(ubus_add_uloop(ctx), 0);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(events, (std::vector<std::string>{"kolt.1"}));
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(events, (std::vector<std::string>{"kolt.1", "kolt.2"}));
    ubus_free(ctx);
    ctx = nullptr;
}

TEST_F(UbusRequest, KeptMessagesAreReleasedWithTheConnection) {
    EXPECT_EQ(run([&](int fd) {
                  receive_message(fd);
                  EXPECT_TRUE(send_bytes(fd, event_message(1, 5, "kolt.1", {})));
              }),
              UBUS_STATUS_CONNECTION_FAILED);
}

TEST_F(UbusRequest, FloodOfMessagesMeanwhileIsNotKeptWithoutLimit) {
    EXPECT_EQ(run([&](int fd) {
                  receive_message(fd);
                  const Bytes flood = event_message(1, 5, "kolt.flood", Bytes(500000, 'x'));
                  for (int i = 0; i < 20 && send_bytes(fd, flood); i++) {
                  }
              }),
              UBUS_STATUS_NO_MEMORY);
    ubus_free(ctx);
    ctx = nullptr;
}

TEST_F(UbusRequest, MessageLongerThanTheLimitIsNotSent) {
    ASSERT_EQ(run([&](int fd) {
                  reply_object(fd, REQUESTED_OBJECT_ID);
                  reply_status(fd, 0);
                  EXPECT_TRUE(closes(fd));
              }),
              0);
    blob_buf buf = {};
    ASSERT_EQ(blobmsg_buf_init(&buf), 0);
    const std::string text(UBUS_MAX_MSGLEN, 't');
    ASSERT_EQ(blobmsg_add_string(&buf, "text", text.c_str()), 0);
    EXPECT_EQ(ubus_send_event(ctx, "kolt.long", buf.head), UBUS_STATUS_INVALID_ARGUMENT);
    blob_buf_free(&buf);
    ubus_free(ctx);
    ctx = nullptr;
}

} // namespace
