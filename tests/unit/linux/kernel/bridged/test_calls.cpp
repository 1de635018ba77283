// What the libraries ask for, and what becomes of it.
#include "bridged/calls.h"

#include "bridged/clients.h"
#include "bridged/requests/table_writer.h"
#include "linux/support/bridged_test.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <netinet/in.h>
#include <unistd.h>

namespace {

constexpr size_t ROOM = 64; // records of a table that a test reads

class calls_test : public bridged_test {
protected:
    calls_test() {
        join();
    }

    [[nodiscard]] const port_wish &wish(size_t place) {
        tree &links = life_.node().links;
        return links.ports.at(static_cast<size_t>(tree_slot(links, port(place)))).wish;
    }

    // The records that a call has produced.
    template <class Record, class Call> std::vector<Record> records_of(Call call) {
        table_writer table(sizeof(Record), ROOM);
        EXPECT_EQ(call(&table), 0);
        EXPECT_TRUE(table.finish());
        std::vector<Record> records(table.count());
        const unique_fd file = table.take_file();
        const auto size = static_cast<ssize_t>(records.size() * sizeof(Record));
        EXPECT_TRUE(records.empty() || pread(file.get(), records.data(), static_cast<size_t>(size), 0) == size);
        return records;
    }
    template <class Record> std::vector<Record> table(bridge_table code) {
        return records_of<Record>([&](table_writer *to) { return calls_.get_table(life_.get(), "br0", code, to); });
    }

    // A stream from a host to the client, which leaves by the fast link.
    [[nodiscard]] bool streams() {
        EXPECT_EQ(clients_add(&life_.node(), CLIENT.data(), SECOND.data(), "p1"), 0);
        wires_.end(HOSTS).send(ip_frame{}.bytes());
        const bool known = comes_true([this] { return life_->streams.count() == 1; });
        life_->streams.end_period();
        return known;
    }
    int point_to(const char *ifname, uint16_t dst_port = 80) {
        kolt_stream_record stream;
        EXPECT_EQ(life_->streams.read({&stream, 1}), 1U);
        const stream_key key{
            .hash = stream.key.hash, .src_port = 5000, .dst_port = dst_port, .stream_kind = 1, .carried_value = 0};
        return calls_.set_ha_entry(life_.get(), "br0", SERVER.data(), CLIENT.data(), key, ifname);
    }

    request_handlers calls_ = calls_of(life_.get());
};

struct call_row {
    const char *name;
    int (*call)(const request_handlers &calls, const char *bridge, const char *ifname);
};

#define KOLT_CALL(name, ...)                                                                                           \
    {                                                                                                                  \
#name, [](const request_handlers &calls, [[maybe_unused]] const char *bridge,                                  \
                  [[maybe_unused]] const char *ifname) { return calls.name(calls.context, __VA_ARGS__); }              \
    }

TEST_F(calls_test, NeedABridgeThatIsThere) {
    const call_row rows[] = {
        KOLT_CALL(set_bridge_mode, bridge, 0),
        KOLT_CALL(set_tcp_sp, bridge, 1),
        KOLT_CALL(set_follow_re, bridge, 1),
        KOLT_CALL(set_couple, bridge, ifname, "p3", 1),
        KOLT_CALL(flush_hd_table, bridge),
        KOLT_CALL(flush_ha_table, bridge),
        KOLT_CALL(set_event_info, bridge, 1, 2, 39),
        KOLT_CALL(check_bridge, bridge),
        KOLT_CALL(add_hd_entry, bridge, CLIENT.data(), SECOND.data(), ifname, ifname),
    };
    for (const call_row &row : rows) {
        EXPECT_EQ(row.call(calls_, "br0", "p1"), 0) << row.name;
        EXPECT_EQ(row.call(calls_, "br9", "p1"), ENODEV) << row.name;
    }
    life_.node().ifindex = 0;
    for (const call_row &row : rows)
        EXPECT_EQ(row.call(calls_, "br0", "p1"), ENODEV) << row.name;
}

TEST_F(calls_test, OnesAboutAPortNeedOneOfTheBridge) {
    const call_row rows[] = {
        KOLT_CALL(set_if_group, bridge, ifname, 0, 0), KOLT_CALL(set_if_type, bridge, ifname, 3),
        KOLT_CALL(set_if_class, bridge, ifname, 0),    KOLT_CALL(set_if_path, bridge, ifname, 1),
        KOLT_CALL(set_if_compat, bridge, ifname, 4),   KOLT_CALL(set_if_broadcast, bridge, ifname, 1),
        KOLT_CALL(set_needha, bridge, ifname, 1),      KOLT_CALL(flush_fdb, bridge, ifname),
    };
    for (const call_row &row : rows) {
        EXPECT_EQ(row.call(calls_, "br0", "p1"), 0) << row.name;
        EXPECT_EQ(row.call(calls_, "br0", "p3"), 0) << row.name << ": a port for hosts will do";
        EXPECT_EQ(row.call(calls_, "br0", "p9"), ENODEV) << row.name;
        EXPECT_EQ(row.call(calls_, "br9", "p1"), ENODEV) << row.name;
    }
}

TEST_F(calls_test, WishesReachTheTree) {
    EXPECT_EQ(calls_.set_if_group(life_.get(), "br0", "p2", 0, 0), 0);
    EXPECT_EQ(wish(CHILD_LINK).group, PORT_NONRELAY);
    EXPECT_EQ(calls_.set_if_group(life_.get(), "br0", "p2", 1, 1), 0);
    EXPECT_EQ(wish(CHILD_LINK).group, PORT_RELAY);
    EXPECT_EQ(calls_.set_if_type(life_.get(), "br0", "p0", KOLT_LINK_5G_2), 0);
    EXPECT_EQ(wish(SLOW_LINK).type, KOLT_LINK_5G_2);
    EXPECT_EQ(calls_.set_if_class(life_.get(), "br0", "p0", 1), 0);
    EXPECT_EQ(wish(SLOW_LINK).class_, 1);
    EXPECT_EQ(calls_.set_if_broadcast(life_.get(), "br0", "p0", 1), 0);
    EXPECT_TRUE(wish(SLOW_LINK).permit);
    EXPECT_EQ(calls_.set_if_broadcast(life_.get(), "br0", "p0", 0), 0);
    EXPECT_FALSE(wish(SLOW_LINK).permit);
}

TEST_F(calls_test, KernelFollowsAWishAtOnce) {
    EXPECT_EQ(calls_.set_needha(life_.get(), "br0", "p1", 0), 0);
    EXPECT_EQ(life_.word(port(FAST_LINK)).flags & KOLT_PORT_NEED_HA, 0);
    EXPECT_EQ(calls_.set_needha(life_.get(), "br0", "p1", 1), 0);
    EXPECT_NE(life_.word(port(FAST_LINK)).flags & KOLT_PORT_NEED_HA, 0);
    EXPECT_EQ(calls_.set_if_broadcast(life_.get(), "br0", "p0", 1), 0);
    EXPECT_EQ(life_.word(port(SLOW_LINK)).accepts, 3);
    EXPECT_EQ(life_.word(port(FAST_LINK)).accepts, 0);
}

TEST_F(calls_test, WishThatChangesNothingSetsNothing) {
    (void)life_.announced_ports();
    EXPECT_EQ(calls_.set_if_path(life_.get(), "br0", "p1", 0), 0);
    EXPECT_EQ(calls_.set_if_compat(life_.get(), "br0", "p1", 9), 0);
    EXPECT_EQ(calls_.set_if_type(life_.get(), "br0", "p1", KOLT_LINK_5G), 0);
    EXPECT_THAT(life_.announced_ports(), testing::IsEmpty());
}

TEST_F(calls_test, ClassIsOneThatThereIs) {
    EXPECT_EQ(calls_.set_if_class(life_.get(), "br0", "p1", -1), EINVAL);
    for (const char *name : {"p1", "p3"})
        for (const int none : {2, 3, 4, 256})
            EXPECT_EQ(calls_.set_if_class(life_.get(), "br0", name, none), EINVAL) << name << ' ' << none;
    EXPECT_EQ(wish(FAST_LINK).class_, 0);
    EXPECT_EQ(life_.word(port(HOSTS)), kolt_port{.class_ = 0});
    EXPECT_EQ(calls_.set_if_class(life_.get(), "br0", "p3", 1), 0);
    EXPECT_EQ(life_.word(port(HOSTS)), kolt_port{.class_ = 1}) << "frames of hosts have one too";
}

TEST_F(calls_test, ModeMakesARootOfTheNode) {
    EXPECT_EQ(calls_.set_bridge_mode(life_.get(), "br0", 1), 0);
    EXPECT_EQ(life_->mode, KOLT_MODE_FAP);
    EXPECT_EQ(rank_of(life_.node().links.id), NODE_RANK_ROOT);
    EXPECT_EQ(calls_.set_bridge_mode(life_.get(), "br0", 0), 0);
    EXPECT_EQ(life_->mode, KOLT_MODE_RE);
    EXPECT_EQ(rank_of(life_.node().links.id), NODE_RANK_EXTENDER);
    life_->settings.mode = KOLT_MODE_HAP;
    EXPECT_EQ(calls_.set_bridge_mode(life_.get(), "br0", 1), 0);
    EXPECT_EQ(life_->mode, KOLT_MODE_HAP);
}

TEST_F(calls_test, StreamsFollowTheChildWhenTheyAreTo) {
    EXPECT_EQ(calls_.set_follow_re(life_.get(), "br0", 1), 0);
    EXPECT_TRUE(life_.node().links.follow);
    EXPECT_EQ(calls_.set_follow_re(life_.get(), "br0", 0), 0);
    EXPECT_FALSE(life_.node().links.follow);
}

TEST_F(calls_test, PlacedClientsAreATable) {
    ASSERT_EQ(calls_.add_hd_entry(life_.get(), "br0", CLIENT.data(), SECOND.data(), "p1", "p1"), 0);
    const auto records = table<bridge_hd_record>(BRIDGE_TABLE_HD);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(memcmp(records[0].client_mac, CLIENT.data(), CLIENT.size()), 0);
    EXPECT_EQ(memcmp(records[0].second_mac, SECOND.data(), SECOND.size()), 0);
    EXPECT_EQ(uint32_t{records[0].port}, port(FAST_LINK));
    EXPECT_EQ(calls_.delete_hd_entries(life_.get(), "br0", CLIENT.data(), SECOND.data(), "p1"), 0);
    EXPECT_EQ(calls_.delete_hd_entries(life_.get(), "br0", CLIENT.data(), SECOND.data(), "p1"), ENOENT);
    EXPECT_EQ(calls_.delete_hd_entries(life_.get(), "br9", CLIENT.data(), SECOND.data(), "p1"), ENODEV);
    EXPECT_TRUE(table<bridge_hd_record>(BRIDGE_TABLE_HD).empty());
}

TEST_F(calls_test, ClientThatWaitsForItsPortIsInNoPlace) {
    lose(FAST_LINK);
    ASSERT_EQ(calls_.add_hd_entry(life_.get(), "br0", CLIENT.data(), SECOND.data(), "p1", "p1"), ENETDOWN);
    EXPECT_TRUE(table<bridge_hd_record>(BRIDGE_TABLE_HD).empty());
    find_again();
    EXPECT_EQ(table<bridge_hd_record>(BRIDGE_TABLE_HD).size(), 1U);
}

TEST_F(calls_test, FlushingTakesAllPlacesBack) {
    ASSERT_EQ(calls_.add_hd_entry(life_.get(), "br0", CLIENT.data(), SECOND.data(), "p1", "p1"), 0);
    EXPECT_EQ(calls_.flush_hd_table(life_.get(), "br0"), 0);
    EXPECT_TRUE(table<bridge_hd_record>(BRIDGE_TABLE_HD).empty());
}

TEST_F(calls_test, ForwardingTableHasWhatTheBridgeLearnt) {
    ASSERT_TRUE(learns(CLIENT, CHILD_LINK));
    const auto of_client = [](const bridge_fdb_record &entry) {
        return memcmp(entry.mac, CLIENT.data(), CLIENT.size()) == 0;
    };
    const auto records = table<bridge_fdb_record>(BRIDGE_TABLE_FDB);
    const auto found = std::find_if(records.begin(), records.end(), of_client);
    ASSERT_NE(found, records.end());
    EXPECT_EQ(found->port_low | found->port_high << 8, static_cast<int>(port(CHILD_LINK)));
    EXPECT_EQ(found->is_local, 0);
    EXPECT_EQ(calls_.flush_fdb(life_.get(), "br0", "p1"), 0);
    EXPECT_EQ(life_.entry(CLIENT).port, port(CHILD_LINK)) << "it is of another port";
    EXPECT_EQ(calls_.flush_fdb(life_.get(), "br0", "p2"), 0);
    EXPECT_EQ(life_.entry(CLIENT).port, 0U);
}

TEST_F(calls_test, StreamOfBothWaysIsTwoRecords) {
    ASSERT_TRUE(streams());
    EXPECT_EQ(table<bridge_ha_record>(BRIDGE_TABLE_HA).size(), 1U);
    wires_.end(FAST_LINK).send(ip_frame{}.answer().bytes());
    const auto counted = [this] {
        life_->streams.end_period();
        return table<bridge_ha_record>(BRIDGE_TABLE_HA).size() == 2;
    };
    ASSERT_TRUE(comes_true(counted));
    const auto records = table<bridge_ha_record>(BRIDGE_TABLE_HA);
    EXPECT_EQ(memcmp(records[1].src_mac, CLIENT.data(), CLIENT.size()), 0);
    EXPECT_EQ(uint16_t{records[1].src_port}, 80);
    EXPECT_EQ(uint16_t{records[1].dst_port}, 5000);
    EXPECT_EQ(records[1].flags, BRIDGE_HA_MERGEABLE);
    EXPECT_EQ(uint32_t{records[1].packets}, 1U);
}

TEST_F(calls_test, StreamIsPointedToAPort) {
    ASSERT_TRUE(streams());
    EXPECT_EQ(uint32_t{table<bridge_ha_record>(BRIDGE_TABLE_HA).at(0).port}, port(FAST_LINK));
    EXPECT_EQ(point_to("p0"), 0);
    EXPECT_EQ(uint32_t{table<bridge_ha_record>(BRIDGE_TABLE_HA).at(0).port}, port(SLOW_LINK));
    EXPECT_EQ(point_to("p1", 81), ENOENT);
    EXPECT_EQ(point_to("p9"), ENODEV);
    EXPECT_EQ(calls_.flush_ha_table(life_.get(), "br0"), 0);
    EXPECT_TRUE(table<bridge_ha_record>(BRIDGE_TABLE_HA).empty());
}

TEST_F(calls_test, StreamIsPointedToNoPortThatItCannotLeaveBy) {
    const auto stays = [this] {
        return uint32_t{table<bridge_ha_record>(BRIDGE_TABLE_HA).at(0).port} == port(FAST_LINK);
    };
    ASSERT_TRUE(streams());
    EXPECT_EQ(point_to("p3"), EHOSTUNREACH) << "hosts are there";
    EXPECT_TRUE(stays());
    life_.settle_after([this](one_node &node) {
        puppet child = child_on(port(CHILD_LINK));
        child.root = BEST;
        child.parent = node_mac(node.state.id);
        node.puppets.push_back(child);
        node.pass(500);
    });
    ASSERT_NE(life_.word(port(CHILD_LINK)).group, 0) << "a child is there";
    EXPECT_EQ(point_to("p2"), EHOSTUNREACH);
    EXPECT_TRUE(stays());
    lose(SLOW_LINK);
    EXPECT_EQ(point_to("p0"), EHOSTUNREACH) << "it is closed";
    EXPECT_TRUE(stays());
    EXPECT_EQ(point_to("p1"), 0);
}

// One whose port has gone is left to whoever wants it.
TEST_F(calls_test, StreamWithoutALinkIsPointedToAnyOther) {
    ASSERT_TRUE(streams());
    life_->streams.repoint(0, 4000);
    EXPECT_EQ(point_to("p0"), 0);
    EXPECT_EQ(life_->streams.record(0).target, port(SLOW_LINK));
}

TEST_F(calls_test, TablesThatThereAreNot) {
    table_writer none(1, ROOM);
    EXPECT_EQ(calls_.get_table(life_.get(), "br0", static_cast<bridge_table>(3), &none), EINVAL);
    EXPECT_EQ(calls_.get_table(life_.get(), "br9", BRIDGE_TABLE_FDB, &none), ENODEV);
    EXPECT_EQ(calls_.get_ports(life_.get(), "br9", &none), ENODEV);
}

TEST_F(calls_test, PortsAndEthernetsAreLists) {
    std::vector<uint32_t> ports;
    for (const auto &record :
         records_of<bridge_port_record>([this](table_writer *to) { return calls_.get_ports(life_.get(), "br0", to); }))
        ports.push_back(record.ifindex);
    EXPECT_THAT(ports, testing::UnorderedElementsAre(port(SLOW_LINK), port(FAST_LINK), port(CHILD_LINK), port(HOSTS)));
    const auto ethernets =
        records_of<ethernet_name_record>([this](table_writer *to) { return calls_.get_ethernets(life_.get(), to); });
    ASSERT_EQ(ethernets.size(), 1U);
    EXPECT_STREQ(ethernets[0].name, "p3");
}

TEST_F(calls_test, ParentIsToldOfAMovedStream) {
    (void)wires_.end(FAST_LINK).count_arrived(1);
    moved_stream_record moved{};
    memcpy(moved.src_mac, SERVER.data(), SERVER.size());
    memcpy(moved.dst_mac, CLIENT.data(), CLIENT.size());
    moved.src_port = 5000;
    moved.dst_port = 80;
    moved.protocol = IPPROTO_UDP;
    moved.path = KOLT_LINK_2G;
    EXPECT_EQ(calls_.moved_stream(life_.get(), moved), 0);
    const stream_notice expected{
        .src = SERVER, .dst = CLIENT, .src_port = 5000, .dst_port = 80, .protocol = IPPROTO_UDP, .type = KOLT_LINK_2G};
    neighbour_frame frame;
    for (int i = 0; i < 10 && frame.stream_count == 0; i++) {
        const std::string bytes = wires_.end(FAST_LINK).receive(200);
        (void)frame_decode({reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()}, &frame);
    }
    ASSERT_EQ(frame.stream_count, 1);
    EXPECT_EQ(frame.streams[0], expected);
}

TEST_F(calls_test, NobodyHasToRegisterForEvents) {
    EXPECT_EQ(calls_.register_neighbours(life_.get(), 1), 0);
    EXPECT_EQ(calls_.event_socket_added, nullptr);
}

} // namespace
