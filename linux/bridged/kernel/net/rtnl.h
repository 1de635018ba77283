// Requests to the kernel's route netlink: one message, many in one go, or a dump. Every result is 0 or an errno;
// nothing here waits for longer than RTNL_WAIT_MS.
#pragma once

#include "core/handle.h"
#include "kernel/net/callback.h"

#include <libmnl/libmnl.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <linux/netlink.h>
#include <string_view>

constexpr int RTNL_WAIT_MS = 2000;           // for all answers to one request, dump or part of a batch
constexpr size_t RTNL_ERROR_TEXT_SIZE = 128; // the kernel's own words are cut to this, terminator included

// One message with room for the attributes of any request here.
struct rtnl_message {
    alignas(NLMSG_ALIGNTO) std::array<std::byte, 512> bytes;
    nlmsghdr *header = nullptr;

    // `flags` goes without NLM_F_REQUEST, which every message gets.
    rtnl_message(uint16_t type, uint16_t flags);
    rtnl_message(const rtnl_message &) = delete;
    rtnl_message &operator=(const rtnl_message &) = delete;

    // Appends the zeroed fixed head that follows the netlink header, such as an ifinfomsg.
    template <class Head> Head *head() {
        return static_cast<Head *>(mnl_nlmsg_put_extra_header(header, sizeof(Head)));
    }
};

// What the kernel said about a message that it refused. The text is the kernel's, or that of the errno; never empty.
struct rtnl_error {
    int code = 0;
    std::array<char, RTNL_ERROR_TEXT_SIZE> text{};
};

// The kernel's own words in an answer that refuses something; empty when there are none.
[[nodiscard]] std::string_view rtnl_words(const nlmsghdr &answer);

class rtnl_socket {
public:
    // Opens a socket for requests, to `protocol` of netlink (route, unless said otherwise).
    [[nodiscard]] int open(int protocol = NETLINK_ROUTE);
    void close();
    [[nodiscard]] bool is_open() const;

    // Sends one message and waits for the kernel's word on it.
    [[nodiscard]] int request(rtnl_message &message);

    // Sends one message whose answer is a single message, which is handed to `answer`.
    [[nodiscard]] int get(rtnl_message &message, callback_ref<void(const nlmsghdr &)> answer);

    // Asks for a dump and hands out its messages. EINTR: something changed meanwhile, so that parts may be missing or
    // told twice; the whole is to be asked for again.
    [[nodiscard]] int dump(rtnl_message &message, callback_ref<void(const nlmsghdr &)> each);

    // The words on the last request, get, dump or batch message that failed.
    [[nodiscard]] const rtnl_error &last_error() const {
        return error_;
    }

private:
    friend class rtnl_batch;
    // One of the messages that the kernel answered with; returns whether it was the last one.
    using answer_taker = callback_ref<void(const nlmsghdr &answer, bool *last)>;

    int exchange(rtnl_message &message, callback_ref<void(const nlmsghdr &)> each);
    int send_all(const void *messages, size_t size);
    int take_answers(answer_taker take);
    int take_datagram(int64_t deadline, answer_taker take, bool *last);
    int refused(int code, const nlmsghdr *answer = nullptr);
    int broken(int code);

    int protocol_ = NETLINK_ROUTE;
    unique_fd fd_;
    bool busy_ = false;
    uint32_t sequence_ = 0; // of the last message that was numbered
    rtnl_error error_;
};

// Many changes with few system calls: messages are collected, sent together, and only what fails is answered. The
// kernel handles them in order, each on its own: one that fails does not stop those behind it.
class rtnl_batch {
public:
    // `number` counts the messages of this batch from 0, in the order in which they were added.
    using on_failure = callback_ref<void(size_t number, const rtnl_error &error)>;

    explicit rtnl_batch(rtnl_socket &socket, on_failure failed = {}) : socket_(socket), failed_(failed) {}
    rtnl_batch(const rtnl_batch &) = delete;
    rtnl_batch &operator=(const rtnl_batch &) = delete;

    // Adds a copy of the message, and sends what was collected when there is no room left. Returns as finish does.
    int add(const rtnl_message &message);

    // Sends what was collected. Returns 0, or the errno of the first message of the whole batch that failed, or of the
    // exchange itself, after which nothing more is sent.
    [[nodiscard]] int finish();

private:
    int flush();
    int exchange();
    void number_messages();
    void take_answer(const nlmsghdr &answer, bool *last);

    rtnl_socket &socket_;
    on_failure failed_;
    alignas(NLMSG_ALIGNTO) std::array<std::byte, 8192> bytes_;
    size_t size_ = 0;
    size_t collected_ = 0;
    size_t sent_ = 0;             // before those collected
    uint32_t first_sequence_ = 0; // of those that were sent last
    int first_error_ = 0;
    bool broken_ = false;
};
