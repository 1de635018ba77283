// A bridge's forwarding table.
#include "kernel/net/fdb.h"

#include "linux/support/network.h"
#include "support/rows.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <linux/capability.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <map>
#include <sys/socket.h>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

static int sends; // since it was last set to 0

extern "C" {
ssize_t __real_sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *to, socklen_t to_size);
ssize_t __wrap_sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *to, socklen_t to_size);
}

ssize_t __wrap_sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *to, socklen_t to_size) {
    sends++;
    return __real_sendto(fd, bytes, size, flags, to, to_size);
}

namespace {

using namespace std::chrono_literals;

constexpr mac_address CLIENT = {0x02, 0, 0, 0, 0, 0x77};
constexpr mac_address SECOND_CLIENT = {0x02, 0, 0, 0, 0, 0x78};
constexpr uint32_t NOBODY = 4242;

class fdb_test : public kernel_test {
protected:
    fdb_test() {
        bridge_.add(first_.near());
        bridge_.add(second_.near());
    }

    std::vector<fdb_record> dump() {
        std::vector<fdb_record> records;
        EXPECT_EQ(fdb_dump(rtnl_, bridge_.index(), [&](const fdb_record &record) { records.push_back(record); }), 0);
        return records;
    }

    // The entry, or one without a bridge when there is none.
    fdb_record find(const mac_address &mac) {
        fdb_record record;
        return fdb_find(rtnl_, bridge_.index(), mac, &record) == 0 ? record : fdb_record{};
    }

    static void hear(const test_link &link, const mac_address &mac) {
        link.send(ethernet_frame(BROADCAST, mac, 0x1234));
    }

    int pin(const mac_address &mac, uint32_t port) {
        const fdb_place place{.mac = mac, .port = port};
        return fdb_pin(rtnl_, {&place, 1}, failed_);
    }
    int remove(const mac_address &mac, uint32_t port) {
        const fdb_place place{.mac = mac, .port = port};
        return fdb_remove(rtnl_, {&place, 1}, failed_);
    }

    test_bridge bridge_{"bridge"};
    test_link first_{"first", "far1"};
    test_link second_{"second", "far2"};
    test_link outside_{"outside", "far3"}; // not in the bridge
    std::vector<size_t> failures_;
    std::vector<int> codes_;
    const std::function<void(size_t, const rtnl_error &)> note_ = [this](size_t number, const rtnl_error &error) {
        failures_.push_back(number);
        codes_.push_back(error.code);
    };
    fdb_failure failed_{note_};
};

// The bridge's own file gives an entry 16 bytes: MAC, port number, whether it is local, age.
struct entry_in_file {
    mac_address mac;
    bool is_local;
    uint32_t age;
    bool operator<(const entry_in_file &other) const {
        return mac < other.mac;
    }
};

std::vector<entry_in_file> entries_in_file() {
    const std::string bytes = bytes_of("bridge", "brforward");
    std::vector<entry_in_file> entries;
    for (size_t place = 0; place + 16 <= bytes.size(); place += 16) {
        entry_in_file entry{};
        memcpy(entry.mac.data(), bytes.data() + place, entry.mac.size());
        entry.is_local = bytes[place + 7] != 0;
        memcpy(&entry.age, bytes.data() + place + 8, sizeof entry.age);
        entries.push_back(entry);
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

TEST_F(fdb_test, a_heard_address_is_learnt_on_its_port) {
    hear(first_, CLIENT);
    const fdb_record record = find(CLIENT);
    EXPECT_EQ(record.port, first_.near());
    EXPECT_EQ(record.bridge, bridge_.index());
    EXPECT_EQ(record.vlan, 0);
    EXPECT_FALSE(record.is_local || record.is_static || record.sticky || record.external || record.removed);
}

TEST_F(fdb_test, the_dump_says_what_the_bridges_own_file_says) {
    hear(first_, CLIENT);
    hear(second_, SECOND_CLIENT);
    EXPECT_EQ(pin({0x02, 0, 0, 0, 0, 0x88}, first_.near()), 0);
    std::this_thread::sleep_for(150ms);
    const std::vector<entry_in_file> before = entries_in_file();
    std::vector<entry_in_file> entries;
    for (const fdb_record &record : dump())
        if (record.vlan == 0 && record.port != bridge_.index())
            entries.push_back({record.mac, record.is_local, record.age_ticks});
    const std::vector<entry_in_file> after = entries_in_file();
    std::sort(entries.begin(), entries.end());
    ASSERT_EQ(entries.size(), before.size());
    for (size_t place = 0; place < entries.size(); place++) {
        EXPECT_EQ(entries[place].mac, before[place].mac);
        EXPECT_EQ(entries[place].is_local, before[place].is_local);
        EXPECT_GE(entries[place].age + 1, before[place].age); // each rounds in its own way
        EXPECT_LE(entries[place].age, after[place].age + 1);
    }
}

TEST_F(fdb_test, the_age_counts_hundredths_of_a_second_since_the_address_was_heard) {
    hear(first_, CLIENT);
    std::this_thread::sleep_for(200ms);
    const uint32_t aged = find(CLIENT).age_ticks;
    EXPECT_GE(aged, 19U);
    EXPECT_LE(aged, 2000U); // the machine may be slow, not by a factor
    hear(first_, CLIENT);
    EXPECT_LT(find(CLIENT).age_ticks, aged);
}

TEST_F(fdb_test, the_dump_has_the_ports_own_addresses_as_local_ones) {
    std::map<uint32_t, mac_address> local;
    for (const fdb_record &record : dump())
        if (record.is_local && record.vlan == 0 && record.port != bridge_.index())
            local[record.port] = record.mac;
    EXPECT_EQ(local[first_.near()], mac_of("first"));
    EXPECT_EQ(local[second_.near()], mac_of("second"));
    EXPECT_THAT(local, SizeIs(2));
}

TEST_F(fdb_test, the_dump_leaves_other_bridges_out) {
    const test_bridge another("another");
    const test_bridge without_ports("without-ports"); // an address that is on none
    another.add(outside_.near());
    hear(outside_, CLIENT);
    for (const fdb_record &record : dump()) {
        EXPECT_EQ(record.bridge, bridge_.index());
        EXPECT_NE(record.mac, CLIENT);
    }
}

TEST_F(fdb_test, the_dump_of_what_is_no_bridge_fails) {
    EXPECT_EQ(fdb_dump(rtnl_, NOBODY, {}), ENODEV);
}

TEST_F(fdb_test, large_tables_are_dumped_whole) {
    std::vector<fdb_place> places(1000);
    for (size_t number = 0; number < places.size(); number++)
        places[number] = {.mac = {0x02, 1, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)},
                          .port = first_.near()};
    EXPECT_EQ(fdb_pin(rtnl_, places), 0);
    const auto is_one = [](const fdb_record &record) { return record.mac[1] == 1 && record.mac[0] == 2; };
    const std::vector<fdb_record> records = dump();
    EXPECT_EQ(std::count_if(records.begin(), records.end(), is_one), 1000);
}

TEST_F(fdb_test, an_unknown_address_is_not_found_nor_anything_in_an_unknown_bridge) {
    fdb_record record;
    EXPECT_EQ(fdb_find(rtnl_, bridge_.index(), CLIENT, &record), ENOENT);
    EXPECT_EQ(fdb_find(rtnl_, NOBODY, CLIENT, &record), EINVAL);
}

TEST_F(fdb_test, a_pinned_address_stays_when_it_is_heard_elsewhere) {
    EXPECT_EQ(pin(CLIENT, first_.near()), 0);
    hear(second_, CLIENT);
    std::this_thread::sleep_for(50ms);
    const fdb_record record = find(CLIENT);
    EXPECT_EQ(record.port, first_.near());
    EXPECT_TRUE(record.is_static);
    EXPECT_TRUE(record.sticky);
    EXPECT_FALSE(record.is_local);
    EXPECT_EQ(record.age_ticks, 0U);
}

TEST_F(fdb_test, a_pinned_address_is_idle_until_a_frame_comes_from_it_or_goes_to_it) {
    EXPECT_EQ(pin(CLIENT, first_.near()), 0);
    const std::function<void()> frames[] = {
        [&] { hear(first_, CLIENT); },
        [&] { second_.send(ethernet_frame(CLIENT, SECOND_CLIENT, 0x1234)); },
    };
    for (const auto &frame : frames) {
        std::this_thread::sleep_for(200ms);
        const uint32_t idle = find(CLIENT).idle_ticks;
        EXPECT_GE(idle, 19U);
        EXPECT_LE(idle, 2000U);
        frame();
        EXPECT_LT(find(CLIENT).idle_ticks, idle);
    }
}

TEST_F(fdb_test, frames_to_a_pinned_address_leave_by_its_port_alone) {
    EXPECT_EQ(pin(CLIENT, first_.near()), 0);
    second_.send(ethernet_frame(CLIENT, SECOND_CLIENT, 0x1234));
    EXPECT_THAT(first_.sent_frame(0x1234), SizeIs(21));
    EXPECT_EQ(pin(CLIENT, second_.near()), 0);
    first_.send(ethernet_frame(CLIENT, SECOND_CLIENT, 0x1235));
    EXPECT_THAT(second_.sent_frame(0x1235), SizeIs(21));
}

TEST_F(fdb_test, pinning_takes_a_learnt_address_over) {
    hear(first_, CLIENT);
    EXPECT_EQ(pin(CLIENT, second_.near()), 0);
    EXPECT_EQ(find(CLIENT).port, second_.near());
    EXPECT_TRUE(find(CLIENT).sticky);
}

TEST_F(fdb_test, pinning_again_moves_a_pinned_address) {
    EXPECT_EQ(pin(CLIENT, first_.near()), 0);
    EXPECT_EQ(pin(CLIENT, second_.near()), 0);
    EXPECT_EQ(find(CLIENT).port, second_.near());
    EXPECT_TRUE(find(CLIENT).sticky);
    EXPECT_EQ(pin(CLIENT, second_.near()), 0);
}

TEST_F(fdb_test, a_removed_address_is_learnt_where_it_is_heard_next) {
    EXPECT_EQ(pin(CLIENT, first_.near()), 0);
    EXPECT_EQ(remove(CLIENT, first_.near()), 0);
    EXPECT_EQ(find(CLIENT).bridge, 0U);
    hear(second_, CLIENT);
    EXPECT_EQ(find(CLIENT).port, second_.near());
}

TEST_F(fdb_test, an_address_is_removed_only_from_the_port_that_was_named) {
    EXPECT_EQ(pin(CLIENT, first_.near()), 0);
    EXPECT_EQ(remove(CLIENT, second_.near()), ENOENT);
    EXPECT_EQ(find(CLIENT).port, first_.near());
}

TEST_F(fdb_test, removing_what_is_not_there_is_told) {
    EXPECT_EQ(remove(CLIENT, first_.near()), ENOENT);
    EXPECT_THAT(failures_, ElementsAre(0));
}

TEST_F(fdb_test, what_fails_does_not_keep_the_rest_from_being_done) {
    const std::vector<fdb_place> places = {{.mac = CLIENT, .port = first_.near()},
                                           {.mac = {0x02, 0, 0, 0, 0, 1}, .port = NOBODY},
                                           {.mac = {0x02, 0, 0, 0, 0, 2}, .port = outside_.near()},
                                           {.mac = {0x03, 0, 0, 0, 0, 3}, .port = first_.near()},
                                           {.mac = SECOND_CLIENT, .port = second_.near()}};
    EXPECT_EQ(fdb_pin(rtnl_, places, failed_), ENODEV);
    EXPECT_THAT(failures_, ElementsAre(1, 2));
    EXPECT_THAT(codes_, ElementsAre(ENODEV, EOPNOTSUPP));
    EXPECT_EQ(find(CLIENT).port, first_.near());
    EXPECT_EQ(find(SECOND_CLIENT).port, second_.near());
}

TEST_F(fdb_test, changing_needs_the_right_and_reading_does_not) {
    hear(first_, CLIENT);
    const without_capability none(CAP_NET_ADMIN);
    EXPECT_EQ(pin(CLIENT, second_.near()), EPERM);
    EXPECT_EQ(remove(CLIENT, first_.near()), EPERM);
    EXPECT_EQ(find(CLIENT).port, first_.near());
}

TEST_F(fdb_test, without_places_there_is_nothing_to_do) {
    EXPECT_EQ(fdb_pin(rtnl_, {}, failed_), 0);
    EXPECT_EQ(fdb_remove(rtnl_, {}, failed_), 0);
    EXPECT_THAT(failures_, IsEmpty());
}

TEST_F(fdb_test, a_thousand_addresses_move_with_five_messages_to_the_kernel) {
    std::vector<fdb_place> places(1000);
    for (size_t number = 0; number < places.size(); number++)
        places[number] = {.mac = {0x02, 1, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)},
                          .port = first_.near()};
    sends = 0;
    EXPECT_EQ(fdb_pin(rtnl_, places), 0);
    EXPECT_EQ(sends, 5);
}

// A message as the kernel would send it.
struct told {
    rtnl_message message;
    ndmsg *head;
    explicit told(uint16_t type = RTM_NEWNEIGH) : message(type, 0), head(message.head<ndmsg>()) {
        head->ndm_family = AF_BRIDGE;
        head->ndm_ifindex = 7;
        mnl_attr_put(message.header, NDA_LLADDR, CLIENT.size(), CLIENT.data());
        mnl_attr_put_u32(message.header, NDA_MASTER, 9);
    }
    bool parse() {
        return fdb_parse(*message.header, &record);
    }
    fdb_record record;
};

TEST(fdb_parse_test, an_entry_of_a_bridge_is_read) {
    told entry;
    EXPECT_TRUE(entry.parse());
    EXPECT_EQ(entry.record.mac, CLIENT);
    EXPECT_EQ(entry.record.port, 7U);
    EXPECT_EQ(entry.record.bridge, 9U);
}

TEST(fdb_parse_test, a_removed_entry_is_told_as_such) {
    told entry(RTM_DELNEIGH);
    EXPECT_TRUE(entry.parse());
    EXPECT_TRUE(entry.record.removed);
}

TEST(fdb_parse_test, an_entry_of_a_switch_chip_is_external) {
    told entry;
    entry.head->ndm_flags = NTF_EXT_LEARNED;
    EXPECT_TRUE(entry.parse());
    EXPECT_TRUE(entry.record.external);
}

struct not_an_entry {
    const char *name;
    void (*differ)(told &);
};

using not_an_entry_test = table_test<not_an_entry>;

TEST_P(not_an_entry_test, is_left_alone) {
    told entry;
    GetParam().differ(entry);
    EXPECT_FALSE(entry.parse());
}

INSTANTIATE_TEST_SUITE_P(
    messages, not_an_entry_test,
    testing::Values(not_an_entry{"a_neighbour_of_ip", [](told &entry) { entry.head->ndm_family = AF_INET; }},
                    not_an_entry{"an_address_of_the_interface_itself",
                                 [](told &entry) { entry.head->ndm_flags = NTF_SELF; }},
                    not_an_entry{"another_kind", [](told &entry) { entry.message.header->nlmsg_type = RTM_NEWLINK; }},
                    not_an_entry{"cut_off_in_its_head", [](told &entry) { entry.message.header->nlmsg_len = 27; }},
                    not_an_entry{"without_its_attributes", [](told &entry) { entry.message.header->nlmsg_len = 28; }},
                    not_an_entry{"without_its_bridge", [](told &entry) { entry.message.header->nlmsg_len = 40; }}),
    row_name<not_an_entry>);

TEST(fdb_parse_test, an_address_of_another_length_is_left_alone) {
    rtnl_message message(RTM_NEWNEIGH, 0);
    message.head<ndmsg>()->ndm_family = AF_BRIDGE;
    mnl_attr_put_u32(message.header, NDA_LLADDR, 0x0100000A);
    mnl_attr_put_u32(message.header, NDA_MASTER, 9);
    fdb_record record;
    EXPECT_FALSE(fdb_parse(*message.header, &record));
}

} // namespace
