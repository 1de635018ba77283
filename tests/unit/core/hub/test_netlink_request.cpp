// One-shot requests to the kernel.
#include "hub_test.h"
#include "netlink_bytes.h"
#include "support/sandbox.h"

#include "core/hub/netlink_request.h"

#include <algorithm>
#include <cstdint>
#include <fcntl.h>
#include <numeric>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace {

class Request : public hub_test {
protected:
    Request() {
        memset(buffer, 0, sizeof buffer);
    }
    int send(uint32_t payload_length, uint16_t type = 14, int protocol = 52) {
        return kolt_netlink_msg(type, buffer, payload_length, protocol);
    }
    // Expects that a request fails with this message alone, and leaves no descriptor behind.
    void expect_failure(const char *text) {
        const size_t before = open_descriptors();
        EXPECT_EQ(send(4), 0);
        EXPECT_THAT(logged(), testing::ElementsAre(log_line{3, "kolt_netlink_msg", text}));
        close_peer();
        EXPECT_EQ(open_descriptors(), before);
    }
    // The test's own end of the socket.
    static void close_peer() {
        for (const auto &[protocol, fd] : netlink.peers)
            close(fd);
        netlink.peers.clear();
    }
    [[nodiscard]] std::string bytes(size_t size) const {
        return {reinterpret_cast<const char *>(buffer), size};
    }
    alignas(nlmsghdr) uint8_t buffer[128];
    kolt_wait_budget budget{.left_ms = 2000};
};

struct length_row {
    uint32_t payload;
    uint32_t message;
};

volatile sig_atomic_t signals;

void answer_on_third(int /*number*/) {
    signals = signals + 1;
    if (signals == 3)
        (void)send(netlink.peers.at(52), "late reply", 10, 0);
}

// From then on poll() itself fails: it is asked about more descriptors than the process may have.
void forbid_descriptors(int /*number*/) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 0;
    setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

TEST_F(Request, RequestUsesADatagramSocketOfTheCallersProtocol) {
    EXPECT_EQ(send(4, 13, 53), 1);
    EXPECT_THAT(netlink.calls, testing::ElementsAre("socket(16, 2, 53)", "bind(53, pid own, groups 0)"));
}

TEST_F(Request, RequestGoesToTheKernel) {
    EXPECT_EQ(send(4), 1);
    ASSERT_EQ(netlink.requests.size(), 1U);
    EXPECT_EQ(netlink.requests[0].pid, 0U);
    EXPECT_EQ(netlink.requests[0].groups, 0U);
}

TEST_F(Request, LengthIsPaddedToAMultipleOfFour) {
    for (const length_row &row : {length_row{0, 16}, {1, 20}, {3, 20}, {4, 20}, {5, 24}, {31, 48}, {32, 48}}) {
        netlink.requests.clear();
        EXPECT_EQ(send(row.payload), 1);
        ASSERT_EQ(netlink.requests.size(), 1U);
        EXPECT_EQ(netlink.requests[0].bytes.size(), row.message) << row.payload;
        EXPECT_EQ(netlink.requests[0].bytes.substr(0, 4), host_order(row.message)) << row.payload;
    }
}

TEST_F(Request, HeaderIsFilledAndTheSequenceAndPayloadAreTheCallers) {
    const std::string before = netlink_header(0xAAAAAAAA, 0xBBBB, 0xCCCC, 0x11223344, 0xDDDDDDDD) + "load";
    memcpy(buffer, before.data(), before.size());
    EXPECT_EQ(send(4, 0x1234), 1);
    ASSERT_EQ(netlink.requests.size(), 1U);
    EXPECT_EQ(netlink.requests[0].bytes,
              netlink_header(20, 0x1234, 0, 0x11223344, static_cast<uint32_t>(getpid())) + "load");
}

TEST_F(Request, SocketDoesNotBlock) {
    EXPECT_EQ(send(4), 1);
    ASSERT_EQ(netlink.requests.size(), 1U);
    EXPECT_NE(netlink.requests[0].status_flags & O_NONBLOCK, 0);
}

TEST_F(Request, BufferSizesAreForcedToTheMessageLength) {
    EXPECT_EQ(send(4), 1);
    EXPECT_EQ(send(32), 1);
    EXPECT_THAT(netlink.options, testing::ElementsAre("SO_SNDBUFFORCE 20", "SO_RCVBUFFORCE 20", "SO_SNDBUFFORCE 48",
                                                      "SO_RCVBUFFORCE 48"));
}

TEST_F(Request, ReplyOverwritesTheBuffer) {
    netlink.replies = {"01234567890123456789"};
    EXPECT_EQ(send(4), 1);
    EXPECT_EQ(bytes(20), "01234567890123456789");
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Request, AnyReplyIsSuccess) {
    netlink.replies = {"x", std::string(20, '\0'), netlink_header(16, 2)};
    EXPECT_EQ(send(4), 1);
    EXPECT_EQ(send(4), 1);
    EXPECT_EQ(send(4), 1);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Request, LongReplyIsCutAtTheMessageLength) {
    memset(buffer + 20, 'c', sizeof buffer - 20);
    netlink.replies = {std::string(100, 'r')};
    EXPECT_EQ(send(4), 1);
    EXPECT_EQ(bytes(128), std::string(20, 'r') + std::string(108, 'c'));
}

TEST_F(Request, EmptyReplyIsAFailedReceive) {
    netlink.replies = {""};
    expect_failure("Error: netlink socket receive failed\n");
}

TEST_F(Request, SocketFailureIsLogged) {
    netlink.socket_errors[52] = EMFILE;
    expect_failure("Error: netlink socket create failed\n");
    EXPECT_THAT(netlink.requests, testing::IsEmpty());
}

TEST_F(Request, FcntlFailureIsLogged) {
    netlink.fcntl_error = EBADF;
    expect_failure("Error: fcntl():");
    EXPECT_THAT(netlink.calls, testing::ElementsAre("socket(16, 2, 52)")); // nothing was bound
}

TEST_F(Request, BindFailureIsIgnored) {
    netlink.bind_errors[52] = EADDRINUSE;
    EXPECT_EQ(send(4), 1);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Request, SendBufferFailureIsLogged) {
    netlink.setsockopt_option = SO_SNDBUFFORCE;
    netlink.setsockopt_error = EPERM;
    expect_failure("Error: Setsockopt SO_SNDBUF: ");
    EXPECT_THAT(netlink.options, testing::ElementsAre("SO_SNDBUFFORCE 20"));
    EXPECT_THAT(netlink.requests, testing::IsEmpty());
}

TEST_F(Request, ReceiveBufferFailureIsLogged) {
    netlink.setsockopt_option = SO_RCVBUFFORCE;
    netlink.setsockopt_error = EPERM;
    expect_failure("Error: Setsockopt SO_RCVBUF: ");
    EXPECT_THAT(netlink.requests, testing::IsEmpty());
}

TEST_F(Request, SendFailureIsLogged) {
    netlink.sendto_error = ECONNREFUSED;
    expect_failure("Error: netlink socket send failed\n");
}

TEST_F(Request, UnansweredRequestEndsAfterASecondWithoutAMessage) {
    netlink.silent = true;
    const size_t before = open_descriptors();
    const stopwatch watch;
    EXPECT_EQ(send(4), 0);
    EXPECT_GE(watch.ms(), 999);
    EXPECT_LT(watch.ms(), 5000);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
    close_peer();
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Request, SignalsDoNotShortenTheWait) {
    netlink.silent = true;
    const repeated_signal alarm(70, ignore_signal);
    const stopwatch watch;
    EXPECT_EQ(send(4), 0);
    EXPECT_GE(watch.ms(), 999);
    EXPECT_LT(watch.ms(), 5000);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Request, SignalLateInTheWaitDoesNotProlongIt) {
    netlink.silent = true;
    int64_t shortest_ms = INT64_MAX; // a busy machine prolongs some, a wait that begins again after the signal all
    for (int tries = 0; tries < 5 && shortest_ms >= 1700; tries++) {
        const repeated_signal alarm(900, ignore_signal);
        const stopwatch watch;
        EXPECT_EQ(send(4), 0);
        shortest_ms = std::min(shortest_ms, watch.ms());
        EXPECT_GE(shortest_ms, 999);
    }
    EXPECT_LT(shortest_ms, 1700);
}

TEST_F(Request, ReplyAfterAnInterruptedPollIsReceived) {
    netlink.silent = true;
    signals = 0;
    const repeated_signal alarm(50, answer_on_third);
    EXPECT_EQ(send(4), 1);
    EXPECT_EQ(bytes(10), "late reply");
    EXPECT_GE(signals, 3);
}

TEST_F(Request, PollErrorGivesZeroWithoutAMessage) {
    netlink.silent = true;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const stopwatch watch;
    {
        const repeated_signal alarm(50, forbid_descriptors);
        EXPECT_EQ(send(4), 0);
    }
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_LT(watch.ms(), 999);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Request, DescriptorsAreClosedAfterSuccess) {
    const size_t before = open_descriptors();
    EXPECT_EQ(send(4), 1);
    close_peer();
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Request, OnlyADescriptorAboveZeroIsClosed) {
    const int kept = fcntl(0, F_DUPFD_CLOEXEC, 3);
    close(0);
    EXPECT_EQ(send(4), 1);
    EXPECT_EQ(netlink.protocols.count(0), 1U); // the socket was descriptor 0
    EXPECT_GE(fcntl(0, F_GETFD), 0);
    dup2(kept, 0);
    close(kept);
}

// A child that asks again still uses the port id that its parent's first request cached.
TEST_F(Request, ProcessIdIsCachedOnFirstUse) {
    EXPECT_EQ(send(4), 1);
    const auto parent = static_cast<uint32_t>(getpid());
    const pid_t child = fork();
    if (child == 0) {
        netlink.requests.clear();
        netlink.calls.clear();
        const bool sent = send(4) == 1;
        const bool same = netlink.requests.size() == 1 &&
                          netlink.requests[0].bytes == netlink_header(20, 14, 0, 0, parent) + std::string(4, '\0') &&
                          netlink.calls.back() == "bind(52, pid " + std::to_string(parent) + ", groups 0)";
        _exit(sent && same ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(Request, NotifyIsA48ByteMessageWithTheRecordVerbatim) {
    std::string record;
    for (char byte = 1; byte <= 32; byte++)
        record += byte;
    const std::string before = record;
    EXPECT_EQ(kolt_send_notify_msg(record.data(), &budget), 1);
    EXPECT_EQ(record, before); // the reply overwrites a copy
    ASSERT_EQ(netlink.requests.size(), 1U);
    EXPECT_EQ(netlink.requests[0].bytes.size(), 48U);
    EXPECT_EQ(netlink.requests[0].bytes, netlink_header(48, 14, 0, 0, static_cast<uint32_t>(getpid())) + record);
    EXPECT_THAT(netlink.calls, testing::ElementsAre("socket(16, 2, 52)", "bind(52, pid own, groups 0)"));
}

TEST_F(Request, NotifyGivesTheResultOfItsRequest) {
    netlink.sendto_error = EPERM;
    const std::string record(32, 'r');
    EXPECT_EQ(kolt_send_notify_msg(record.data(), &budget), 0);
    EXPECT_THAT(logged(), testing::ElementsAre(log_line{3, "kolt_netlink_msg", "Error: netlink socket send failed\n"}));
}

TEST_F(Request, RowOfRequestsWithoutAReplyWaitsNoLongerThanItsBudget) {
    netlink.silent = true;
    const std::string record(32, 'r');
    std::vector<int64_t> waits;
    budget.left_ms = 1300;
    for (int i = 0; i < 20; i++) {
        const stopwatch watch;
        EXPECT_EQ(kolt_send_notify_msg(record.data(), &budget), 0);
        waits.push_back(watch.ms());
    }
    EXPECT_EQ(netlink.requests.size(), 20U) << "all are sent";
    EXPECT_NEAR(static_cast<double>(waits[0]), 1000, 100);
    EXPECT_NEAR(static_cast<double>(waits[1]), 300, 100);
    EXPECT_LT(std::accumulate(waits.begin() + 2, waits.end(), int64_t{0}), 100);
    EXPECT_EQ(budget.left_ms, 0);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Request, ReplyThatIsThereAtOnceCountsWithoutABudget) {
    budget.left_ms = 0;
    const std::string record(32, 'r');
    EXPECT_EQ(kolt_send_notify_msg(record.data(), &budget), 1);
}

TEST_F(Request, ReplyThatIsThereAtOnceLeavesTheBudgetWhole) {
    const std::string record(32, 'r');
    for (int i = 0; i < 100; i++)
        EXPECT_EQ(kolt_send_notify_msg(record.data(), &budget), 1);
    EXPECT_GT(budget.left_ms, 1900);
}
