// A bridge, its ports and the far ends of their wires, in the test's namespace.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

// Requests to route netlink that have to succeed.
void make_wire(const std::string &near, const std::string &far, uint32_t mtu = 1500, uint32_t near_index = 0);
// With an address of its own, or one that changes with the ports.
void make_bridge(const std::string &name, bool own_address = true);
void put_into_bridge(const std::string &port, const std::string &bridge);
void take_out_of_bridge(const std::string &port);
void wait_for_forwarding(const std::string &port);
void bring_up(const std::string &name);
void bring_down(const std::string &name);
void rename_interface(const std::string &name, const std::string &to);
void remove_interface(const std::string &name);
void set_address(const std::string &name, const std::array<uint8_t, 6> &mac);
// The queueing discipline that had clsact's place before there was clsact.
void put_ingress_qdisc(const std::string &name);

// One end of a wire. It sends frames and sees those that arrive, its own excepted. All of them it sees before traffic
// control does; those of a single EtherType after it.
class wire_end {
public:
    static constexpr uint16_t ALL_FRAMES = 3;
    static constexpr size_t STORM = 10000;

    explicit wire_end(const std::string &name, uint16_t ethertype = ALL_FRAMES);
    ~wire_end();
    wire_end(const wire_end &) = delete;
    wire_end &operator=(const wire_end &) = delete;
    wire_end(wire_end &&other) noexcept;

    void send(const std::string &frame) const;
    // As a driver that leaves all but the Ethernet header out of the head of the kernel's buffer.
    void send_in_pages(const std::string &frame) const;
    // The next frame that arrived; empty when none does within the time.
    [[nodiscard]] std::string receive(int wait_ms = 1000) const;
    // How many frames have arrived when nothing has for a while, or when it is a storm.
    [[nodiscard]] size_t count_arrived(int quiet_ms = 50) const;

private:
    int socket_;
};

// br0 with ports p0, p1, ...; the far end of each is an e0, e1, ... All are up, forward, and send nothing of their own.
// `first` is the number with which the names begin.
class bridged_wires {
public:
    explicit bridged_wires(size_t ports, uint32_t mtu = 1500, size_t first = 0);

    [[nodiscard]] uint32_t port(size_t place) const;
    [[nodiscard]] const wire_end &end(size_t place) const;
    // Nobody listens at the far ends any more.
    void close_ends();

private:
    size_t first_;
    std::vector<wire_end> ends_;
};
