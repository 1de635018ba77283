// Frames between the two ends of a link, whatever bridge the port is in.
#include "kernel/net/raw_socket.h"

#include "linux/support/network.h"
#include "support/rows.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <linux/capability.h>
#include <linux/if_ether.h>
#include <linux/pkt_sched.h>
#include <poll.h>
#include <sys/socket.h>

using testing::IsEmpty;

namespace {

constexpr mac_address GROUP = {0x01, 0x80, 0xC2, 0, 0, 0x0E};
constexpr mac_address NEIGHBOUR = {0x02, 0, 0, 0, 0, 0x11};

class raw_socket_test : public kernel_test {
protected:
    raw_socket_test() {
        bridge_.add(link_.near());
        bridge_.add(second_.near());
        EXPECT_EQ(socket_.open(link_.near()), 0);
    }

    // The next frame, waited for; empty when there is none.
    std::string receive(int wait_ms = 1000) {
        pollfd watched{socket_.fd(), POLLIN, 0};
        if (poll(&watched, 1, wait_ms) != 1)
            return {};
        std::array<uint8_t, NEIGHBOUR_FRAME_MAX> frame;
        size_t size = 0;
        if (socket_.receive(frame, &size) != 0)
            return {};
        return {frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size)};
    }

    // What receive says when nothing is to be waited for.
    int result_of_receive() {
        std::array<uint8_t, NEIGHBOUR_FRAME_MAX> frame;
        size_t size = 0;
        return socket_.receive(frame, &size);
    }

    int send(std::string_view frame) {
        return socket_.send({reinterpret_cast<const uint8_t *>(frame.data()), frame.size()});
    }

    static std::string neighbour_frame(std::string_view payload = "hello") {
        return ethernet_frame(GROUP, NEIGHBOUR, NEIGHBOUR_ETHERTYPE, payload);
    }

    test_bridge bridge_{"bridge"};
    test_link link_{"near", "far"};
    test_link second_{"second", "other"};
    raw_socket socket_;
};

TEST_F(raw_socket_test, receives_from_the_other_end_though_the_port_is_in_a_bridge) {
    link_.send(neighbour_frame());
    EXPECT_EQ(receive(), neighbour_frame());
}

TEST_F(raw_socket_test, receives_though_the_bridge_forwards_nothing_on_the_port) {
    set_master(link_.near(), 0);
    bridge_.set("stp_state", "1");
    set_master(link_.near(), bridge_.index()); // it only listens at first
    EXPECT_NE(setting("near", "brport/state"), "3");
    link_.send(neighbour_frame());
    EXPECT_EQ(receive(), neighbour_frame());
}

TEST_F(raw_socket_test, the_bridge_forwards_none_of_it) {
    link_.send(neighbour_frame());
    EXPECT_EQ(receive(), neighbour_frame());
    EXPECT_THAT(second_.sent_frame(NEIGHBOUR_ETHERTYPE, 50), IsEmpty());
}

TEST_F(raw_socket_test, a_bridge_that_forwards_the_address_takes_it_from_the_socket) {
    bridge_.set("group_fwd_mask", "0x4000");
    link_.send(neighbour_frame());
    EXPECT_EQ(second_.sent_frame(NEIGHBOUR_ETHERTYPE), neighbour_frame());
    EXPECT_THAT(receive(50), IsEmpty());
}

TEST_F(raw_socket_test, receives_from_a_port_without_bridge) {
    set_master(link_.near(), 0);
    link_.send(neighbour_frame());
    EXPECT_EQ(receive(), neighbour_frame());
}

TEST_F(raw_socket_test, hears_its_own_port_alone) {
    second_.send(neighbour_frame());
    link_.send(neighbour_frame("mine"));
    EXPECT_EQ(receive(), neighbour_frame("mine"));
    EXPECT_EQ(result_of_receive(), EAGAIN);
}

TEST_F(raw_socket_test, what_is_sent_comes_out_at_the_other_end_and_not_back) {
    EXPECT_EQ(send(neighbour_frame()), 0);
    EXPECT_EQ(link_.sent_frame(NEIGHBOUR_ETHERTYPE), neighbour_frame());
    EXPECT_THAT(second_.sent_frame(NEIGHBOUR_ETHERTYPE, 0), IsEmpty());
    EXPECT_EQ(result_of_receive(), EAGAIN);
}

TEST_F(raw_socket_test, two_sockets_of_one_port_both_receive) {
    raw_socket other;
    EXPECT_EQ(other.open(link_.near()), 0);
    link_.send(neighbour_frame());
    EXPECT_EQ(receive(), neighbour_frame());
    std::array<uint8_t, NEIGHBOUR_FRAME_MAX> frame;
    size_t size = 0;
    EXPECT_EQ(other.receive(frame, &size), 0);
    EXPECT_EQ(size, neighbour_frame().size());
}

TEST_F(raw_socket_test, frames_keep_their_order_and_nothing_is_waited_for) {
    for (const char *payload : {"one", "two", "three"})
        link_.send(neighbour_frame(payload));
    EXPECT_EQ(receive(), neighbour_frame("one"));
    EXPECT_EQ(receive(), neighbour_frame("two"));
    EXPECT_EQ(receive(), neighbour_frame("three"));
    EXPECT_EQ(result_of_receive(), EAGAIN);
}

TEST_F(raw_socket_test, what_does_not_fit_is_left_out_and_the_next_is_taken) {
    link_.send(neighbour_frame("longer than what there is room for"));
    link_.send(neighbour_frame("fits"));
    std::array<uint8_t, 20> room;
    size_t size = 0;
    EXPECT_EQ(socket_.receive(room, &size), 0);
    EXPECT_EQ(std::string(room.begin(), room.begin() + 18), neighbour_frame("fits"));
    EXPECT_EQ(size, 18U);
}

TEST_F(raw_socket_test, wakes_nobody_for_frames_longer_than_a_neighbours) {
    constexpr uint32_t JUMBO = 9000;
    for (const uint32_t end : {link_.near(), link_.far()})
        set_mtu(end, JUMBO);
    const std::string longest(NEIGHBOUR_FRAME_MAX - ETH_HLEN, 'x');
    link_.send(neighbour_frame(longest + 'x'));
    pollfd watched{socket_.fd(), POLLIN, 0};
    EXPECT_EQ(poll(&watched, 1, 50), 0);
    link_.send(neighbour_frame(longest));
    EXPECT_EQ(receive().size(), NEIGHBOUR_FRAME_MAX);
}

struct foreign {
    const char *name;
    std::string frame;
};

using foreign_frame_test = table_test<foreign, raw_socket_test>;

TEST_P(foreign_frame_test, is_not_received) {
    set_master(link_.near(), 0); // else the bridge would take most of them
    link_.send(GetParam().frame);
    link_.send(neighbour_frame("last"));
    EXPECT_EQ(receive(), neighbour_frame("last"));
    EXPECT_EQ(result_of_receive(), EAGAIN);
}

constexpr std::string_view TAGGED_HELLO{"\x00\x05\x88\xB5hello", 9}; // VLAN 5

INSTANTIATE_TEST_SUITE_P(
    frames, foreign_frame_test,
    testing::Values(foreign{"of_another_ethertype", ethernet_frame(GROUP, NEIGHBOUR, 0x88CC)},
                    foreign{"to_everybody", ethernet_frame(BROADCAST, NEIGHBOUR, NEIGHBOUR_ETHERTYPE)},
                    foreign{"to_a_neighbouring_address",
                            ethernet_frame({0x01, 0x80, 0xC2, 0, 0, 0x0D}, NEIGHBOUR, NEIGHBOUR_ETHERTYPE)},
                    foreign{"to_an_address_that_ends_alike",
                            ethernet_frame({0x01, 0x80, 0xC3, 0, 0, 0x0E}, NEIGHBOUR, NEIGHBOUR_ETHERTYPE)},
                    foreign{"of_a_vlan", ethernet_frame(GROUP, NEIGHBOUR, 0x8100, TAGGED_HELLO)}),
    row_name<foreign>);

TEST_F(raw_socket_test, goes_ahead_of_users_frames) {
    int priority = 0;
    socklen_t size = sizeof priority;
    EXPECT_EQ(getsockopt(socket_.fd(), SOL_SOCKET, SO_PRIORITY, &priority, &size), 0);
    EXPECT_EQ(priority, TC_PRIO_CONTROL);
}

TEST_F(raw_socket_test, tells_once_that_the_interface_went_down_and_goes_on_when_it_is_up) {
    set_up(link_.near(), false);
    EXPECT_EQ(result_of_receive(), ENETDOWN);
    EXPECT_EQ(result_of_receive(), EAGAIN);
    EXPECT_EQ(send(neighbour_frame()), ENETDOWN);
    set_up(link_.near(), true);
    link_.wait_until_up();
    EXPECT_EQ(send(neighbour_frame()), 0);
    link_.send(neighbour_frame());
    EXPECT_EQ(receive(), neighbour_frame());
}

TEST_F(raw_socket_test, cannot_send_on_an_interface_that_is_gone) {
    delete_interface("near");
    EXPECT_EQ(send(neighbour_frame()), ENXIO);
    EXPECT_EQ(result_of_receive(), ENETDOWN);
}

TEST_F(raw_socket_test, is_closed_by_an_open_that_fails) {
    EXPECT_EQ(socket_.open(4242), ENODEV);
    EXPECT_EQ(socket_.fd(), -1);
    EXPECT_EQ(send(neighbour_frame()), EBADF);
    EXPECT_EQ(result_of_receive(), EBADF);
}

TEST_F(raw_socket_test, the_index_zero_is_not_every_interface) {
    EXPECT_EQ(socket_.open(0), ENODEV);
}

TEST_F(raw_socket_test, needs_the_right_to_open) {
    raw_socket another;
    const uint32_t index = link_.near();
    {
        const without_capability none(CAP_NET_RAW);
        EXPECT_EQ(another.open(index), EPERM);
    }
    const no_descriptors full;
    EXPECT_EQ(another.open(index), EMFILE);
}

TEST_F(raw_socket_test, that_is_closed_has_no_descriptor) {
    socket_.close();
    EXPECT_EQ(socket_.fd(), -1);
    socket_.close();
}

} // namespace
