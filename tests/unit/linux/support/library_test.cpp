// The processes of the other side.
#include "linux/support/library_test.h"

#include <poll.h>
#include <sys/prctl.h>

namespace {

constexpr char READY = '!';

// What the server's process keeps: its control socket is one more watcher of its loop.
struct serving {
    uloop_fd control;
    requests_server *server;
};

void say(int control, const std::string &text) {
    if (send(control, text.data(), text.size(), MSG_NOSIGNAL) < 0)
        _exit(1);
}

// "PROTOCOL TYPE PAYLOAD" sends an event, and is answered with the number of sockets that took it.
void obey(uloop_fd *watcher, unsigned int /*events*/) {
    const serving *self = KOLT_CONTAINER_OF(watcher, serving, control);
    const std::optional<received_message> command = receive_from(watcher->fd);
    if (!command)
        return;
    if (command->bytes.empty())
        _exit(0);
    int protocol = 0;
    int type = 0;
    int used = 0;
    if (sscanf(command->bytes.c_str(), "%d %d %n", &protocol, &type, &used) != 2)
        _exit(1);
    const std::string payload = command->bytes.substr(static_cast<size_t>(used));
    const int taken =
        requests_send_event(self->server, protocol, static_cast<uint16_t>(type), payload.data(), payload.size());
    say(watcher->fd, "=" + std::to_string(taken));
}

void serve(int control, recorded_node node) {
    node.also = [&](const std::string &call) { say(control, call); };
    serving self{};
    self.control.cb = obey;
    self.control.fd = control;
    if (uloop_init() != 0 || uloop_fd_add(&self.control, ULOOP_READ) != 0)
        _exit(1);
    self.server = requests_open(SOCKET_PATH, node.handlers());
    if (self.server == nullptr)
        _exit(1);
    say(control, {READY});
    (void)uloop_run();
}

std::string wait_message(int fd) {
    pollfd watched{.fd = fd, .events = POLLIN, .revents = 0};
    if (poll(&watched, 1, 10000) != 1)
        return "";
    const std::optional<received_message> message = receive_from(fd);
    return message ? message->bytes : "";
}

} // namespace

other_process::other_process(const std::function<void(int control)> &work) {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    pid_ = fork();
    if (pid_ == 0) {
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        constexpr int CONTROL = 3;
        dup2(ends[1], CONTROL);
        close_range(CONTROL + 1, ~0U, 0); // nothing of the test's stays open here
        work(CONTROL);
        _exit(0);
    }
    control_.reset(ends[0]);
    close(ends[1]);
    EXPECT_EQ(wait_message(control_.get()), std::string(1, READY));
}

void other_process::end() {
    if (pid_ <= 0)
        return;
    kill(pid_, SIGKILL);
    EXPECT_EQ(waitpid(pid_, nullptr, 0), pid_);
    pid_ = 0;
}

void other_process::stop() const {
    kill(pid_, SIGSTOP);
    int status = 0;
    EXPECT_EQ(waitpid(pid_, &status, WUNTRACED), pid_);
}

server_process::server_process(recorded_node node) : process_([&](int control) { serve(control, std::move(node)); }) {}

lines server_process::calls() {
    for (;;) {
        const std::optional<received_message> message = receive_from(process_.control());
        if (!message || message->bytes.empty())
            return std::exchange(calls_, {});
        calls_.push_back(message->bytes);
    }
}

int server_process::send_event(int32_t protocol, uint16_t type, const std::string &payload) {
    const std::string command = std::to_string(protocol) + " " + std::to_string(type) + " " + payload;
    EXPECT_TRUE(send_with(process_.control(), command));
    for (;;) {
        const std::string message = wait_message(process_.control());
        if (message.empty())
            return -1;
        if (message[0] == '=')
            return std::stoi(message.substr(1));
        calls_.push_back(message);
    }
}

std::unique_ptr<other_process> serve_badly(const std::function<void(int connection)> &serve) {
    return std::make_unique<other_process>([&](int control) {
        const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        const sockaddr_un address = socket_address(SOCKET_PATH);
        (void)unlink(SOCKET_PATH);
        if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 || listen(fd, 8) != 0)
            _exit(1);
        say(control, {READY});
        for (;;) {
            const unique_fd connection(accept(fd, nullptr, nullptr));
            serve(connection.get());
        }
    });
}

std::string library_test::received(int fd) {
    pollfd watched{.fd = fd, .events = POLLIN, .revents = 0};
    if (poll(&watched, 1, 1000) != 1)
        return "";
    const std::optional<received_message> message = receive_from(fd);
    return message ? message->bytes : "";
}
