// A broker at the default place, in a process of its own: for one client, which it greets and answers as told, or with
// a script of what it does to whom. It keeps what it heard.
#pragma once

#include "blobmsg_builder.h"
#include "support/sandbox.h"

#include <cerrno>
#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

// An event as the broker delivers it: "kolt.debug" with { "dbg_level": level }.
inline std::string debug_event(uint32_t object, uint32_t level) {
    return big_endian(0x00050003, 4) + big_endian(0, 4) + big_endian(0x34, 4) + big_endian(0x03000008, 4) +
           big_endian(object, 4) + big_endian(0x0400000F, 4) + std::string("kolt.debug\0\0", 12) +
           big_endian(0x07000018, 4) + big_endian(0x85000014, 4) +
           std::string("\0\x09"
                       "dbg_level\0",
                       12) +
           big_endian(level, 4);
}

class scripted_bus {
public:
    // `refusal` is the status that a registration gets; `event` is sent once it is made.
    explicit scripted_bus(uint32_t refusal, std::string event = "")
        : scripted_bus([refusal, event](scripted_bus &bus) {
              bus.refusal_ = refusal;
              bus.event_ = event;
              bus.serve(bus.greeted());
          }) {}
    // `script` runs in the broker's process, which ends with it.
    explicit scripted_bus(const std::function<void(scripted_bus &)> &script) {
        write_file(HEARD, "");
        write_file(PATH, "");
        unlink(PATH);
        listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        strncpy(address.sun_path, PATH, sizeof address.sun_path - 1);
        if (bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
            listen(listener_, 4) != 0)
            throw std::runtime_error("cannot listen for bus clients");
        process_ = fork();
        if (process_ == 0) {
            signal(SIGTERM, SIG_DFL);
            sigset_t none;
            sigemptyset(&none);
            sigprocmask(SIG_SETMASK, &none, nullptr);
            alarm(20); // nothing waits for ever
            script(*this);
            _exit(0);
        }
        close(listener_);
    }
    ~scripted_bus() {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        unlink(PATH);
    }
    scripted_bus(const scripted_bus &) = delete;
    scripted_bus &operator=(const scripted_bus &) = delete;

    // Everything the client sent so far, headers included.
    [[nodiscard]] static std::string heard() {
        std::ifstream file(HEARD, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    // Waits until the client has closed its connection; false when it does not.
    bool client_left() {
        int status = -1;
        waitpid(process_, &status, 0);
        process_ = -1;
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

    static constexpr uint32_t OBJECT_ID = 0x01020304;

    // ---- The steps of a script

    [[nodiscard]] int accepted() const {
        return accept(listener_, nullptr, nullptr);
    }
    [[nodiscard]] int greeted() const {
        const int client = accepted();
        say(client, message(HELLO, 0, 0x5A5A5A5A, ""));
        return client;
    }
    // A client that is greeted and whose registration is answered.
    [[nodiscard]] int registered() {
        const int client = greeted();
        registered_ = false;
        while (!registered_ && serve_message(client)) {
        }
        return client;
    }
    // Answers until the client leaves.
    void serve(int client) {
        while (serve_message(client)) {
        }
    }
    static void say(int client, const std::string &bytes) {
        if (write(client, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
            _exit(1);
    }
    // Waits until the client closes its end.
    static void wait_for_end(int client) {
        char byte;
        while (recv(client, &byte, 1, 0) > 0) {
        }
        close(client);
    }
    static void send_signal(int client, int number) {
        ucred peer{};
        socklen_t size = sizeof peer;
        if (getsockopt(client, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0)
            kill(peer.pid, number);
    }

private:
    static constexpr char PATH[] = "/var/run/ubus/ubus.sock";
    static constexpr char HEARD[] = "/tmp/bus-heard";
    enum message_type : uint32_t { HELLO = 0, STATUS = 1, DATA = 2, INVOKE = 5, ADD_OBJECT = 6 };

    static std::string message(uint32_t type, uint64_t sequence, uint32_t peer, const std::string &attributes) {
        return big_endian(type, 2) + big_endian(sequence, 2) + big_endian(peer, 4) +
               big_endian(4 + attributes.size(), 4) + attributes;
    }
    static std::string number(uint32_t id, uint32_t value) {
        return big_endian(id << 24 | 8, 4) + big_endian(value, 4);
    }

    // Hears one message and answers it; false when the client has left.
    bool serve_message(int client) {
        const std::string head = hear(client, 12);
        if (head.size() != 12)
            return false;
        const auto byte = [&head](size_t at) { return static_cast<uint32_t>(static_cast<uint8_t>(head[at])); };
        (void)hear(client, (byte(9) << 16 | byte(10) << 8 | byte(11)) - 4);
        answer(client, byte(1), byte(2) << 8 | byte(3));
        registered_ = registered_ || byte(1) == INVOKE;
        return true;
    }
    void answer(int client, uint32_t type, uint32_t sequence) const {
        if (type == ADD_OBJECT)
            say(client, message(DATA, sequence, 0, number(3, OBJECT_ID)) + message(STATUS, sequence, 0, number(1, 0)));
        if (type == INVOKE)
            say(client, message(STATUS, sequence, 1, number(1, refusal_)) + event_);
    }
    static std::string hear(int client, size_t size) {
        std::string bytes(size, '\0');
        if (size == 0)
            return bytes; // receiving nothing would wait for something
        const ssize_t received = recv(client, bytes.data(), size, MSG_WAITALL);
        bytes.resize(received > 0 ? static_cast<size_t>(received) : 0);
        std::ofstream(HEARD, std::ios::binary | std::ios::app) << bytes;
        return bytes;
    }

    uint32_t refusal_ = 0; // the status of a registration
    std::string event_;    // that follows it
    bool registered_ = false;
    int listener_;
    pid_t process_;
};
