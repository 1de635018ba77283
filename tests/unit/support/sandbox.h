// The node under a unit test: real absolute paths and real interfaces, inside namespaces of the test process's own.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Enters fresh mount and network namespaces (and a user namespace where the process is not root) with an empty /tmp,
// /etc and /var, and a /proc that holds `self`, `stat` and `net/dev` and can be written. Ends the process with a clear
// sentence where the machine forbids that.
void enter_sandbox();

// Writes a file, making its folders. Replaces links, so that /proc/stat can be scripted.
void write_file(const std::string &path, std::string_view text);
void remove_file(const std::string &path);

// A real network interface that is up; it is gone when the object is. It gets the kernel index that is asked for, or
// the next one, and holds one descriptor.
class test_interface {
public:
    explicit test_interface(const std::string &name, uint32_t index = 0);
    ~test_interface();
    test_interface(const test_interface &) = delete;
    test_interface &operator=(const test_interface &) = delete;
    test_interface(test_interface &&other) noexcept;

    [[nodiscard]] const std::string &name() const;
    [[nodiscard]] uint32_t index() const;
    // The next frame that was sent out of the interface with this EtherType; empty when there is none within a second.
    [[nodiscard]] std::string sent_frame(uint16_t ethertype) const;
    void set_mac(const uint8_t *mac);
    void rename(const std::string &name);

private:
    std::string name_;
    int socket_;
};

// How many descriptors the process has open.
size_t open_descriptors();

// While it lives, no further descriptor can be opened, so that sockets, files and pipes fail.
class no_descriptors {
public:
    no_descriptors();
    ~no_descriptors();

private:
    uint64_t limit_;
};
