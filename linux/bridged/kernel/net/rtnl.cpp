// Sending to the kernel and collecting what it answers.
#include "kernel/net/rtnl.h"

#include "kernel/net/attributes.h"
#include "kernel/net/messages.h"
#include "kernel/net/text.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/socket.h>

namespace {

// More than the kernel puts into one datagram.
constexpr size_t DATAGRAM_SIZE = 32768;
// Room for the refusal of every message of one part of a batch, with what the kernel adds to account for each.
constexpr int RECEIVE_BUFFER = 1 << 20;

int64_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// What the kernel offers beyond bare answers; without any of it answers only say less, hence no checks.
void set_options(int fd) {
    const int on = 1;
    (void)setsockopt(fd, SOL_NETLINK, NETLINK_CAP_ACK, &on, sizeof on);
    (void)setsockopt(fd, SOL_NETLINK, NETLINK_EXT_ACK, &on, sizeof on);
    (void)setsockopt(fd, SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof on);
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &RECEIVE_BUFFER, sizeof RECEIVE_BUFFER) != 0)
        (void)setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &RECEIVE_BUFFER, sizeof RECEIVE_BUFFER);
}

// The errno in an answer that ends something; 0 for success.
int code_of(const nlmsghdr &answer) {
    int code = 0;
    if (mnl_nlmsg_get_payload_len(&answer) >= sizeof code)
        memcpy(&code, mnl_nlmsg_get_payload(&answer), sizeof code);
    return -code;
}

bool ends(const nlmsghdr &answer) {
    return answer.nlmsg_type == NLMSG_ERROR || answer.nlmsg_type == NLMSG_DONE;
}

} // namespace

std::string_view rtnl_words(const nlmsghdr &answer) {
    const size_t size = mnl_nlmsg_get_payload_len(&answer);
    if (answer.nlmsg_type != NLMSG_ERROR || (answer.nlmsg_flags & NLM_F_ACK_TLVS) == 0 || size < sizeof(nlmsgerr))
        return {};
    const auto *error = static_cast<const nlmsgerr *>(mnl_nlmsg_get_payload(&answer));
    // The refused message stands before them, or its head.
    size_t head = sizeof *error;
    if ((answer.nlmsg_flags & NLM_F_CAPPED) == 0 && error->msg.nlmsg_len > sizeof error->msg)
        head += NLMSG_ALIGN(size_t{error->msg.nlmsg_len}) - sizeof error->msg;
    const attribute_table<NLMSGERR_ATTR_MSG> attributes(answer, head);
    return attribute_text(attributes[NLMSGERR_ATTR_MSG]);
}

rtnl_message::rtnl_message(uint16_t type, uint16_t flags) : bytes{}, header(mnl_nlmsg_put_header(bytes.data())) {
    header->nlmsg_type = type;
    header->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
}

int rtnl_socket::open(int protocol) {
    protocol_ = protocol;
    fd_.reset(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol));
    if (!fd_)
        return refused(errno);
    set_options(fd_.get());
    return 0;
}

void rtnl_socket::close() {
    fd_.reset();
}

bool rtnl_socket::is_open() const {
    return static_cast<bool>(fd_);
}

int rtnl_socket::refused(int code, const nlmsghdr *answer) {
    const std::string_view words = answer != nullptr ? rtnl_words(*answer) : std::string_view{};
    error_.code = code;
    copy_text(&error_.text, words.empty() ? std::string_view(strerror(code)) : words);
    return code;
}

// An exchange that did not come to its end leaves answers behind, and a dump that was not read to its end keeps the
// kernel from starting another on that socket: the next exchange begins on a new one.
int rtnl_socket::broken(int code) {
    if (is_open())
        (void)open(protocol_);
    return refused(code);
}

int rtnl_socket::send_all(const void *messages, size_t size) {
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    ssize_t sent = 0;
    do
        sent = sendto(fd_.get(), messages, size, 0, reinterpret_cast<const sockaddr *>(&kernel), sizeof kernel);
    while (sent < 0 && errno == EINTR);
    return sent < 0 ? errno : 0;
}

int rtnl_socket::take_datagram(int64_t deadline, answer_taker take, bool *last) {
    const int64_t left = deadline - now_ms();
    pollfd watched{.fd = fd_.get(), .events = POLLIN, .revents = 0};
    const int ready = poll(&watched, 1, left > 0 ? static_cast<int>(left) : 0);
    if (ready == 0)
        return ETIMEDOUT;
    alignas(NLMSG_ALIGNTO) std::array<std::byte, DATAGRAM_SIZE> datagram;
    sockaddr_nl sender{};
    socklen_t sender_size = sizeof sender;
    const ssize_t size = ready < 0 ? -1
                                   : recvfrom(fd_.get(), datagram.data(), datagram.size(), MSG_TRUNC,
                                              reinterpret_cast<sockaddr *>(&sender), &sender_size);
    if (size < 0)
        return errno == EINTR || errno == EAGAIN ? 0 : errno;
    if (static_cast<size_t>(size) > datagram.size())
        return EMSGSIZE;
    if (sender.nl_pid != 0) // not the kernel
        return 0;
    message_reader answers({datagram.data(), static_cast<size_t>(size)});
    while (const nlmsghdr *answer = *last ? nullptr : answers.next())
        take(*answer, last);
    return 0;
}

int rtnl_socket::take_answers(answer_taker take) {
    const int64_t deadline = now_ms() + RTNL_WAIT_MS;
    bool last = false;
    int result = 0;
    while (!last && result == 0)
        result = take_datagram(deadline, take, &last);
    return result;
}

int rtnl_socket::exchange(rtnl_message &message, callback_ref<void(const nlmsghdr &)> each) {
    if (busy_)
        return EBUSY;
    const uint32_t sequence = ++sequence_;
    message.header->nlmsg_seq = sequence;
    int code = 0;
    bool interrupted = false;
    const auto take = [&](const nlmsghdr &answer, bool *last) {
        if (answer.nlmsg_seq != sequence)
            return;
        interrupted = interrupted || (answer.nlmsg_flags & NLM_F_DUMP_INTR) != 0;
        *last = ends(answer);
        if (!*last)
            return each(answer);
        code = code_of(answer);
        if (code != 0)
            (void)refused(code, &answer);
    };
    busy_ = true;
    int result = send_all(message.header, message.header->nlmsg_len);
    if (result == 0)
        result = take_answers(take);
    busy_ = false;
    if (result != 0)
        return broken(result);
    return code == 0 && interrupted ? refused(EINTR) : code;
}

int rtnl_socket::request(rtnl_message &message) {
    return get(message, {});
}

int rtnl_socket::get(rtnl_message &message, callback_ref<void(const nlmsghdr &)> answer) {
    message.header->nlmsg_flags |= NLM_F_ACK;
    return exchange(message, answer);
}

int rtnl_socket::dump(rtnl_message &message, callback_ref<void(const nlmsghdr &)> each) {
    message.header->nlmsg_flags |= NLM_F_DUMP;
    return exchange(message, each);
}

int rtnl_batch::add(const rtnl_message &message) {
    const size_t length = NLMSG_ALIGN(message.header->nlmsg_len);
    if (size_ + length > bytes_.size())
        (void)flush();
    if (broken_)
        return first_error_;
    memcpy(bytes_.data() + size_, message.bytes.data(), length);
    size_ += length;
    collected_++;
    return first_error_;
}

int rtnl_batch::finish() {
    return flush();
}

void rtnl_batch::take_answer(const nlmsghdr &answer, bool *last) {
    const uint32_t number = answer.nlmsg_seq - first_sequence_;
    if (answer.nlmsg_type != NLMSG_ERROR || number >= collected_)
        return;
    *last = number == collected_ - 1;
    const int code = code_of(answer);
    if (code == 0)
        return;
    (void)socket_.refused(code, &answer);
    if (first_error_ == 0)
        first_error_ = code;
    failed_(sent_ + number, socket_.error_);
}

// Success is asked for only behind the last message: that tells that all were handled, and a thousand answers that say
// nothing would cost more than the changes themselves.
void rtnl_batch::number_messages() {
    first_sequence_ = socket_.sequence_ + 1;
    auto *message = reinterpret_cast<nlmsghdr *>(bytes_.data());
    auto left = static_cast<int>(size_);
    for (size_t number = 1; number <= collected_; number++) {
        message->nlmsg_seq = ++socket_.sequence_;
        message->nlmsg_flags = static_cast<uint16_t>(message->nlmsg_flags & ~NLM_F_ACK);
        if (number == collected_)
            message->nlmsg_flags |= NLM_F_ACK;
        message = mnl_nlmsg_next(message, &left);
    }
}

int rtnl_batch::exchange() {
    if (socket_.busy_)
        return EBUSY;
    number_messages();
    socket_.busy_ = true;
    int result = socket_.send_all(bytes_.data(), size_);
    const auto take = [this](const nlmsghdr &answer, bool *last) { take_answer(answer, last); };
    if (result == 0)
        result = socket_.take_answers(take);
    socket_.busy_ = false;
    return result == 0 ? 0 : socket_.broken(result);
}

int rtnl_batch::flush() {
    if (collected_ == 0 || broken_)
        return first_error_;
    if (const int result = exchange(); result != 0) {
        broken_ = true;
        first_error_ = first_error_ != 0 ? first_error_ : result;
    }
    sent_ += collected_;
    collected_ = 0;
    size_ = 0;
    return first_error_;
}
