// The real server, turned by the test itself, and clients that send it bytes.
#pragma once

#include "bridged/requests/loop.h"
#include "bridged/requests/server.h"
#include "linux/support/raw_socket.h"
#include "linux/support/recorded_node.h"
#include "support/sandbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <linux/netlink.h>

constexpr const char *SOCKET_PATH = "/run/kolt-bridged/socket";

using lines = std::vector<std::string>;

class server_test : public testing::Test {
protected:
    server_test() {
        std::filesystem::create_directories("/run/kolt-bridged");
        EXPECT_EQ(uloop_init(), 0);
        open_server();
    }
    ~server_test() override {
        requests_close(server_);
        uloop_done();
    }

    void open_server() {
        server_ = requests_open(SOCKET_PATH, node_.handlers());
        EXPECT_NE(server_, nullptr) << strerror(errno);
    }
    void open_server(const request_handlers &handlers) {
        requests_close(server_);
        server_ = requests_open(SOCKET_PATH, handlers);
        EXPECT_NE(server_, nullptr) << strerror(errno);
    }

    // Lets the server do all that it has to do now.
    static void turn() {
        constexpr int ENOUGH = 400;
        for (int i = 0; i < ENOUGH; i++)
            (void)uloop_run_timeout(0);
    }

    static std::string hello(connection_kind kind = CONNECTION_CALLS) {
        return raw(connection_hello{.magic = REQUESTS_MAGIC, .version = REQUESTS_VERSION, .kind = kind});
    }
    static unique_fd greeted(connection_kind kind = CONNECTION_CALLS) {
        unique_fd client = connect_to(SOCKET_PATH);
        EXPECT_TRUE(send_with(client.get(), hello(kind)));
        turn();
        return client;
    }

    static call_request request(call_code call, const std::string &bridge = "br-lan", const std::string &ifname = "") {
        call_request result{};
        result.sequence = 7;
        result.call = call;
        memcpy(result.bridge, bridge.data(), bridge.size());
        memcpy(result.ifname, ifname.data(), ifname.size());
        return result;
    }

    // Sends a request, lets the server work and returns the reply, which must come.
    struct answered {
        call_reply reply{};
        unique_fd table{-1};
    };
    static answered ask(const unique_fd &client, const call_request &request,
                        std::initializer_list<int> descriptors = {}) {
        EXPECT_TRUE(send_with(client.get(), raw(request), descriptors));
        turn();
        std::optional<received_message> message = receive_from(client.get());
        answered answer;
        EXPECT_TRUE(message && message->bytes.size() == sizeof answer.reply);
        if (message && message->bytes.size() == sizeof answer.reply) {
            memcpy(&answer.reply, message->bytes.data(), sizeof answer.reply);
            answer.table = std::move(message->descriptor);
        }
        return answer;
    }

    // Whether the server hung up on a client, at once.
    static bool was_hung_up(const unique_fd &client) {
        turn();
        const std::optional<received_message> message = receive_from(client.get());
        return message && message->bytes.empty();
    }
    static bool hangs_up_after(const unique_fd &client, const std::string &bytes,
                               std::initializer_list<int> descriptors = {}) {
        EXPECT_TRUE(send_with(client.get(), bytes, descriptors));
        return was_hung_up(client);
    }
    // Whether another client is served as ever.
    static bool serves() {
        return ask(greeted(), request(CALL_CHECK_BRIDGE)).reply.result == 0;
    }

    recorded_node node_;
    requests_server *server_ = nullptr;
};
