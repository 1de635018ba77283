// Registering for events, receiving them, sending them.
#include "support.h"

#include <algorithm>
#include <unistd.h>

namespace {

constexpr uint32_t OBJECT_ID = 0x00c0ffee;

class UbusEvent : public LoopTest {
protected:
    void SetUp() override {
        LoopTest::SetUp();
        events.clear();
    }
    // Connects and registers at a broker that goes on with the script, and runs the loop until the broker is gone.
    void run(ScriptedBroker::Script script, const char *pattern = "kolt.*") {
        ScriptedBroker broker(dir.path("sock"), [this, script = std::move(script)](int fd) {
            greet(fd);
            add_request = reply_object(fd, OBJECT_ID);
            register_request = reply_status(fd, 0);
            script(fd);
        });
        ubus_context *ctx = ubus_connect(dir.path("sock").c_str());
        ASSERT_TRUE(ctx);
        ubus_event_handler handler = {};
        handler.cb = [](ubus_context *, ubus_event_handler *, const char *type, blob_attr *message) {
            events.push_back({type, blob_len(message)});
        };
        EXPECT_EQ(ubus_register_event_handler(ctx, &handler, pattern), 0);
        ctx->connection_lost = [](ubus_context *) { uloop_end(); };
        EXPECT_EQ(ubus_add_uloop(ctx), 0);
        EXPECT_EQ(uloop_run(), 0);
        ubus_free(ctx);
    }
    // What the client answers to one message.
    std::string answer_to(const Bytes &message) {
        std::string answer;
        run([&](int fd) {
            EXPECT_TRUE(send_bytes(fd, message));
            answer = to_hex(receive_message(fd));
        });
        return answer;
    }
    // Whether the client is silent about one message, and answers the next.
    bool is_silent_about(const Bytes &message) {
        const Bytes next = event_message(0x7777, OBJECT_ID, "kolt.next", {});
        return answer_to(message + next).substr(0, 8) == "00017777";
    }
    // Registers at a broker whose script begins with the answer to that, and runs the loop until five events are
    // handled, each of which makes a timer due. Writes the order of both.
    void run_with_timer(const ScriptedBroker::Script &script) {
        order.clear();
        ScriptedBroker broker(dir.path("sock"), [&](int fd) {
            greet(fd);
            reply_object(fd, OBJECT_ID);
            script(fd);
            for (int i = 0; i < 5; i++)
                EXPECT_EQ(receive_message(fd).size(), 28u);
        });
        ubus_context *ctx = ubus_connect(dir.path("sock").c_str());
        ASSERT_TRUE(ctx);
        ubus_event_handler handler = {};
        handler.cb = [](ubus_context *, ubus_event_handler *, const char *, blob_attr *) {
            order += 'e';
            uloop_timeout_set(&timer, 0);
        };
        timer.cb = [](uloop_timeout *) {
            order += 't';
            if (std::count(order.begin(), order.end(), 'e') == 5)
                uloop_end();
        };
        ctx->connection_lost = [](ubus_context *) {}; // the broker may be gone before the last timer had its turn
        EXPECT_EQ(ubus_register_event_handler(ctx, &handler, "kolt.*"), 0);
        EXPECT_EQ(ubus_add_uloop(ctx), 0);
        EXPECT_EQ(uloop_run(), 0);
        ubus_free(ctx);
    }
    static Bytes five_events() {
        Bytes events_in_one_go;
        for (uint16_t i = 0; i < 5; i++)
            events_in_one_go += event_message(i, OBJECT_ID, "kolt.x", {});
        return events_in_one_go;
    }
    static std::string order;
    static uloop_timeout timer;

    struct Event {
        std::string type;
        size_t len;
    };
    static std::vector<Event> events;
    Bytes add_request;
    Bytes register_request;
    TempDir dir;
};

std::vector<UbusEvent::Event> UbusEvent::events;
std::string UbusEvent::order;
uloop_timeout UbusEvent::timer = {};

TEST_F(UbusEvent, RegistrationAddsAnEmptyObjectAndNamesThePattern) {
    run([](int) {});
    EXPECT_EQ(to_hex(add_request), "000600010000000000000004");
    EXPECT_EQ(to_hex(register_request.substr(12)),
              to_hex(number_attr(UBUS_ATTR_OBJID, 1) + text_attr(UBUS_ATTR_METHOD, "register") +
                     raw_attr(UBUS_ATTR_DATA, number_member("object", OBJECT_ID) + text_member("pattern", "kolt.*"))));
}

TEST_F(UbusEvent, NullPatternIsLeftOut) {
    run([](int) {}, nullptr);
    EXPECT_EQ(to_hex(register_request.substr(12)),
              to_hex(number_attr(UBUS_ATTR_OBJID, 1) + text_attr(UBUS_ATTR_METHOD, "register") +
                     raw_attr(UBUS_ATTR_DATA, number_member("object", OBJECT_ID))));
}

TEST_F(UbusEvent, SecondPatternOfAHandlerUsesItsObject) {
    Bytes second;
    ScriptedBroker broker(dir.path("sock"), [&](int fd) {
        greet(fd);
        reply_object(fd, OBJECT_ID);
        reply_status(fd, 0);
        second = reply_status(fd, 0);
    });
    ubus_context *ctx = ubus_connect(dir.path("sock").c_str());
    ASSERT_TRUE(ctx);
    ubus_event_handler handler = {};
    EXPECT_EQ(ubus_register_event_handler(ctx, &handler, "one"), 0);
    EXPECT_EQ(ubus_register_event_handler(ctx, &handler, "two"), 0);
    broker.finish();
    EXPECT_EQ(second[1], UBUS_MSG_INVOKE);
    ubus_free(ctx);
}

TEST_F(UbusEvent, NamedObjectIsNoListener) {
    ScriptedBroker broker(dir.path("sock"), [](int fd) { greet(fd); });
    ubus_context *ctx = ubus_connect(dir.path("sock").c_str());
    ASSERT_TRUE(ctx);
    ubus_event_handler handler = {};
    handler.obj.name = "name";
    EXPECT_EQ(ubus_register_event_handler(ctx, &handler, "one"), UBUS_STATUS_INVALID_ARGUMENT);
    ubus_free(ctx);
}

TEST_F(UbusEvent, IsAnsweredWithStatusZeroAndTheObject) {
    EXPECT_EQ(answer_to(event_message(0x0102, OBJECT_ID, "kolt.debug", number_member("dbg_level", 1))),
              "000101020000000000000014"
              "0100000800000000"
              "0300000800c0ffee");
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].type, "kolt.debug");
}

TEST_F(UbusEvent, AnswerGoesToThePeerOfTheMessage) {
    Bytes event = event_message(1, OBJECT_ID, "kolt.debug", {});
    event.replace(4, 4, from_hex("0a0b0c0d"));
    EXPECT_EQ(answer_to(event).substr(0, 16), "000100010a0b0c0d");
}

TEST_F(UbusEvent, IsNotAnsweredWithNoReply) {
    const Bytes attributes = number_attr(UBUS_ATTR_OBJID, OBJECT_ID) + text_attr(UBUS_ATTR_METHOD, "kolt.quiet") +
                             raw_attr(UBUS_ATTR_DATA, "") + raw_attr(UBUS_ATTR_NO_REPLY, Bytes(1, '\1'));
    EXPECT_TRUE(is_silent_about(wire_message(UBUS_MSG_INVOKE, 1, 0, attributes)));
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].type, "kolt.quiet");
}

TEST_F(UbusEvent, IsAnsweredWithNoReplyOfZero) {
    const Bytes attributes = number_attr(UBUS_ATTR_OBJID, OBJECT_ID) + text_attr(UBUS_ATTR_METHOD, "kolt.loud") +
                             raw_attr(UBUS_ATTR_DATA, "") + raw_attr(UBUS_ATTR_NO_REPLY, Bytes(1, '\0'));
    EXPECT_FALSE(is_silent_about(wire_message(UBUS_MSG_INVOKE, 1, 0, attributes)));
}

TEST_F(UbusEvent, WithoutMembersArrivesEmpty) {
    answer_to(event_message(1, OBJECT_ID, "kolt.debug", {}));
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].len, 0u);
}

TEST_F(UbusEvent, OfAnUnknownObjectIsNotFound) {
    EXPECT_EQ(answer_to(event_message(1, 99, "kolt.debug", {})), "000100010000000000000014"
                                                                 "0100000800000004"
                                                                 "0300000800000063");
    EXPECT_TRUE(events.empty());
}

TEST_F(UbusEvent, WithoutANameOrDataIsAnInvalidArgument) {
    for (const Bytes &rest : {raw_attr(UBUS_ATTR_DATA, ""), text_attr(UBUS_ATTR_METHOD, "kolt.debug")}) {
        unlink(dir.path("sock").c_str());
        EXPECT_EQ(answer_to(wire_message(UBUS_MSG_INVOKE, 1, 0, number_attr(UBUS_ATTR_OBJID, OBJECT_ID) + rest))
                      .substr(24, 16),
                  "0100000800000002");
    }
    EXPECT_TRUE(events.empty());
}

TEST_F(UbusEvent, WithoutAnObjectIsPassedOver) {
    EXPECT_TRUE(is_silent_about(wire_message(UBUS_MSG_INVOKE, 1, 0, text_attr(UBUS_ATTR_METHOD, "kolt.debug"))));
}

TEST_F(UbusEvent, MalformedOneIsPassedOver) {
    EXPECT_TRUE(is_silent_about(
        wire_message(UBUS_MSG_INVOKE, 1, 0, number_attr(UBUS_ATTR_OBJID, OBJECT_ID) + from_hex("07ffffff"))));
}

TEST_F(UbusEvent, ManyInOneGoAllArriveInOrder) {
    Bytes burst;
    for (uint16_t i = 0; i < 200; i++)
        burst += event_message(i, OBJECT_ID, "kolt." + std::to_string(i), {});
    run([&](int fd) {
        EXPECT_TRUE(send_bytes(fd, burst));
        for (uint16_t i = 0; i < 200; i++)
            EXPECT_EQ(receive_message(fd).size(), 28u);
    });
    ASSERT_EQ(events.size(), 200u);
    EXPECT_EQ(events[0].type, "kolt.0");
    EXPECT_EQ(events[199].type, "kolt.199");
}

// A handler may take seconds, in which a timer becomes due.
TEST_F(UbusEvent, TimerThatIsDueComesBetweenTwoThatWait) {
    run_with_timer([](int fd) {
        reply_status(fd, 0);
        EXPECT_TRUE(send_bytes(fd, five_events()));
    });
    EXPECT_EQ(order, "etetetetet");
}

TEST_F(UbusEvent, TimerThatIsDueComesBetweenTwoThatWereKeptDuringARequest) {
    run_with_timer([](int fd) {
        EXPECT_TRUE(send_bytes(fd, five_events()));
        reply_status(fd, 0);
    });
    EXPECT_EQ(order, "etetetetet");
}

TEST_F(UbusEvent, EndOfTheLoopInACallbackLeavesTheNextEventForLater) {
    ScriptedBroker broker(dir.path("sock"), [&](int fd) {
        greet(fd);
        reply_object(fd, OBJECT_ID);
        reply_status(fd, 0);
        EXPECT_TRUE(send_bytes(fd, event_message(1, OBJECT_ID, "a", {}) + event_message(2, OBJECT_ID, "b", {})));
        EXPECT_TRUE(closes(fd));
    });
    ubus_context *ctx = ubus_connect(dir.path("sock").c_str());
    ASSERT_TRUE(ctx);
    ubus_event_handler handler = {};
    handler.cb = [](ubus_context *, ubus_event_handler *, const char *type, blob_attr *) {
        events.push_back({type, 0});
        uloop_end();
    };
    EXPECT_EQ(ubus_register_event_handler(ctx, &handler, "*"), 0);
    EXPECT_EQ(ubus_add_uloop(ctx), 0);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(events.size(), 1u);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(events.size(), 2u);
    ubus_free(ctx);
}

TEST_F(UbusEvent, CallbackMayMakeARequestItself) {
    ScriptedBroker broker(dir.path("sock"), [&](int fd) {
        greet(fd);
        reply_object(fd, OBJECT_ID);
        reply_status(fd, 0);
        EXPECT_TRUE(send_bytes(fd, event_message(1, OBJECT_ID, "a", {})));
        reply_status(fd, 0);
        EXPECT_EQ(to_hex(receive_message(fd).substr(0, 4)), "00010001");
    });
    ubus_context *ctx = ubus_connect(dir.path("sock").c_str());
    ASSERT_TRUE(ctx);
    ubus_event_handler handler = {};
    handler.cb = [](ubus_context *context, ubus_event_handler *self, const char *type, blob_attr *) {
        EXPECT_EQ(ubus_register_event_handler(context, self, "b"), 0);
        EXPECT_STREQ(type, "a");
        events.push_back({type, 0});
    };
    ctx->connection_lost = [](ubus_context *) { uloop_end(); };
    EXPECT_EQ(ubus_register_event_handler(ctx, &handler, "*"), 0);
    EXPECT_EQ(ubus_add_uloop(ctx), 0);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(events.size(), 1u);
    ubus_free(ctx);
}

TEST_F(UbusEvent, SendingCallsTheBrokersEventObject) {
    Bytes request;
    ScriptedBroker broker(dir.path("sock"), [&](int fd) {
        greet(fd);
        request = reply_status(fd, UBUS_STATUS_PERMISSION_DENIED);
    });
    ubus_context *ctx = ubus_connect(dir.path("sock").c_str());
    ASSERT_TRUE(ctx);
    blob_buf buf = {};
    ASSERT_EQ(blobmsg_buf_init(&buf), 0);
    ASSERT_EQ(blobmsg_add_string(&buf, "mode", "RE"), 0);
    EXPECT_EQ(ubus_send_event(ctx, "kolt.configure", buf.head), UBUS_STATUS_PERMISSION_DENIED);
    broker.finish();
    EXPECT_EQ(to_hex(request.substr(0, 8)), "0005000100000001");
    EXPECT_EQ(to_hex(request.substr(12)),
              to_hex(number_attr(UBUS_ATTR_OBJID, 1) + text_attr(UBUS_ATTR_METHOD, "send") +
                     raw_attr(UBUS_ATTR_DATA, text_member("id", "kolt.configure") +
                                                  member(BLOBMSG_TYPE_TABLE, "data", text_member("mode", "RE")))));
    blob_buf_free(&buf);
    ubus_free(ctx);
}

} // namespace
