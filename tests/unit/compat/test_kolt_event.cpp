// The event sender as a program: its arguments, its exit status, what reaches the bus.
#include "support.h"

namespace {

class KoltEvent : public ::testing::Test {
protected:
    // Sends an event through the real broker; returns the members that a listener gets.
    std::string members_of(const std::string &json) {
        Broker broker;
        const Fd listener = broker.client();
        const uint32_t object = Broker::add_object(listener.get());
        EXPECT_EQ(Broker::listen(listener.get(), object, "*"), 0u);
        Process sender({KOLT_EVENT, "-s", broker.socket(), "e", json});
        EXPECT_EQ(sender.wait(), 0) << sender.errors();
        const Bytes prefix = event_message(1, object, "e", {});
        const Bytes event = receive_message(listener.get());
        return to_hex(event.size() > prefix.size() ? event.substr(prefix.size()) : Bytes());
    }
    static std::pair<int, std::string> run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), KOLT_EVENT);
        Process sender(arguments);
        const int status = sender.wait();
        return {status, sender.errors()};
    }
    TempDir dir;
};

TEST_F(KoltEvent, MapsJsonTypesToAttributeTypes) {
    EXPECT_EQ(members_of(R"({"s":"text"})"), to_hex(text_member("s", "text")));
    EXPECT_EQ(members_of(R"({"t":true,"f":false})"),
              to_hex(member(BLOBMSG_TYPE_INT8, "t", Bytes(1, '\1')) + member(BLOBMSG_TYPE_INT8, "f", Bytes(1, '\0'))));
    EXPECT_EQ(members_of(R"({"d":1.5})"), to_hex(member(BLOBMSG_TYPE_DOUBLE, "d", from_hex("3ff8000000000000"))));
    EXPECT_EQ(members_of(R"({"n":null})"), to_hex(member(BLOBMSG_TYPE_UNSPEC, "n", {})));
}

TEST_F(KoltEvent, IntegerIsInt32WhereItFits) {
    EXPECT_EQ(members_of(R"({"a":2147483647,"b":-2147483648})"),
              to_hex(number_member("a", 0x7fffffff) + number_member("b", 0x80000000)));
    EXPECT_EQ(members_of(R"({"a":2147483648,"b":-2147483649})"),
              to_hex(member(BLOBMSG_TYPE_INT64, "a", from_hex("0000000080000000")) +
                     member(BLOBMSG_TYPE_INT64, "b", from_hex("ffffffff7fffffff"))));
}

TEST_F(KoltEvent, NestsTablesAndArrays) {
    EXPECT_EQ(members_of(R"({"t":{"x":1},"a":[1,"2"]})"),
              to_hex(member(BLOBMSG_TYPE_TABLE, "t", number_member("x", 1)) +
                     member(BLOBMSG_TYPE_ARRAY, "a", number_member("", 1) + text_member("", "2"))));
}

TEST_F(KoltEvent, MissingJsonIsAnEventWithoutMembers) {
    Broker broker;
    const Fd listener = broker.client();
    const uint32_t object = Broker::add_object(listener.get());
    ASSERT_EQ(Broker::listen(listener.get(), object, "*"), 0u);
    EXPECT_EQ(run({"-s", broker.socket(), "bare"}).first, 0);
    EXPECT_EQ(to_hex(receive_message(listener.get())), to_hex(event_message(1, object, "bare", {})));
}

TEST_F(KoltEvent, WrongJsonIsExplainedAndNothingIsSent) {
    for (const char *json : {"", "{", "{\"a\":}", "[1]", "1", "null", "{} x", "{\"a\":1,}", "nonsense"}) {
        const auto [status, errors] = run({"-s", dir.path("none"), "e", json});
        EXPECT_EQ(status, 1) << json;
        EXPECT_EQ(errors.find("kolt-event: JSON: "), 0u) << errors;
    }
}

TEST_F(KoltEvent, WrongUsageIsExplained) {
    const std::vector<std::vector<std::string>> calls = {{}, {""}, {"-x", "e"}, {"-s"}, {"e", "{}", "surplus"}};
    for (const auto &call : calls) {
        const auto [status, errors] = run(call);
        EXPECT_EQ(status, 1);
        EXPECT_NE(errors.find("Usage:"), std::string::npos);
    }
}

TEST_F(KoltEvent, MissingBrokerIsExplained) {
    const auto [status, errors] = run({"-s", dir.path("none"), "e"});
    EXPECT_EQ(status, 2);
    EXPECT_EQ(errors, "kolt-event: no broker at " + dir.path("none") + ": No such file or directory\n");
}

TEST_F(KoltEvent, RefusalIsExplained) {
    ScriptedBroker broker(dir.path("sock"), [](int fd) {
        greet(fd);
        reply_status(fd, UBUS_STATUS_PERMISSION_DENIED);
    });
    const auto [status, errors] = run({"-s", dir.path("sock"), "kolt.debug"});
    EXPECT_EQ(status, 3);
    EXPECT_EQ(errors, "kolt-event: kolt.debug: Permission denied\n");
}

} // namespace
