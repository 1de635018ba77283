// A broker at the default place, in a process of its own, for one client: it greets, answers registrations as told,
// and keeps what it heard.
#pragma once

#include "blobmsg_builder.h"
#include "support/sandbox.h"

#include <csignal>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

class scripted_bus {
public:
    // `refusal` is the status that a registration gets; `event` is sent once it is made.
    explicit scripted_bus(uint32_t refusal, std::string event = "") : refusal_(refusal), event_(std::move(event)) {
        write_file(HEARD, "");
        write_file(PATH, "");
        unlink(PATH);
        listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        strncpy(address.sun_path, PATH, sizeof address.sun_path - 1);
        if (bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
            listen(listener_, 1) != 0)
            throw std::runtime_error("cannot listen for bus clients");
        process_ = fork();
        if (process_ == 0) {
            serve();
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

    // Runs in the broker's process, until the client leaves.
    void serve() const {
        signal(SIGTERM, SIG_DFL);
        alarm(20); // nothing waits for ever
        const int client = accept(listener_, nullptr, nullptr);
        say(client, message(HELLO, 0, 0x5A5A5A5A, ""));
        for (std::string head = hear(client, 12); head.size() == 12; head = hear(client, 12)) {
            const auto byte = [&head](size_t at) { return static_cast<uint32_t>(static_cast<uint8_t>(head[at])); };
            (void)hear(client, (byte(9) << 16 | byte(10) << 8 | byte(11)) - 4);
            answer(client, byte(1), byte(2) << 8 | byte(3));
        }
    }
    void answer(int client, uint32_t type, uint32_t sequence) const {
        if (type == ADD_OBJECT)
            say(client, message(DATA, sequence, 0, number(3, OBJECT_ID)) + message(STATUS, sequence, 0, number(1, 0)));
        if (type == INVOKE)
            say(client, message(STATUS, sequence, 1, number(1, refusal_)) + event_);
    }
    static void say(int client, const std::string &bytes) {
        if (write(client, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
            _exit(1);
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

    uint32_t refusal_;
    std::string event_;
    int listener_;
    pid_t process_;
};
