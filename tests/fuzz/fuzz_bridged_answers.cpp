// Any bytes as what comes over the connection to kolt-bridged, one message for each request of the library. Before a
// message stand a byte that makes the request, one that says what comes with the message, and 16 bits of length: bits 0
// and 1 a descriptor each, bit 2 the end of the connection behind it, bit 3 that it begins with the request's number.
#include "lib/connection.h"
#include "lib/reply.h"
#include "support/input.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
int __wrap_socket(int family, int type, int protocol);
int __wrap_connect(int fd, const sockaddr *address, socklen_t size);
ssize_t __real_sendmsg(int fd, const msghdr *message, int flags);
ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags);
}

namespace {

enum answer_bit : uint8_t { FIRST_FILE = 1, SECOND_FILE = 2, END = 4, NUMBERED = 8 };

fuzz_input server;
unique_fd server_end;

size_t files_said; // with the last message

int open_descriptors() {
    constexpr int HIGHEST = 64;
    int count = 0;
    for (int fd = 0; fd < HIGHEST; fd++)
        count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    return count;
}

void answer(uint32_t number) {
    const bool silent = server.left.empty();
    const uint8_t what = server.byte();
    const bytes content = server.part();
    std::vector<uint8_t> message(content.begin(), content.end());
    if ((what & NUMBERED) != 0 && message.size() >= sizeof number)
        memcpy(message.data(), &number, sizeof number);
    const unique_fd file(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int files[] = {file.get(), file.get()};
    const size_t count = files_said = size_t{(what & FIRST_FILE) != 0} + size_t{(what & SECOND_FILE) != 0};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof files)] = {};
    iovec part{.iov_base = message.data(), .iov_len = message.size()};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = count > 0 ? CMSG_SPACE(count * sizeof(int)) : 0;
    auto *rights = reinterpret_cast<cmsghdr *>(control);
    *rights = {.cmsg_len = CMSG_LEN(count * sizeof(int)), .cmsg_level = SOL_SOCKET, .cmsg_type = SCM_RIGHTS};
    memcpy(CMSG_DATA(rights), files, count * sizeof(int));
    const bool said = !silent && __real_sendmsg(server_end.get(), &header, MSG_NOSIGNAL) >= 0;
    if (!said || (what & END) != 0)
        (void)shutdown(server_end.get(), SHUT_WR); // nobody is to wait for more
}

call_request request_of(uint8_t which) {
    call_request request{};
    request.call = which % CALL_CODE_END;
    request.values[0] = which >> 5;
    request.capacity = which >> 4;
    return request;
}

} // namespace

bool bridged_greet(const deadline & /*until*/) {
    return true;
}

int __wrap_socket(int family, int type, int protocol) {
    int ends[2];
    require(family == AF_UNIX && socketpair(family, type, protocol, ends) == 0);
    server_end.reset(ends[1]);
    return ends[0];
}

int __wrap_connect(int /*fd*/, const sockaddr * /*address*/, socklen_t /*size*/) {
    return 0;
}

ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags) {
    const ssize_t sent = __real_sendmsg(fd, message, flags);
    call_request request;
    require(message->msg_iovlen == 1 && message->msg_iov->iov_len == sizeof request);
    memcpy(&request, message->msg_iov->iov_base, sizeof request);
    if (sent == static_cast<ssize_t>(sizeof request))
        answer(request.sequence);
    return sent;
}

// An answer that is taken has the file that belongs to it, and no descriptor is left behind.
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const int open_before = open_descriptors();
    server.left = {data, size};
    for (int calls = 0; calls < 4 && !server.left.empty(); calls++) {
        const call_request request = request_of(server.byte());
        call_answer answer;
        const bool answered = bridged_call(request, -1, &answer);
        require(!answered || static_cast<bool>(answer.table) == (carried_records(request, answer.reply) > 0));
        require(!answered || files_said == (answer.table ? 1 : 0));
        require(!answered || answer.reply.count <= MAX_TABLE_RECORDS);
    }
    // The library hangs up when it finds the connection ended.
    server_end.reset();
    server.left = {};
    const uint8_t nothing = 0;
    call_answer last;
    require(!bridged_call(request_of(nothing), -1, &last));
    server_end.reset();
    require(open_descriptors() == open_before);
    return 0;
}
