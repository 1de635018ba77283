// The real libraries in the test's own process, and kolt-bridged's side of the socket in processes of their own.
#pragma once

#include "bridged/requests/loop.h"
#include "bridged/requests/server.h"
#include "core/container_of.h"
#include "linux/support/raw_socket.h"
#include "linux/support/recorded_node.h"
#include "support/sandbox.h"

#include <chrono>
#include <csignal>
#include <duon_bridge.h>
#include <eth_encap.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

constexpr const char *SOCKET_PATH = KOLT_BRIDGED_SOCKET;

using lines = std::vector<std::string>;

// A process that does something until it is ended; what it holds is then gone.
class other_process {
public:
    explicit other_process(const std::function<void(int control)> &work);
    ~other_process() {
        end();
    }
    other_process(const other_process &) = delete;
    other_process &operator=(const other_process &) = delete;

    void end();
    void stop() const;
    void resume() const {
        kill(pid_, SIGCONT);
    }
    [[nodiscard]] int control() const {
        return control_.get();
    }

private:
    pid_t pid_ = 0;
    unique_fd control_;
};

// kolt-bridged's side as it is.
class server_process {
public:
    explicit server_process(recorded_node node = {});

    // The calls that have arrived since this was last asked.
    lines calls();
    // How many event sockets took an event.
    int send_event(int32_t protocol, uint16_t type, const std::string &payload);
    other_process &process() {
        return process_;
    }

private:
    other_process process_;
    lines calls_;
};

// Some process that listens where kolt-bridged does and treats its connections as `serve` says, one after the other.
// It serves when this returns.
std::unique_ptr<other_process> serve_badly(const std::function<void(int connection)> &serve);

class library_test : public testing::Test {
protected:
    library_test() {
        std::filesystem::create_directories(KOLT_BRIDGED_RUN);
    }

    static std::chrono::milliseconds time_of(const std::function<void()> &action) {
        const auto start = std::chrono::steady_clock::now();
        action();
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    }
    // The next datagram on a socket, waited for a second at most.
    static std::string received(int fd);
};
