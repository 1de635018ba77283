// Clients that are wrong, slow or too many: each is hung up on, and the others never notice.
#include "linux/support/server_test.h"

#include <chrono>
#include <poll.h>

namespace {

struct bad_message {
    const char *name;
    std::string (*bytes)();
};

call_request plain(call_code call) {
    call_request result{};
    result.call = call;
    memcpy(result.bridge, "br-lan", 6);
    return result;
}

// The offer of an event socket, which is to bring the socket with it.
call_request event_offer() {
    call_request result{};
    result.call = CALL_ADD_EVENT_SOCKET;
    result.values[0] = 39;
    return result;
}

std::string hello_with(uint32_t magic, uint16_t version, uint16_t kind) {
    return raw(connection_hello{.magic = magic, .version = version, .kind = kind});
}

const bad_message BAD_HELLOS[] = {
    {"WrongMagic", [] { return hello_with(REQUESTS_MAGIC + 1, REQUESTS_VERSION, CONNECTION_CALLS); }},
    {"OtherVersion", [] { return hello_with(REQUESTS_MAGIC, REQUESTS_VERSION + 1, CONNECTION_CALLS); }},
    {"UnknownKind", [] { return hello_with(REQUESTS_MAGIC, REQUESTS_VERSION, 3); }},
    {"TooShort", [] { return hello_with(REQUESTS_MAGIC, REQUESTS_VERSION, CONNECTION_CALLS).substr(1); }},
    {"TooLong", [] { return hello_with(REQUESTS_MAGIC, REQUESTS_VERSION, CONNECTION_CALLS) + "x"; }},
    {"ACallInstead", [] { return raw(plain(CALL_CHECK_BRIDGE)); }},
};

class hello_test : public server_test, public testing::WithParamInterface<bad_message> {};

TEST_P(hello_test, is_hung_up_on) {
    EXPECT_TRUE(hangs_up_after(connect_to(SOCKET_PATH), GetParam().bytes()));
    EXPECT_TRUE(serves());
}

INSTANTIATE_TEST_SUITE_P(bad, hello_test, testing::ValuesIn(BAD_HELLOS),
                         [](const auto &tested) { return std::string(tested.param.name); });

const bad_message BAD_CALLS[] = {
    {"OneByte", [] { return std::string("x"); }},
    {"OneByteShort", [] { return raw(plain(CALL_CHECK_BRIDGE)).substr(1); }},
    {"OneByteLong", [] { return raw(plain(CALL_CHECK_BRIDGE)) + "x"; }},
    {"FarTooLong", [] { return std::string(10000, 'x'); }},
    {"CallZero", [] { return raw(plain(static_cast<call_code>(0))); }},
    {"CallBehindTheLast", [] { return raw(plain(CALL_CODE_END)); }},
    {"ReservedWord",
     [] {
         call_request bad = plain(CALL_CHECK_BRIDGE);
         bad.reserved = 1;
         return raw(bad);
     }},
    {"NoBridge",
     [] {
         call_request bad = plain(CALL_CHECK_BRIDGE);
         bad.bridge[0] = '\0';
         return raw(bad);
     }},
    {"ABridgeForWhatHasNone", [] { return raw(plain(CALL_GET_ETHERNETS)); }},
    {"BridgeNotTerminated",
     [] {
         call_request bad = plain(CALL_CHECK_BRIDGE);
         memset(bad.bridge, 'x', sizeof bad.bridge);
         return raw(bad);
     }},
    {"InterfaceNotTerminated",
     [] {
         call_request bad = plain(CALL_SET_IF_TYPE);
         memset(bad.ifname, 'x', sizeof bad.ifname);
         return raw(bad);
     }},
    {"CoupleNotTerminated",
     [] {
         call_request bad = plain(CALL_SET_COUPLE);
         memset(bad.other_name, 'x', sizeof bad.other_name);
         return raw(bad);
     }},
    {"EventSocketWithoutSocket", [] { return raw(event_offer()); }},
};

class bad_call_test : public server_test, public testing::WithParamInterface<bad_message> {};

TEST_P(bad_call_test, is_hung_up_on_and_does_nothing) {
    EXPECT_TRUE(hangs_up_after(greeted(), GetParam().bytes()));
    EXPECT_EQ(node_.calls, lines{});
    EXPECT_TRUE(serves());
}

INSTANTIATE_TEST_SUITE_P(bad, bad_call_test, testing::ValuesIn(BAD_CALLS),
                         [](const auto &tested) { return std::string(tested.param.name); });

class clients_test : public server_test {};

TEST_F(clients_test, empty_message_is_an_end) {
    const unique_fd client = greeted();
    EXPECT_EQ(send(client.get(), "", 0, MSG_NOSIGNAL), 0);
    EXPECT_TRUE(was_hung_up(client));
}

TEST_F(clients_test, unwanted_descriptors_are_closed_and_their_sender_hung_up_on) {
    const size_t before = open_descriptors();
    {
        EXPECT_TRUE(hangs_up_after(connect_to(SOCKET_PATH), hello(), {0}));
        EXPECT_TRUE(hangs_up_after(greeted(), raw(plain(CALL_CHECK_BRIDGE)), {0}));
        EXPECT_TRUE(hangs_up_after(greeted(), raw(plain(CALL_CHECK_BRIDGE)), {0, 1}));
        EXPECT_TRUE(hangs_up_after(greeted(), raw(event_offer()), {0, 1}));
    }
    turn();
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(clients_test, whoever_asks_again_before_reading_is_hung_up_on) {
    const unique_fd client = greeted();
    EXPECT_TRUE(send_with(client.get(), raw(plain(CALL_CHECK_BRIDGE))));
    turn();
    EXPECT_TRUE(send_with(client.get(), raw(plain(CALL_CHECK_BRIDGE))));
    turn();
    EXPECT_EQ(receive_from(client.get())->bytes.size(), sizeof(call_reply));
    EXPECT_TRUE(was_hung_up(client));
    EXPECT_EQ(node_.calls.size(), 1U);
}

TEST_F(clients_test, whoever_never_reads_holds_nobody_up) {
    const unique_fd silent = greeted();
    EXPECT_TRUE(send_with(silent.get(), raw(plain(CALL_CHECK_BRIDGE))));
    EXPECT_TRUE(serves());
}

TEST_F(clients_test, whoever_leaves_in_the_middle_is_forgotten) {
    const size_t before = open_descriptors();
    {
        const unique_fd client = greeted();
        EXPECT_TRUE(send_with(client.get(), raw(plain(CALL_CHECK_BRIDGE))));
    }
    turn();
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_TRUE(serves());
}

TEST_F(clients_test, whoever_does_not_say_what_it_wants_has_two_seconds) {
    const unique_fd client = connect_to(SOCKET_PATH);
    const auto start = std::chrono::steady_clock::now();
    const auto waited = [&] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
    };
    while (waited() < 1500)
        (void)uloop_run_timeout(100);
    EXPECT_FALSE(receive_from(client.get()));
    while (waited() < 5000 && !receive_from(client.get()))
        (void)uloop_run_timeout(100);
    EXPECT_LT(waited(), 4500);
}

TEST_F(clients_test, one_that_is_too_much_is_hung_up_on_until_a_place_is_free) {
    std::vector<unique_fd> clients;
    for (int i = 0; i < MAX_CONNECTIONS; i++)
        clients.push_back(greeted());
    EXPECT_TRUE(was_hung_up(connect_to(SOCKET_PATH)));
    EXPECT_EQ(ask(clients.back(), request(CALL_CHECK_BRIDGE)).reply.result, 0);
    clients.pop_back();
    turn();
    EXPECT_TRUE(serves());
}

TEST_F(clients_test, without_descriptors_the_loop_rests_and_the_client_is_hung_up_on) {
    const unique_fd waiting = connect_to(SOCKET_PATH);
    const unique_fd client = connect_to(SOCKET_PATH);
    {
        const no_descriptors none;
        turn();
        EXPECT_TRUE(was_hung_up(waiting));
        EXPECT_TRUE(was_hung_up(client));
        const auto start = std::chrono::steady_clock::now();
        (void)uloop_run_timeout(50); // returns early when something is ready
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(45));
    }
    EXPECT_TRUE(serves());
}

TEST_F(clients_test, one_busy_client_leaves_a_turn_to_another) {
    const unique_fd busy = greeted(CONNECTION_NETLINK_REQUESTS);
    const unique_fd other = greeted();
    EXPECT_TRUE(send_with(other.get(), raw(plain(CALL_CHECK_BRIDGE))));
    for (int i = 0; i < 5; i++)
        EXPECT_TRUE(send_with(busy.get(), netlink_message(13, "1234")));
    (void)uloop_run_timeout(0);
    (void)uloop_run_timeout(0);
    EXPECT_THAT(node_.calls, testing::Contains("check_bridge(br-lan)"));
}

} // namespace
