// Protocol 52: registrations and moved streams, each acknowledged as netlink does it.
#include "linux/support/server_test.h"

#include <cerrno>

namespace {

class netlink_test : public server_test {
protected:
    struct acknowledgement {
        nlmsghdr header;
        nlmsgerr error;
    };
    static acknowledgement acknowledged(const unique_fd &client, const std::string &message) {
        EXPECT_TRUE(send_with(client.get(), message));
        turn();
        const std::optional<received_message> reply = receive_from(client.get());
        acknowledgement result{};
        EXPECT_TRUE(reply && reply->bytes.size() == sizeof result);
        if (reply && reply->bytes.size() == sizeof result)
            memcpy(&result, reply->bytes.data(), sizeof result);
        return result;
    }
    static std::string moved() {
        return raw(moved_stream_record{.parent_mac = {2, 0, 0, 0, 0, 1},
                                       .zero_6 = {},
                                       .src_mac = {2, 0, 0, 0, 0, 2},
                                       .dst_mac = {2, 0, 0, 0, 0, 3},
                                       .src_port = 1000,
                                       .dst_port = 2000,
                                       .protocol = 6,
                                       .path = 4,
                                       .zero_29 = {}});
    }
};

TEST_F(netlink_test, registration_is_acknowledged_with_its_own_header) {
    const acknowledgement reply =
        acknowledged(greeted(CONNECTION_NETLINK_REQUESTS), netlink_message(13, raw(uint32_t{4711}), 5, 6));
    EXPECT_EQ(node_.calls, lines{"register_neighbours(4711)"});
    EXPECT_EQ(reply.header.nlmsg_len, 36U);
    EXPECT_EQ(reply.header.nlmsg_type, NLMSG_ERROR);
    EXPECT_EQ(reply.header.nlmsg_seq, 5U);
    EXPECT_EQ(reply.header.nlmsg_pid, 6U);
    EXPECT_EQ(reply.error.error, 0);
    EXPECT_EQ(reply.error.msg.nlmsg_type, 13);
}

TEST_F(netlink_test, moved_stream_arrives_whole) {
    EXPECT_EQ(acknowledged(greeted(CONNECTION_NETLINK_REQUESTS), netlink_message(14, moved())).error.error, 0);
    EXPECT_EQ(node_.calls, lines{"moved_stream(02:00:00:00:00:01, 02:00:00:00:00:02, 02:00:00:00:00:03, 1000, 2000, "
                                 "6, 4)"});
}

TEST_F(netlink_test, what_fails_is_acknowledged_as_an_error) {
    const unique_fd client = greeted(CONNECTION_NETLINK_REQUESTS);
    node_.failures = {{"moved_stream", 1}};
    EXPECT_EQ(acknowledged(client, netlink_message(14, moved())).error.error, -EINVAL);
    EXPECT_EQ(acknowledged(client, netlink_message(15, "?")).error.error, -EOPNOTSUPP);
    open_server(request_handlers{});
    EXPECT_EQ(acknowledged(greeted(CONNECTION_NETLINK_REQUESTS), netlink_message(14, moved())).error.error, -EINVAL);
}

TEST_F(netlink_test, malformed_message_is_hung_up_on) {
    const std::string good = netlink_message(13, "1234");
    for (const std::string &bad : {good.substr(0, 15), good + "x", good.substr(0, 19), netlink_message(13, "12345678"),
                                   netlink_message(14, moved() + "1234"), netlink_message(14, "1234")})
        EXPECT_TRUE(hangs_up_after(greeted(CONNECTION_NETLINK_REQUESTS), bad)) << bad.size();
    EXPECT_TRUE(hangs_up_after(greeted(CONNECTION_NETLINK_REQUESTS), good, {0}));
    EXPECT_EQ(node_.calls, lines{});
}

} // namespace
