// What is told while it happens.
#include "kernel/net/monitor.h"

#include "linux/support/network.h"
#include "support/rows.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>

using testing::IsEmpty;
using testing::Not;
using testing::StrEq;

namespace {

constexpr mac_address CLIENT = {0x02, 0, 0, 0, 0, 0x77};

class monitor_test : public kernel_test {
protected:
    monitor_test() {
        bridge_.add(link_.near());
        EXPECT_EQ(monitor_.open(), 0);
    }

    bool is_readable(int wait_ms = 0) {
        pollfd watched{monitor_.fd(), POLLIN, 0};
        return poll(&watched, 1, wait_ms) == 1;
    }

    // Collects what is told until the wanted is among it, or for a second.
    bool wait_for(const std::function<bool()> &wanted) {
        while (!wanted()) {
            if (!is_readable(1000))
                return false;
            EXPECT_EQ(receive(), 0);
        }
        return true;
    }

    bool wait_for_link(const std::function<bool(const link_info &)> &wanted) {
        return wait_for([&] { return std::any_of(links_.begin(), links_.end(), wanted); });
    }
    bool wait_for_port(const std::function<bool(const bridge_port &)> &wanted) {
        return wait_for([&] { return std::any_of(ports_.begin(), ports_.end(), wanted); });
    }
    bool wait_for_fdb(const std::function<bool(const fdb_record &)> &wanted) {
        return wait_for([&] { return std::any_of(records_.begin(), records_.end(), wanted); });
    }

    int receive() {
        const auto link = [this](const link_info &told) { links_.push_back(told); };
        const auto port = [this](const bridge_port &told) { ports_.push_back(told); };
        const auto fdb = [this](const fdb_record &told) { records_.push_back(told); };
        return monitor_.receive({.link = link, .port = port, .fdb = fdb});
    }

    [[nodiscard]] std::vector<fdb_place> numbered_places(uint32_t count) const {
        std::vector<fdb_place> places(count, {.mac = CLIENT, .port = link_.near()});
        for (uint32_t number = 0; number < count; number++) {
            places[number].mac[1] = static_cast<uint8_t>(number >> 8);
            places[number].mac[2] = static_cast<uint8_t>(number);
        }
        return places;
    }

    test_bridge bridge_{"bridge"};
    test_link link_{"near", "far"};
    kernel_monitor monitor_;
    std::vector<link_info> links_;
    std::vector<bridge_port> ports_;
    std::vector<fdb_record> records_;
};

TEST_F(monitor_test, does_not_wait_when_there_is_nothing_to_tell) {
    EXPECT_FALSE(is_readable());
    EXPECT_EQ(receive(), 0);
    EXPECT_THAT(links_, IsEmpty());
}

TEST_F(monitor_test, tells_of_a_new_interface) {
    const test_link more("more", "other");
    EXPECT_TRUE(wait_for_link([&](const link_info &link) {
        return link.name.data() == std::string("more") && link.index == more.near() && link_works(link);
    }));
}

TEST_F(monitor_test, tells_of_a_deleted_interface) {
    const uint32_t index = link_.near();
    delete_interface("near");
    EXPECT_TRUE(wait_for_link([&](const link_info &link) { return link.deleted && link.index == index; }));
}

TEST_F(monitor_test, tells_of_a_new_name_and_index_stays) {
    set_up(link_.far(), false);
    rename_interface(link_.far(), "renamed");
    const uint32_t index = if_nametoindex("renamed");
    EXPECT_TRUE(wait_for_link(
        [&](const link_info &link) { return link.name.data() == std::string("renamed") && link.index == index; }));
    rename_interface(index, "far");
}

TEST_F(monitor_test, tells_that_the_carrier_is_lost) {
    set_up(link_.far(), false);
    EXPECT_TRUE(wait_for_link([&](const link_info &link) {
        return link.index == link_.near() && link.up && !link.carrier && !link_works(link);
    }));
}

TEST_F(monitor_test, tells_that_a_port_has_left_its_bridge_and_not_that_it_is_gone) {
    set_master(link_.near(), 0);
    EXPECT_TRUE(wait_for_port([&](const bridge_port &port) { return port.index == link_.near() && port.bridge == 0; }));
    EXPECT_TRUE(std::any_of(links_.begin(), links_.end(), [&](const link_info &link) {
        return link.index == link_.near() && link.master == 0;
    })) << "the interface without its master";
    EXPECT_TRUE(std::none_of(links_.begin(), links_.end(), [](const link_info &link) { return link.deleted; }));
}

TEST_F(monitor_test, tells_that_a_port_has_joined_a_bridge) {
    set_master(link_.far(), bridge_.index());
    EXPECT_TRUE(wait_for_link(
        [&](const link_info &link) { return link.index == link_.far() && link.master == bridge_.index(); }));
    EXPECT_TRUE(wait_for_port(
        [&](const bridge_port &port) { return port.index == link_.far() && port.bridge == bridge_.index(); }));
}

TEST_F(monitor_test, tells_that_somebody_has_set_a_ports_flags) {
    EXPECT_EQ(bridge_port_set(rtnl_, link_.near(), {.flood = false}), 0);
    EXPECT_TRUE(wait_for_port([&](const bridge_port &port) {
        return port.index == link_.near() && port.bridge == bridge_.index() && !port.flags.flood &&
               port.flags.bcast_flood;
    }));
}

TEST_F(monitor_test, tells_of_an_address_that_was_learnt) {
    link_.send(ethernet_frame(BROADCAST, CLIENT, 0x1234));
    EXPECT_TRUE(wait_for_fdb([&](const fdb_record &record) {
        return record.mac == CLIENT && record.port == link_.near() && record.bridge == bridge_.index() &&
               !record.removed && !record.is_static;
    }));
}

TEST_F(monitor_test, tells_of_an_address_that_has_moved) {
    const test_link second("second", "other");
    bridge_.add(second.near());
    link_.send(ethernet_frame(BROADCAST, CLIENT, 0x1234));
    EXPECT_TRUE(wait_for_fdb([&](const fdb_record &record) { return record.port == link_.near(); }));
    second.send(ethernet_frame(BROADCAST, CLIENT, 0x1234));
    EXPECT_TRUE(
        wait_for_fdb([&](const fdb_record &record) { return record.mac == CLIENT && record.port == second.near(); }));
}

TEST_F(monitor_test, tells_of_entries_that_are_set_and_removed) {
    const fdb_place place{.mac = CLIENT, .port = link_.near()};
    EXPECT_EQ(fdb_pin(rtnl_, {&place, 1}), 0);
    EXPECT_TRUE(wait_for_fdb([](const fdb_record &record) { return record.mac == CLIENT && record.sticky; }));
    EXPECT_EQ(fdb_remove(rtnl_, {&place, 1}), 0);
    EXPECT_TRUE(wait_for_fdb([](const fdb_record &record) { return record.mac == CLIENT && record.removed; }));
}

TEST_F(monitor_test, is_not_woken_by_the_neighbours_of_ip) {
    rtnl_message message(RTM_NEWNEIGH, NLM_F_CREATE);
    auto *head = message.head<ndmsg>();
    head->ndm_family = AF_INET;
    head->ndm_ifindex = static_cast<int>(link_.far());
    head->ndm_state = NUD_PERMANENT;
    mnl_attr_put_u32(message.header, NDA_DST, 0x0100000A);
    mnl_attr_put(message.header, NDA_LLADDR, CLIENT.size(), CLIENT.data());
    EXPECT_EQ(rtnl_.request(message), 0);
    EXPECT_FALSE(is_readable());
}

TEST_F(monitor_test, calls_only_what_was_given_to_call) {
    set_up(link_.far(), false);
    EXPECT_TRUE(is_readable(1000));
    EXPECT_EQ(monitor_.receive({}), 0);
}

// As little room as the kernel allows: enough for one piece of news, not for a hundred.
TEST_F(monitor_test, tells_that_it_was_overrun_and_goes_on) {
    const int least = 1;
    EXPECT_EQ(setsockopt(monitor_.fd(), SOL_SOCKET, SO_RCVBUF, &least, sizeof least), 0);
    EXPECT_EQ(fdb_pin(rtnl_, numbered_places(100)), 0);
    int result = 0;
    while (result == 0 && is_readable())
        result = receive();
    EXPECT_EQ(result, ENOBUFS);
    const int plenty = 1 << 20;
    EXPECT_EQ(setsockopt(monitor_.fd(), SOL_SOCKET, SO_RCVBUF, &plenty, sizeof plenty), 0);
    while (is_readable())
        EXPECT_EQ(receive(), 0);
    links_.clear();
    set_up(link_.far(), false);
    EXPECT_TRUE(wait_for_link([&](const link_info &link) { return link.index == link_.near() && !link.carrier; }));
}

// What was told before the gap is not true any more by the time at which everything is looked at.
TEST_F(monitor_test, tells_nothing_from_before_an_overrun) {
    const int little = 8192;
    EXPECT_EQ(setsockopt(monitor_.fd(), SOL_SOCKET, SO_RCVBUF, &little, sizeof little), 0);
    set_master(link_.near(), 0);
    set_master(link_.near(), bridge_.index());
    EXPECT_EQ(fdb_pin(rtnl_, numbered_places(300)), 0);
    EXPECT_EQ(receive(), ENOBUFS);
    const fdb_place last = numbered_places(301).back();
    EXPECT_EQ(fdb_pin(rtnl_, {&last, 1}), 0);
    EXPECT_TRUE(wait_for_fdb([&](const fdb_record &record) { return record.mac == last.mac; })) << "it hears again";
    EXPECT_EQ(records_.size(), 1U);
    EXPECT_TRUE(std::none_of(links_.begin(), links_.end(),
                             [&](const link_info &link) { return link.index == link_.near() && link.master == 0; }));
}

TEST_F(monitor_test, keeps_what_a_thousand_moved_addresses_cause) {
    const std::vector<fdb_place> places = numbered_places(1000);
    EXPECT_EQ(fdb_pin(rtnl_, places), 0);
    while (is_readable())
        EXPECT_EQ(receive(), 0);
    EXPECT_EQ(records_.size(), places.size());
}

TEST_F(monitor_test, leaves_some_for_the_next_turn_when_there_is_very_much) {
    const std::vector<fdb_place> places = numbered_places(1000);
    EXPECT_EQ(fdb_pin(rtnl_, places), 0);
    EXPECT_EQ(receive(), 0);
    EXPECT_LT(records_.size(), places.size());
    EXPECT_THAT(records_, Not(IsEmpty()));
}

TEST_F(monitor_test, tells_when_no_socket_is_left) {
    kernel_monitor another;
    const no_descriptors none;
    EXPECT_EQ(another.open(), EMFILE);
}

TEST_F(monitor_test, that_was_never_opened_tells_so) {
    EXPECT_EQ(kernel_monitor().receive({}), EBADF);
}

struct length_row {
    const char *name;
    uint32_t length; // of the second of three messages
    int told;
};

using length_test = table_test<length_row>;

// What stands behind a message of a length that cannot be is not read.
TEST_P(length_test, ends_the_datagram_when_it_cannot_be) {
    alignas(NLMSG_ALIGNTO) std::array<std::byte, 256> datagram{};
    std::span<std::byte> rest = datagram;
    size_t size = 0;
    for (int number = 0; number < 3; number++) {
        rtnl_message message(RTM_DELLINK, 0);
        message.head<ifinfomsg>();
        memcpy(rest.data() + size, message.bytes.data(), message.header->nlmsg_len);
        if (number == 1)
            memcpy(rest.data() + size, &GetParam().length, sizeof(uint32_t));
        size += message.header->nlmsg_len;
    }
    int told = 0;
    const auto count = [&told](const link_info & /*link*/) { told++; };
    monitor_tell(rest.first(size), {.link = count, .port = {}, .fdb = {}});
    EXPECT_EQ(told, GetParam().told);
}

INSTANTIATE_TEST_SUITE_P(lengths, length_test,
                         testing::Values(length_row{"as_it_is", sizeof(nlmsghdr) + sizeof(ifinfomsg), 3},
                                         length_row{"none", 0, 1},
                                         length_row{"of_less_than_a_head", sizeof(nlmsghdr) - 1, 1},
                                         length_row{"of_more_than_there_is", 100, 1},
                                         length_row{"negative", 0x80000000, 1},
                                         length_row{"that_wraps", 0xFFFFFFFD, 1}),
                         row_name<length_row>);

} // namespace
