// What the broker does about clients that overdo it, and how it starts and ends.
#include "ubusd_support.h"

#include <csignal>
#include <filesystem>
#include <poll.h>

namespace {

using UbusdLimits = UbusdTest;

class UbusdHostile : public UbusdTest, public ::testing::WithParamInterface<std::pair<const char *, const char *>> {};

TEST_P(UbusdHostile, IsDisconnectedAndOthersAreServed) {
    const Fd client = broker.client();
    ASSERT_TRUE(send_bytes(client.get(), from_hex(GetParam().second)));
    EXPECT_TRUE(closes(client.get()));
    EXPECT_TRUE(serves());
}

INSTANTIATE_TEST_SUITE_P(, UbusdHostile,
                         ::testing::Values(std::pair("VersionOne", "010300010000000000000004"),
                                           std::pair("LengthZero", "000300010000000000000000"),
                                           std::pair("LengthBelowTheWord", "000300010000000000000003"),
                                           std::pair("TooLong", "0003000100000000000ffff9"),
                                           std::pair("LongestLength", "000300010000000000ffffff"),
                                           std::pair("EnclosingIdNotZero", "000300010000000003000004"),
                                           std::pair("OtherProtocol", "474554202f20485454502f312e310d0a0d0a")),
                         [](const auto &param) { return param.param.first; });

TEST_F(UbusdLimits, ClientThatStopsHalfwayBlocksNobody) {
    const Fd client = broker.client();
    ASSERT_TRUE(send_bytes(client.get(), wire_message(UBUS_MSG_PING, 1, 0, Bytes(400, 'x')).substr(0, 100)));
    EXPECT_TRUE(serves());
}

TEST_F(UbusdLimits, ListenerThatNeverReadsIsDisconnectedAndBlocksNobody) {
    const Fd deaf = broker.client();
    const uint32_t object = Broker::add_object(deaf.get());
    ASSERT_EQ(Broker::listen(deaf.get(), object, "*"), 0u);
    const Fd sender = broker.client();
    const Bytes members = text_member("text", std::string(500000, 't'));
    for (int i = 0; i < 8; i++)
        ASSERT_EQ(Broker::send(sender.get(), "long", members), 0u);
    EXPECT_TRUE(closes(deaf.get()));
    EXPECT_TRUE(serves());
}

TEST_F(UbusdLimits, ListenerThatReadsLateGetsAllThatFitsTheQueue) {
    const Fd slow = broker.client();
    const uint32_t object = Broker::add_object(slow.get());
    ASSERT_EQ(Broker::listen(slow.get(), object, "*"), 0u);
    const Fd sender = broker.client();
    const Bytes members = text_member("text", std::string(500000, 't'));
    for (int i = 0; i < 4; i++)
        ASSERT_EQ(Broker::send(sender.get(), "long", members), 0u);
    for (uint16_t i = 1; i <= 4; i++)
        EXPECT_EQ(receive_message(slow.get()), event_message(i, object, "long", members));
}

TEST_F(UbusdLimits, ClientThatAsksAndNeverReadsIsDisconnected) {
    const Fd client = broker.client();
    const Bytes ping = wire_message(UBUS_MSG_PING, 1, 0, raw_attr(UBUS_ATTR_DATA, Bytes(100000, 'x')));
    bool sent = true;
    for (int i = 0; i < 100 && sent; i++)
        sent = send_bytes(client.get(), ping);
    EXPECT_FALSE(sent);
    EXPECT_TRUE(serves());
}

TEST_F(UbusdLimits, ClientCannotAddObjectsWithoutLimit) {
    const Fd client = broker.client();
    int added = 0;
    uint32_t status = 0;
    for (int i = 0; i < 100 && status == 0; i++) {
        ASSERT_TRUE(send_bytes(client.get(), wire_message(UBUS_MSG_ADD_OBJECT, 1, 0)));
        const Bytes answer = receive_message(client.get());
        status = answer.at(1) == UBUS_MSG_DATA ? status_in(receive_message(client.get())) : status_in(answer);
        added += status == 0 ? 1 : 0;
    }
    EXPECT_EQ(added, 32);
    EXPECT_EQ(status, static_cast<uint32_t>(UBUS_STATUS_NO_MEMORY));
}

TEST_F(UbusdLimits, ObjectCannotListenForPatternsWithoutLimit) {
    const Fd client = broker.client();
    const uint32_t object = Broker::add_object(client.get());
    for (int i = 0; i < 32; i++)
        ASSERT_EQ(Broker::listen(client.get(), object, "p" + std::to_string(i)), 0u);
    EXPECT_EQ(Broker::listen(client.get(), object, "more"), static_cast<uint32_t>(UBUS_STATUS_NO_MEMORY));
}

TEST_F(UbusdLimits, ClientsBeyondTheLimitAreTurnedAway) {
    std::vector<Fd> clients;
    for (int i = 0; i < 256; i++)
        clients.push_back(broker.client());
    const Fd refused = connect_to(broker.socket());
    EXPECT_TRUE(closes(refused.get()));
    clients.pop_back();
    EXPECT_TRUE(eventually([&] {
        const Fd client = connect_to(broker.socket());
        return receive_message(client.get()).size() == 12;
    }));
}

TEST(UbusdDescriptors, ClientsThatFindNoDescriptorWaitForOne) {
    TempDir dir;
    Process process({"/bin/sh", "-c", std::string("ulimit -n 30; exec " KOLT_UBUSD " -s ") + dir.path("sock")});
    ASSERT_TRUE(eventually([&] { return connect_to(dir.path("sock")).get() >= 0; }));
    std::vector<Fd> served;
    Fd waiting;
    const auto greeted = [](int fd, int timeout) {
        pollfd entry = {fd, POLLIN, 0};
        return poll(&entry, 1, timeout) == 1;
    };
    for (int i = 0; i < 30 && waiting.get() < 0; i++) {
        Fd client = connect_to(dir.path("sock"));
        (greeted(client.get(), 500) ? served.emplace_back() : waiting) = std::move(client);
    }
    ASSERT_GE(waiting.get(), 0);
    ASSERT_FALSE(served.empty());
    served.pop_back();
    EXPECT_TRUE(greeted(waiting.get(), PATIENCE_MS));
}

class UbusdEnd : public UbusdTest, public ::testing::WithParamInterface<int> {};

TEST_P(UbusdEnd, IsOrderlyOnASignal) {
    const Fd client = broker.client();
    broker.process.signal(GetParam());
    EXPECT_EQ(broker.process.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(broker.socket()));
    EXPECT_TRUE(closes(client.get()));
}

INSTANTIATE_TEST_SUITE_P(, UbusdEnd, ::testing::Values(SIGTERM, SIGINT));

TEST_F(UbusdLimits, SecondBrokerAtTheSameSocketIsRefused) {
    Process second({KOLT_UBUSD, "-s", broker.socket()});
    EXPECT_EQ(second.wait(), 1);
    EXPECT_NE(second.errors().find("cannot listen at"), std::string::npos);
    EXPECT_TRUE(serves());
}

TEST_F(UbusdLimits, SocketLeftBehindByAKilledBrokerIsReplaced) {
    broker.process.signal(SIGKILL);
    EXPECT_EQ(broker.process.wait(), 128 + SIGKILL);
    EXPECT_TRUE(std::filesystem::exists(broker.socket()));
    Process second({KOLT_UBUSD, "-s", broker.socket()});
    EXPECT_TRUE(eventually([&] { return connect_to(broker.socket()).get() >= 0; }));
    EXPECT_TRUE(serves());
}

TEST(UbusdCommandLine, SignalRightAfterTheStartStillEndsItInOrder) {
    TempDir dir;
    for (int i = 0; i < 10; i++) {
        Process process({KOLT_UBUSD, "-s", dir.path("sock")});
        ASSERT_TRUE(eventually([&] { return std::filesystem::exists(dir.path("sock")); }));
        process.signal(SIGTERM);
        ASSERT_EQ(process.wait(), 0);
        ASSERT_FALSE(std::filesystem::exists(dir.path("sock")));
    }
}

TEST(UbusdCommandLine, FileThatIsNoSocketIsLeftAlone) {
    TempDir dir;
    dir.write("file", "content");
    Process process({KOLT_UBUSD, "-s", dir.path("file")});
    EXPECT_EQ(process.wait(), 1);
    EXPECT_EQ(std::filesystem::file_size(dir.path("file")), 7u);
}

TEST(UbusdCommandLine, WrongUsageIsExplained) {
    const std::vector<std::vector<std::string>> calls = {
        {KOLT_UBUSD, "-x"}, {KOLT_UBUSD, "-s"}, {KOLT_UBUSD, "surplus"}};
    for (const auto &call : calls) {
        Process process(call);
        EXPECT_EQ(process.wait(), 1);
        EXPECT_NE(process.errors().find("Usage:"), std::string::npos);
    }
    Process too_long({KOLT_UBUSD, "-s", "/" + std::string(120, 'x')});
    EXPECT_EQ(too_long.wait(), 1);
}

} // namespace
