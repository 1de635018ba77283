// The broker: objects, patterns, and how events are passed on.
#include "ubusd_support.h"

#include <set>
#include <sys/stat.h>

namespace {

using Ubusd = UbusdTest;

TEST_F(Ubusd, GreetsEveryClientWithAnIdOfItsOwn) {
    std::set<uint32_t> ids;
    std::vector<Fd> clients;
    for (int i = 0; i < 8; i++) {
        uint32_t id = 0;
        clients.push_back(broker.client(&id));
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), 8u);
    EXPECT_EQ(ids.count(0), 0u);
}

// Who can connect can send the daemon any event.
TEST_F(Ubusd, SocketIsItsOwnersAlone) {
    struct stat info = {};
    ASSERT_EQ(lstat(broker.socket().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
}

TEST_F(Ubusd, GreetingIsHelloOfSequenceZeroWithAnEmptyBlob) {
    const Fd client = connect_to(broker.socket());
    const Bytes greeting = receive_message(client.get());
    EXPECT_EQ(to_hex(greeting.substr(0, 4) + greeting.substr(8)), "0000000000000004");
}

TEST_F(Ubusd, AddedObjectsGetIdsOfTheirOwn) {
    const Fd client = broker.client();
    const uint32_t one = Broker::add_object(client.get());
    const uint32_t two = Broker::add_object(client.get());
    EXPECT_NE(one, two);
    EXPECT_GE(one, static_cast<uint32_t>(UBUS_SYSTEM_OBJECT_MAX));
    EXPECT_GE(two, static_cast<uint32_t>(UBUS_SYSTEM_OBJECT_MAX));
}

TEST_F(Ubusd, EventReachesItsListenerWithTheObjectItsNameAndItsMembers) {
    const Fd listener = broker.client();
    const Fd sender = broker.client();
    const uint32_t object = Broker::add_object(listener.get());
    ASSERT_EQ(Broker::listen(listener.get(), object, "kolt.*"), 0u);
    EXPECT_EQ(Broker::send(sender.get(), "kolt.debug", number_member("dbg_level", 2)), 0u);
    EXPECT_EQ(to_hex(receive_message(listener.get())),
              to_hex(event_message(1, object, "kolt.debug", number_member("dbg_level", 2))));
    EXPECT_EQ(Broker::send(sender.get(), "kolt.debug", {}), 0u);
    EXPECT_EQ(to_hex(receive_message(listener.get())), to_hex(event_message(2, object, "kolt.debug", {})));
}

struct PatternRow {
    const char *pattern;
    const char *event;
    bool matches;
    friend void PrintTo(const PatternRow &row, std::ostream *out) {
        *out << row.pattern;
    }
};

class UbusdPattern : public Ubusd, public ::testing::WithParamInterface<PatternRow> {};

TEST_P(UbusdPattern, SelectsEvents) {
    const Fd client = broker.client();
    const uint32_t object = Broker::add_object(client.get());
    ASSERT_EQ(Broker::listen(client.get(), object, GetParam().pattern), 0u);
    ASSERT_EQ(Broker::listen(client.get(), object, "last"), 0u);
    const Fd sender = broker.client();
    EXPECT_EQ(Broker::send(sender.get(), GetParam().event, {}), 0u);
    EXPECT_EQ(Broker::send(sender.get(), "last", {}), 0u);
    const Bytes first = receive_message(client.get());
    const std::string expected = GetParam().matches ? GetParam().event : "last";
    EXPECT_EQ(to_hex(first), to_hex(event_message(1, object, expected, {})));
}

INSTANTIATE_TEST_SUITE_P(
    , UbusdPattern,
    ::testing::Values(PatternRow{"kolt.*", "kolt.debug", true}, PatternRow{"kolt.*", "kolt.", true},
                      PatternRow{"kolt.*", "kolt", false}, PatternRow{"kolt.*", "koltx", false},
                      PatternRow{"kolt.debug", "kolt.debug", true}, PatternRow{"kolt.debug", "kolt.debug2", false},
                      PatternRow{"kolt.debug", "kolt.debu", false}, PatternRow{"*", "anything", true},
                      PatternRow{"k*t", "kolt", false}, PatternRow{"k*t", "k*t", true}, PatternRow{"", "kolt", false}),
    [](const auto &param) { return "Row" + std::to_string(param.index); });

TEST_F(Ubusd, EventComesOnceToAnObjectWithSeveralPatternsThatMatch) {
    const Fd client = broker.client();
    const uint32_t object = Broker::add_object(client.get());
    ASSERT_EQ(Broker::listen(client.get(), object, "kolt.*"), 0u);
    ASSERT_EQ(Broker::listen(client.get(), object, "*"), 0u);
    const Fd sender = broker.client();
    EXPECT_EQ(Broker::send(sender.get(), "kolt.1", {}), 0u);
    EXPECT_EQ(Broker::send(sender.get(), "kolt.2", {}), 0u);
    EXPECT_EQ(to_hex(receive_message(client.get())), to_hex(event_message(1, object, "kolt.1", {})));
    EXPECT_EQ(to_hex(receive_message(client.get())), to_hex(event_message(2, object, "kolt.2", {})));
}

TEST_F(Ubusd, RegistrationWithoutAPatternIsForEveryEvent) {
    const Fd client = broker.client();
    const uint32_t object = Broker::add_object(client.get());
    EXPECT_EQ(call(client.get(), "register", number_member("object", object)), 0u);
    const Fd sender = broker.client();
    EXPECT_EQ(Broker::send(sender.get(), "any", {}), 0u);
    EXPECT_EQ(to_hex(receive_message(client.get())), to_hex(event_message(1, object, "any", {})));
}

TEST_F(Ubusd, SenderThatListensGetsItsOwnEvent) {
    const Fd client = broker.client();
    const uint32_t object = Broker::add_object(client.get());
    ASSERT_EQ(Broker::listen(client.get(), object, "*"), 0u);
    const Bytes data = text_member("id", "own") + member(BLOBMSG_TYPE_TABLE, "data", {});
    ASSERT_TRUE(
        send_bytes(client.get(), wire_message(UBUS_MSG_INVOKE, 3, 1,
                                              number_attr(UBUS_ATTR_OBJID, 1) + text_attr(UBUS_ATTR_METHOD, "send") +
                                                  raw_attr(UBUS_ATTR_DATA, data))));
    EXPECT_EQ(to_hex(receive_message(client.get())), to_hex(event_message(1, object, "own", {})));
    EXPECT_EQ(status_in(receive_message(client.get())), 0u);
}

TEST_F(Ubusd, RequestsAreAnsweredWithTheirSequenceAndPeer) {
    const Fd client = broker.client();
    ASSERT_TRUE(send_bytes(client.get(), wire_message(UBUS_MSG_LOOKUP, 0x1234, 0x55667788)));
    EXPECT_EQ(to_hex(receive_message(client.get())), "0001123455667788"
                                                     "0000000c"
                                                     "0100000800000000");
}

TEST_F(Ubusd, PingIsAnsweredWithItsData) {
    const Fd client = broker.client();
    ASSERT_TRUE(send_bytes(client.get(), wire_message(UBUS_MSG_PING, 5, 6, raw_attr(UBUS_ATTR_DATA, "echo"))));
    EXPECT_EQ(to_hex(receive_message(client.get())),
              to_hex(wire_message(UBUS_MSG_DATA, 5, 6, raw_attr(UBUS_ATTR_DATA, "echo"))));
    EXPECT_EQ(status_in(receive_message(client.get())), 0u);
}

TEST_F(Ubusd, RemovedObjectGetsNoMoreEvents) {
    const Fd client = broker.client();
    const uint32_t removed = Broker::add_object(client.get());
    const uint32_t kept = Broker::add_object(client.get());
    ASSERT_EQ(Broker::listen(client.get(), removed, "*"), 0u);
    ASSERT_EQ(Broker::listen(client.get(), kept, "*"), 0u);
    ASSERT_TRUE(
        send_bytes(client.get(), wire_message(UBUS_MSG_REMOVE_OBJECT, 4, 0, number_attr(UBUS_ATTR_OBJID, removed))));
    EXPECT_EQ(to_hex(receive_message(client.get())),
              to_hex(wire_message(UBUS_MSG_DATA, 4, 0, number_attr(UBUS_ATTR_OBJID, removed))));
    EXPECT_EQ(status_in(receive_message(client.get())), 0u);
    const Fd sender = broker.client();
    EXPECT_EQ(Broker::send(sender.get(), "event", {}), 0u);
    EXPECT_EQ(to_hex(receive_message(client.get())), to_hex(event_message(1, kept, "event", {})));
}

TEST_F(Ubusd, ObjectsOfOthersAreOutOfReach) {
    const Fd owner = broker.client();
    const Fd other = broker.client();
    const uint32_t object = Broker::add_object(owner.get());
    EXPECT_EQ(Broker::listen(other.get(), object, "*"), static_cast<uint32_t>(UBUS_STATUS_PERMISSION_DENIED));
    EXPECT_EQ(ask(other.get(), UBUS_MSG_REMOVE_OBJECT, number_attr(UBUS_ATTR_OBJID, object)),
              static_cast<uint32_t>(UBUS_STATUS_PERMISSION_DENIED));
}

TEST_F(Ubusd, ObjectsGoWithTheirClient) {
    Fd owner = broker.client();
    const uint32_t object = Broker::add_object(owner.get());
    const Fd other = broker.client();
    const Bytes request = number_attr(UBUS_ATTR_OBJID, object);
    EXPECT_EQ(ask(other.get(), UBUS_MSG_REMOVE_OBJECT, request), static_cast<uint32_t>(UBUS_STATUS_PERMISSION_DENIED));
    owner = Fd();
    EXPECT_TRUE(eventually([&] { return ask(other.get(), UBUS_MSG_REMOVE_OBJECT, request) == UBUS_STATUS_NOT_FOUND; }));
}

struct RequestRow {
    const char *name;
    unsigned type;
    Bytes attributes;
    uint32_t status;
    friend void PrintTo(const RequestRow &row, std::ostream *out) {
        *out << row.name;
    }
};

Bytes call_of(const std::string &method, const Bytes &members) {
    return number_attr(UBUS_ATTR_OBJID, 1) + text_attr(UBUS_ATTR_METHOD, method) + raw_attr(UBUS_ATTR_DATA, members);
}

class UbusdRefusal : public Ubusd, public ::testing::WithParamInterface<RequestRow> {};

TEST_P(UbusdRefusal, HasTheFittingStatusAndTheClientStays) {
    const Fd client = broker.client();
    EXPECT_EQ(ask(client.get(), GetParam().type, GetParam().attributes), GetParam().status);
    EXPECT_EQ(ask(client.get(), UBUS_MSG_LOOKUP, {}), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    , UbusdRefusal,
    ::testing::Values(
        RequestRow{"Hello", UBUS_MSG_HELLO, {}, 1}, RequestRow{"UnknownType", 12, {}, 1},
        RequestRow{"HighestType", 255, {}, 1},
        RequestRow{"LookupOfAPath", UBUS_MSG_LOOKUP, text_attr(UBUS_ATTR_OBJPATH, "network"), 4},
        RequestRow{"Subscribe", UBUS_MSG_SUBSCRIBE, {}, 8}, RequestRow{"Unsubscribe", UBUS_MSG_UNSUBSCRIBE, {}, 8},
        RequestRow{"Notify", UBUS_MSG_NOTIFY, {}, 8}, RequestRow{"Monitor", UBUS_MSG_MONITOR, {}, 8},
        RequestRow{"ObjectWithAPath", UBUS_MSG_ADD_OBJECT, text_attr(UBUS_ATTR_OBJPATH, "kolt"), 8},
        RequestRow{"RemovalWithoutId", UBUS_MSG_REMOVE_OBJECT, {}, 2},
        RequestRow{"RemovalOfAnUnknownId", UBUS_MSG_REMOVE_OBJECT, number_attr(UBUS_ATTR_OBJID, 5000), 4},
        RequestRow{"CallWithoutObject", UBUS_MSG_INVOKE, text_attr(UBUS_ATTR_METHOD, "send"), 2},
        RequestRow{"CallWithoutMethod", UBUS_MSG_INVOKE, number_attr(UBUS_ATTR_OBJID, 1), 2},
        RequestRow{"CallOfAnUnknownObject", UBUS_MSG_INVOKE,
                   number_attr(UBUS_ATTR_OBJID, 77) + text_attr(UBUS_ATTR_METHOD, "send"), 4},
        RequestRow{"CallOfAnUnknownMethod", UBUS_MSG_INVOKE, call_of("reboot", {}), 3},
        RequestRow{"SendWithoutMembers", UBUS_MSG_INVOKE, call_of("send", {}), 2},
        RequestRow{"SendWithoutData", UBUS_MSG_INVOKE, call_of("send", text_member("id", "x")), 2},
        RequestRow{"SendWithoutName", UBUS_MSG_INVOKE, call_of("send", member(BLOBMSG_TYPE_TABLE, "data", {})), 2},
        RequestRow{"SendWithMalformedMembers", UBUS_MSG_INVOKE, call_of("send", from_hex("83ffffff")), 2},
        RequestRow{"SendWithoutDataAttribute", UBUS_MSG_INVOKE,
                   number_attr(UBUS_ATTR_OBJID, 1) + text_attr(UBUS_ATTR_METHOD, "send"), 2},
        RequestRow{"RegisterWithoutObject", UBUS_MSG_INVOKE, call_of("register", text_member("pattern", "*")), 2},
        RequestRow{"RegisterOfAnUnknownObject", UBUS_MSG_INVOKE, call_of("register", number_member("object", 5000)), 4},
        RequestRow{"MalformedAttributes", UBUS_MSG_INVOKE, from_hex("03000008000000010400ffff"), 2}),
    [](const auto &param) { return param.param.name; });

TEST_F(Ubusd, AnswersOfListenersAreNotAnswered) {
    const Fd client = broker.client();
    ASSERT_TRUE(send_bytes(client.get(), wire_message(UBUS_MSG_STATUS, 1, 0, number_attr(UBUS_ATTR_STATUS, 0)) +
                                             wire_message(UBUS_MSG_DATA, 1, 0)));
    EXPECT_EQ(ask(client.get(), UBUS_MSG_LOOKUP, {}), 0u);
}

TEST_F(Ubusd, RequestWithNoReplyIsNotAnswered) {
    const Fd client = broker.client();
    ASSERT_TRUE(
        send_bytes(client.get(), wire_message(UBUS_MSG_SUBSCRIBE, 1, 0, raw_attr(UBUS_ATTR_NO_REPLY, Bytes(1, '\1')))));
    EXPECT_EQ(ask(client.get(), UBUS_MSG_LOOKUP, {}), 0u);
}

} // namespace
