// Real bridges, links and frames for the tests of what is asked of the kernel. All of it is in the test's own
// namespace.
#pragma once

#include "kernel/net/rtnl.h"
#include "linux/support/rights.h"
#include "support/sandbox.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using mac_address = std::array<uint8_t, 6>;

// Two interfaces, each the other end of the other, both up. They are gone when the object is.
class test_link {
public:
    test_link(const std::string &near, const std::string &far);
    ~test_link();
    test_link(const test_link &) = delete;
    test_link &operator=(const test_link &) = delete;
    test_link(test_link &&other) noexcept;

    [[nodiscard]] uint32_t near() const;
    [[nodiscard]] uint32_t far() const;
    [[nodiscard]] const std::string &near_name() const {
        return near_;
    }
    // Waits until both ends let frames through, which is some time after they were set up.
    void wait_until_up() const;
    // Sends a frame at the far end, which comes in at the near one.
    void send(std::string_view frame) const;
    // The next frame of the EtherType that came out at the far end; empty when there is none within the time.
    [[nodiscard]] std::string sent_frame(uint16_t ethertype, int wait_ms = 1000) const;

private:
    std::string near_;
    std::string far_;
    int socket_;
};

class test_bridge {
public:
    explicit test_bridge(const std::string &name);
    ~test_bridge();
    test_bridge(const test_bridge &) = delete;
    test_bridge &operator=(const test_bridge &) = delete;

    [[nodiscard]] uint32_t index() const;
    // Waits until the port forwards, which is some time after it was added.
    void add(uint32_t port) const;
    // Writes one of the bridge's settings, by the name of its file.
    void set(const std::string &setting, const std::string &value) const;

private:
    std::string name_;
};

void set_master(uint32_t port, uint32_t bridge);
void set_up(uint32_t index, bool up);
void set_mtu(uint32_t index, uint32_t mtu);
void rename_interface(uint32_t index, const std::string &name);
void delete_interface(const std::string &name);

// What the kernel's files say about an interface, apart from what is under test: a port's settings, and the table of a
// bridge in 16 bytes for each entry. Trailing white space is taken off texts.
std::string setting(const std::string &interface, const std::string &file);
std::string bytes_of(const std::string &interface, const std::string &file);
mac_address mac_of(const std::string &interface);

std::string ethernet_frame(const mac_address &to, const mac_address &from, uint16_t ethertype,
                           std::string_view payload = "payload");

constexpr mac_address BROADCAST = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

// A socket for requests, and a check that nothing is left open.
class kernel_test : public testing::Test {
protected:
    kernel_test();
    ~kernel_test() override;

    rtnl_socket rtnl_;

private:
    size_t descriptors_;
};
