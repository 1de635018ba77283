// Event sockets: handed over, written to, and forgotten.
#include "linux/support/server_test.h"

namespace {

struct socket_pair {
    unique_fd mine{-1};
    unique_fd handed{-1};
};

class event_test : public server_test {
protected:
    static socket_pair open_pair(int type = SOCK_DGRAM) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends), 0);
        return {.mine = unique_fd(ends[0]), .handed = unique_fd(ends[1])};
    }
    static call_request offer(int32_t protocol) {
        call_request result{};
        result.call = CALL_ADD_EVENT_SOCKET;
        result.values[0] = protocol;
        result.values[1] = 4711;
        return result;
    }
    static int hand_over(const unique_fd &client, int32_t protocol, const unique_fd &socket) {
        return ask(client, offer(protocol), {socket.get()}).reply.result;
    }
    static std::string received(const unique_fd &fd) {
        const std::optional<received_message> message = receive_from(fd.get());
        return message ? message->bytes : "";
    }
    int send_event(int32_t protocol, uint16_t type, const std::string &payload) {
        return requests_send_event(server_, protocol, type, payload.data(), payload.size());
    }
};

TEST_F(event_test, arrives_as_a_netlink_message_on_its_protocol_alone) {
    const unique_fd client = greeted();
    const socket_pair bridge = open_pair();
    const socket_pair neighbour = open_pair();
    EXPECT_EQ(hand_over(client, 39, bridge.handed), 0);
    EXPECT_EQ(hand_over(client, 53, neighbour.handed), 0);
    EXPECT_EQ(node_.calls, (lines{"event_socket_added(39, 4711)", "event_socket_added(53, 4711)"}));
    EXPECT_EQ(send_event(39, 5, "payload"), 1);
    EXPECT_EQ(received(bridge.mine), netlink_message(5, "payload"));
    EXPECT_EQ(received(neighbour.mine), "");
    EXPECT_EQ(send_event(53, 4, ""), 1);
    EXPECT_EQ(received(neighbour.mine), netlink_message(4, ""));
}

TEST_F(event_test, of_any_other_protocol_is_hung_up_on) {
    const socket_pair pair = open_pair();
    EXPECT_TRUE(hangs_up_after(greeted(), raw(offer(52)), {pair.handed.get()}));
}

TEST_F(event_test, goes_once_to_a_socket_that_came_twice) {
    const unique_fd parent = greeted();
    unique_fd child = greeted();
    const socket_pair pair = open_pair();
    EXPECT_EQ(hand_over(parent, 39, pair.handed), 0);
    EXPECT_EQ(hand_over(child, 39, pair.handed), 0);
    EXPECT_EQ(send_event(39, 5, "once"), 1);
    EXPECT_NE(received(pair.mine), "");
    EXPECT_EQ(received(pair.mine), "");
    child.reset();
    turn();
    EXPECT_EQ(send_event(39, 5, "again"), 1);
}

TEST_F(event_test, is_dropped_by_a_socket_without_room_and_holds_nobody_up) {
    const unique_fd client = greeted();
    const socket_pair full = open_pair();
    const socket_pair other = open_pair();
    EXPECT_EQ(hand_over(client, 39, full.handed), 0);
    const std::string payload(MAX_EVENT_PAYLOAD, 'x');
    int taken = 0;
    while (taken < 100000 && send_event(39, 5, payload) == 1)
        taken++;
    EXPECT_GT(taken, 10);
    EXPECT_LT(taken, 100000);
    EXPECT_EQ(hand_over(client, 39, other.handed), 0);
    EXPECT_EQ(send_event(39, 5, "next"), 1);
    while (!received(full.mine).empty())
        continue;
    EXPECT_EQ(send_event(39, 5, "next"), 2); // it was not forgotten
}

TEST_F(event_test, has_as_much_room_as_the_server_may_give_it) {
    const auto room_of = [](const unique_fd &fd) {
        int room = 0;
        socklen_t size = sizeof room;
        EXPECT_EQ(getsockopt(fd.get(), SOL_SOCKET, SO_SNDBUF, &room, &size), 0);
        return room;
    };
    const socket_pair pair = open_pair();
    const int wanted = 1 << 20;
    const bool allowed =
        setsockopt(pair.mine.get(), SOL_SOCKET, SO_SNDBUFFORCE, &wanted, sizeof wanted) == 0; // on the other end
    const int before = room_of(pair.handed);
    EXPECT_EQ(hand_over(greeted(), 39, pair.handed), 0);
    EXPECT_EQ(room_of(pair.handed), allowed ? room_of(pair.mine) : before);
}

TEST_F(event_test, ends_with_the_other_end_of_its_socket) {
    const unique_fd client = greeted();
    socket_pair pair = open_pair();
    EXPECT_EQ(hand_over(client, 39, pair.handed), 0);
    pair.handed.reset();
    const size_t before = open_descriptors();
    pair.mine.reset();
    EXPECT_EQ(send_event(39, 5, "lost"), 0);
    EXPECT_EQ(open_descriptors(), before - 2); // the server's share too
}

TEST_F(event_test, ends_with_the_connection_that_its_socket_came_by) {
    unique_fd client = greeted();
    const unique_fd other = greeted();
    const socket_pair pair = open_pair();
    const socket_pair kept = open_pair();
    EXPECT_EQ(hand_over(client, 39, pair.handed), 0);
    EXPECT_EQ(hand_over(other, 39, kept.handed), 0);
    client.reset();
    turn();
    EXPECT_EQ(send_event(39, 5, "x"), 1);
    EXPECT_EQ(received(pair.mine), "");
    EXPECT_NE(received(kept.mine), "");
}

TEST_F(event_test, socket_of_another_kind_is_refused) {
    const unique_fd client = greeted();
    EXPECT_NE(hand_over(client, 39, open_pair(SOCK_STREAM).handed), 0);
    EXPECT_NE(hand_over(client, 39, unique_fd(dup(0))), 0);
    EXPECT_EQ(node_.calls, lines{});
}

TEST_F(event_test, socket_that_is_too_much_is_refused) {
    const unique_fd client = greeted();
    std::vector<socket_pair> pairs;
    for (int i = 0; i < MAX_EVENT_SOCKETS; i++) {
        pairs.push_back(open_pair());
        EXPECT_EQ(hand_over(client, 39, pairs.back().handed), 0);
    }
    EXPECT_NE(hand_over(client, 39, open_pair().handed), 0);
    EXPECT_EQ(send_event(39, 5, "x"), MAX_EVENT_SOCKETS);
}

TEST_F(event_test, of_too_large_a_payload_is_not_sent) {
    const unique_fd client = greeted();
    const socket_pair pair = open_pair();
    EXPECT_EQ(hand_over(client, 39, pair.handed), 0);
    EXPECT_EQ(send_event(39, 5, std::string(MAX_EVENT_PAYLOAD + 1, 'x')), 0);
}

} // namespace
