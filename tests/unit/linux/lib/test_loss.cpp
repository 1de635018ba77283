// A kolt-bridged that hangs, dies in the middle, talks rubbish or was started anew; a process that forks, or that
// closes what is not its own.
#include "linux/support/library_test.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>

namespace {

using namespace std::chrono_literals;

int flush() {
    return bridgeFlushHDTable("br-lan");
}

// The request that a client sent, after its greeting.
call_request take_request(int connection) {
    char greeting[sizeof(connection_hello)];
    call_request request{};
    if (recv(connection, greeting, sizeof greeting, 0) < 0 || recv(connection, &request, sizeof request, 0) < 0)
        _exit(1);
    return request;
}

call_reply reply_to(const call_request &request) {
    return {.sequence = request.sequence, .result = 0, .count = 0, .record_size = 0};
}

class loss_test : public library_test {};

TEST_F(loss_test, hanging_kolt_bridged_costs_two_seconds_once_and_little_from_then_on) {
    server_process server;
    EXPECT_EQ(flush(), 0);
    server.process().stop();
    const auto first = time_of([] { EXPECT_EQ(flush(), -1); });
    EXPECT_GE(first, 1900ms);
    EXPECT_LT(first, 3800ms);
    const auto further = time_of([] {
        for (int i = 0; i < 3; i++)
            EXPECT_EQ(flush(), -1);
    });
    EXPECT_LT(further, 1900ms);
    server.process().resume();
    for (int i = 0; i < 50 && flush() != 0; i++)
        usleep(10000);
    (void)server.calls();
    EXPECT_EQ(flush(), 0);
    EXPECT_EQ(server.calls(), lines{"flush_hd_table(br-lan)"});
}

TEST_F(loss_test, patience_comes_back_with_an_answer) {
    server_process server;
    server.process().stop();
    EXPECT_EQ(flush(), -1);
    server.process().resume();
    for (int i = 0; i < 50 && flush() != 0; i++)
        usleep(10000);
    server.process().stop();
    EXPECT_GE(time_of([] { EXPECT_EQ(flush(), -1); }), 1900ms);
}

TEST_F(loss_test, full_queue_of_connections_is_waited_for_no_longer_than_an_answer) {
    // Nobody takes these connections in, and there is room for two.
    const other_process deaf([](int control) {
        const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        const sockaddr_un address = socket_address(SOCKET_PATH);
        if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 || listen(fd, 1) != 0 ||
            send(control, "!", 1, 0) != 1)
            _exit(1);
        (void)pause();
    });
    const unique_fd first = connect_to(SOCKET_PATH);
    const unique_fd second = connect_to(SOCKET_PATH);
    const auto waited = time_of([] { EXPECT_EQ(flush(), -1); });
    EXPECT_GE(waited, 1900ms);
    EXPECT_LT(waited, 3800ms);
    EXPECT_LT(time_of([] { EXPECT_EQ(socket(AF_NETLINK, SOCK_DGRAM, 52), -1); }), 1500ms);
}

TEST_F(loss_test, kolt_bridged_that_dies_in_the_middle_fails_the_call_at_once_and_is_not_asked_twice) {
    const auto server = serve_badly([](int connection) { // and hangs up
        (void)take_request(connection);
        const unique_fd asked(open("/run/asked", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        if (write(asked.get(), ".", 1) != 1)
            _exit(1);
    });
    for (uintmax_t call = 1; call <= 3; call++) {
        EXPECT_LT(time_of([] { EXPECT_EQ(flush(), -1); }), 1500ms);
        EXPECT_EQ(std::filesystem::file_size("/run/asked"), call);
    }
}

TEST_F(loss_test, kolt_bridged_that_refuses_everybody_fails_the_call_at_once) {
    const auto server = serve_badly([](int) {});
    EXPECT_LT(time_of([] { EXPECT_EQ(flush(), -1); }), 1500ms);
    EXPECT_LT(time_of([] { EXPECT_EQ(socket(AF_NETLINK, SOCK_RAW, 39), -1); }), 1500ms);
}

TEST_F(loss_test, kolt_bridged_that_was_started_anew_is_asked_without_a_failure) {
    server_process first;
    EXPECT_EQ(flush(), 0);
    first.process().end();
    EXPECT_EQ(flush(), -1);
    server_process second;
    EXPECT_EQ(flush(), 0);
    second.process().end();
    server_process third;
    EXPECT_EQ(flush(), 0);
    EXPECT_EQ(third.calls(), lines{"flush_hd_table(br-lan)"});
}

TEST_F(loss_test, event_sockets_are_handed_over_again) {
    server_process first;
    const unique_fd bridge(socket(AF_NETLINK, SOCK_RAW, 39));
    const unique_fd neighbour(socket(AF_NETLINK, SOCK_RAW, 53));
    unique_fd closed(socket(AF_NETLINK, SOCK_RAW, 53));
    first.process().end();
    closed.reset();
    server_process second;
    EXPECT_EQ(flush(), 0);
    const std::string pid = std::to_string(getpid());
    EXPECT_EQ(second.calls(), (lines{"event_socket_added(39, " + pid + ")", "event_socket_added(53, " + pid + ")",
                                     "flush_hd_table(br-lan)"}));
    EXPECT_EQ(second.send_event(39, 5, "x"), 1);
    EXPECT_EQ(received(bridge.get()), netlink_message(5, "x"));
    EXPECT_EQ(second.send_event(53, 4, "y"), 1);
    EXPECT_EQ(received(neighbour.get()), netlink_message(4, "y"));
}

TEST_F(loss_test, making_a_buffer_is_enough_to_hand_them_over_again) {
    server_process first;
    const unique_fd bridge(socket(AF_NETLINK, SOCK_RAW, 39));
    first.process().end();
    server_process second;
    bridgeFreeTableBuf(bridgeAllocTableBuf(8, "br-lan"));
    EXPECT_EQ(second.send_event(39, 5, "x"), 1);
}

TEST_F(loss_test, socket_stays_open_and_silent_while_kolt_bridged_is_away) {
    server_process server;
    const unique_fd bridge(socket(AF_NETLINK, SOCK_RAW, 39));
    server.process().end();
    pollfd watched{.fd = bridge.get(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&watched, 1, 20), 0);
}

TEST_F(loss_test, forked_process_has_a_connection_of_its_own) {
    server_process server;
    EXPECT_EQ(flush(), 0);
    for (int i = 0; i < 20; i++) {
        const pid_t child = fork();
        if (child == 0)
            _exit(flush() == 0 && flush() == 0 ? 0 : 1);
        EXPECT_EQ(flush(), 0);
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(server.calls().size(), 61U);
}

TEST_F(loss_test, program_that_is_executed_inherits_nothing) {
    const server_process server;
    const unique_fd bridge(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, 39));
    EXPECT_EQ(flush(), 0);
    EXPECT_EQ(uci_get_eth_port_num(std::array<int, 1>{}.data()), 0);
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename());
        std::error_code error;
        const std::string target = std::filesystem::read_symlink(entry, error);
        EXPECT_TRUE(!target.starts_with("socket:") || fcntl(fd, F_GETFD) == FD_CLOEXEC) << target;
    }
}

TEST_F(loss_test, descriptor_that_somebody_else_closed_and_used_is_left_alone) {
    const server_process server;
    unique_fd lowest(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int number = lowest.get();
    lowest.reset();
    EXPECT_EQ(flush(), 0); // the connection has that number now
    close(number);
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends), 0);
    ASSERT_EQ(ends[0], number);
    EXPECT_EQ(flush(), 0);
    EXPECT_FALSE(receive_from(ends[1])); // neither written to nor closed
    EXPECT_TRUE(send_with(ends[0], "mine"));
    close(ends[0]);
    close(ends[1]);
}

// What a table's reply may be, wrong in one thing.
struct rubbish {
    const char *name;
    void (*answer)(int connection, const call_request &request);
};

int file_of(size_t size) {
    const int file = memfd_create("table", MFD_CLOEXEC);
    return ftruncate(file, static_cast<off_t>(size)) == 0 ? file : -1;
}

call_reply two_records(const call_request &request) {
    call_reply reply = reply_to(request);
    reply.count = 2;
    reply.record_size = 16;
    return reply;
}

const rubbish RUBBISH[] = {
    {"OneByteShort", [](int to, const call_request &request) { send_with(to, raw(two_records(request)).substr(1)); }},
    {"OneByteLong",
     [](int to, const call_request &request) { send_with(to, raw(two_records(request)) + "x", {file_of(32)}); }},
    {"FarTooLong", [](int to, const call_request &) { send_with(to, std::string(5000, 'x')); }},
    {"OtherSequence",
     [](int to, const call_request &request) {
         call_reply reply = two_records(request);
         reply.sequence++;
         send_with(to, raw(reply), {file_of(32)});
     }},
    {"NoFile", [](int to, const call_request &request) { send_with(to, raw(two_records(request))); }},
    {"TwoFiles",
     [](int to, const call_request &request) {
         send_with(to, raw(two_records(request)), {file_of(32), file_of(32)});
     }},
    {"ShortFile", [](int to, const call_request &request) { send_with(to, raw(two_records(request)), {file_of(31)}); }},
    {"LongFile", [](int to, const call_request &request) { send_with(to, raw(two_records(request)), {file_of(33)}); }},
    {"ASocketForAFile", [](int to, const call_request &request) { send_with(to, raw(two_records(request)), {to}); }},
    {"FileForAFailure",
     [](int to, const call_request &request) {
         call_reply reply = reply_to(request);
         reply.result = 1;
         send_with(to, raw(reply), {file_of(32)});
     }},
    {"FileForNoRecords",
     [](int to, const call_request &request) {
         call_reply reply = reply_to(request);
         reply.record_size = 16;
         send_with(to, raw(reply), {file_of(0)});
     }},
    {"OtherRecordSize",
     [](int to, const call_request &request) {
         call_reply reply = two_records(request);
         reply.record_size = 24;
         send_with(to, raw(reply), {file_of(48)});
     }},
    {"MoreThanAnyBridgeHas",
     [](int to, const call_request &request) {
         call_reply reply = two_records(request);
         reply.count = MAX_TABLE_RECORDS + 1;
         send_with(to, raw(reply), {file_of(80)});
     }},
    {"Greeting", [](int to, const call_request &) { send_with(to, "hello"); }},
};

class rubbish_test : public library_test, public testing::WithParamInterface<rubbish> {};

TEST_P(rubbish_test, fails_the_call_at_once_and_leaves_nothing_open) {
    const auto server = serve_badly([](int connection) {
        const call_request request = take_request(connection);
        GetParam().answer(connection, request);
        char byte;
        (void)!recv(connection, &byte, sizeof byte, 0); // the client hangs up
    });
    const size_t before = open_descriptors();
    char buffer[80];
    memset(buffer, '?', sizeof buffer);
    const auto waited = time_of([&] {
        for (int i = 0; i < 3; i++) {
            uint32_t entries = 5;
            EXPECT_EQ(bridgeTableAction("br-lan", 2, &entries, buffer, 0), -1);
            EXPECT_EQ(entries, 0U);
        }
    });
    EXPECT_LT(waited, 1500ms);
    EXPECT_LE(open_descriptors(), before + 1); // the connection, where it may go on
    EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(sizeof buffer, '?'));
}

INSTANTIATE_TEST_SUITE_P(answers, rubbish_test, testing::ValuesIn(RUBBISH),
                         [](const auto &tested) { return std::string(tested.param.name); });

TEST_F(loss_test, good_answer_from_the_same_server_is_taken) {
    const auto server = serve_badly([](int connection) {
        const call_request request = take_request(connection);
        send_with(connection, raw(two_records(request)), {file_of(32)});
        (void)pause();
    });
    char buffer[80];
    uint32_t entries = 5;
    EXPECT_EQ(bridgeTableAction("br-lan", 2, &entries, buffer, 0), 0);
    EXPECT_EQ(entries, 2U);
}

TEST_F(loss_test, result_of_a_call_without_a_table_brings_none) {
    const auto server = serve_badly([](int connection) {
        const call_request request = take_request(connection);
        call_reply reply = reply_to(request);
        reply.count = 1;
        send_with(connection, raw(reply));
        (void)pause();
    });
    EXPECT_EQ(flush(), -1);
}

} // namespace
