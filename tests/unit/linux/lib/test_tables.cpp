// Table buffers, tables that fit or do not, and the queries that go through a buffer's message.
#include "linux/support/library_test.h"

#include <sys/resource.h>

namespace {

constexpr size_t HEADER = 52;
constexpr size_t LENGTH_DISTANCE = 8;

// A buffer that the library made, filled with something that no table holds.
class table_buffer {
public:
    explicit table_buffer(uint32_t size, const char *bridge = "br-lan") : payload_(bridgeAllocTableBuf(size, bridge)) {
        EXPECT_NE(payload_, nullptr);
        memset(payload_, '?', size);
    }
    ~table_buffer() {
        bridgeFreeTableBuf(payload_);
    }
    table_buffer(const table_buffer &) = delete;
    table_buffer &operator=(const table_buffer &) = delete;

    [[nodiscard]] void *payload() const {
        return payload_;
    }
    [[nodiscard]] void *message() const {
        return static_cast<char *>(payload_) - HEADER;
    }
    [[nodiscard]] std::string bytes(size_t size) const {
        return {static_cast<const char *>(payload_), size};
    }
    [[nodiscard]] uint32_t reply_length() const {
        uint32_t length;
        memcpy(&length, static_cast<const char *>(payload_) - LENGTH_DISTANCE, sizeof length);
        return length;
    }

private:
    void *payload_;
};

struct table_row {
    const char *name;
    int code;
    size_t record_size;
};

class table_test : public library_test, public testing::WithParamInterface<table_row> {
protected:
    static recorded_node with_records(int number) {
        recorded_node node;
        for (int i = 0; i < number; i++)
            node.tables[GetParam().code].emplace_back(GetParam().record_size, static_cast<char>('a' + i));
        return node;
    }
    static std::string records(int number) {
        std::string all;
        for (int i = 0; i < number; i++)
            all += std::string(GetParam().record_size, static_cast<char>('a' + i));
        return all;
    }
};

TEST_P(table_test, that_fits_exactly_is_copied_and_counted) {
    server_process server(with_records(3));
    const table_buffer buffer(static_cast<uint32_t>(4 * GetParam().record_size));
    uint32_t entries = 3;
    EXPECT_EQ(bridgeTableAction("br-lan", GetParam().code, &entries, buffer.payload(), 0), 0);
    EXPECT_EQ(entries, 3U);
    EXPECT_EQ(buffer.bytes(4 * GetParam().record_size), records(3) + std::string(GetParam().record_size, '?'));
    EXPECT_EQ(server.calls(), lines{"get_table(br-lan, " + std::to_string(GetParam().code) + ")"});
}

TEST_P(table_test, that_does_not_fit_fails_with_the_number_that_is_needed) {
    const server_process server(with_records(3));
    const table_buffer buffer(static_cast<uint32_t>(2 * GetParam().record_size));
    uint32_t entries = 2;
    EXPECT_NE(bridgeTableAction("br-lan", GetParam().code, &entries, buffer.payload(), 0), 0);
    EXPECT_EQ(entries, 3U);
    entries = 0;
    EXPECT_NE(bridgeTableAction("br-lan", GetParam().code, &entries, nullptr, 0), 0);
    EXPECT_EQ(entries, 3U);
}

TEST_P(table_test, that_is_empty_succeeds) {
    const server_process server;
    const table_buffer buffer(static_cast<uint32_t>(GetParam().record_size));
    uint32_t entries = 1;
    EXPECT_EQ(bridgeTableAction("br-lan", GetParam().code, &entries, buffer.payload(), 0), 0);
    EXPECT_EQ(entries, 0U);
}

TEST_P(table_test, that_failed_has_no_entries) {
    recorded_node node = with_records(1);
    node.failures["get_table"] = 1;
    const server_process server(std::move(node));
    const table_buffer buffer(static_cast<uint32_t>(GetParam().record_size));
    uint32_t entries = 1;
    EXPECT_NE(bridgeTableAction("br-lan", GetParam().code, &entries, buffer.payload(), 0), 0);
    EXPECT_EQ(entries, 0U);
}

INSTANTIATE_TEST_SUITE_P(tables, table_test,
                         testing::Values(table_row{"Ha", 8, 100}, table_row{"Hd", 1, 24}, table_row{"Fdb", 2, 16}),
                         [](const auto &tested) { return std::string(tested.param.name); });

class query_test : public library_test {};

TEST_F(query_test, of_a_table_that_is_none_is_refused_unasked) {
    server_process server;
    const table_buffer buffer(100);
    uint32_t entries = 1;
    EXPECT_NE(bridgeTableAction("br-lan", 3, &entries, buffer.payload(), 0), 0);
    EXPECT_NE(bridgeTableAction("br-lan", 8, nullptr, buffer.payload(), 0), 0);
    EXPECT_EQ(server.calls(), lines{});
}

TEST_F(query_test, of_ports_brings_a_record_each_and_their_length) {
    recorded_node node;
    node.ports = {7, 300};
    server_process server(std::move(node));
    const table_buffer buffer(4608);
    EXPECT_EQ(netlink_msg(256, buffer.message(), 4608, 38), 0);
    EXPECT_EQ(buffer.reply_length(), 72U);
    EXPECT_EQ(buffer.bytes(72), raw(bridge_port_record{.ifindex = 7, .unused = {}}) +
                                    raw(bridge_port_record{.ifindex = 300, .unused = {}}));
    EXPECT_EQ(server.calls(), lines{"get_ports(br-lan)"});
}

TEST_F(query_test, of_more_ports_than_fit_brings_those_that_do) {
    recorded_node node;
    node.ports.assign(200, 1);
    const server_process server(std::move(node));
    const table_buffer buffer(4608);
    EXPECT_EQ(netlink_msg(256, buffer.message(), 4608, 38), 0);
    EXPECT_EQ(buffer.reply_length(), 4608U);
    EXPECT_EQ(netlink_msg(256, buffer.message(), 35, 38), 0);
    EXPECT_EQ(buffer.reply_length(), 0U);
}

TEST_F(query_test, of_a_bridge_says_whether_there_is_one) {
    recorded_node node;
    server_process server(node);
    const table_buffer buffer(8);
    EXPECT_EQ(netlink_msg(0, buffer.message(), 8, 38), 0);
    EXPECT_EQ(buffer.reply_length(), 0U);
    EXPECT_EQ(server.calls(), lines{"check_bridge(br-lan)"});
    server.process().end();
    node.failures = {{"check_bridge", 1}, {"get_ports", 1}};
    const server_process refusing(std::move(node));
    EXPECT_NE(netlink_msg(0, buffer.message(), 8, 38), 0);
    EXPECT_NE(netlink_msg(256, buffer.message(), 8, 38), 0);
}

TEST_F(query_test, of_another_type_or_protocol_is_refused_unasked) {
    server_process server;
    const table_buffer buffer(8);
    EXPECT_NE(netlink_msg(1, buffer.message(), 8, 38), 0);
    EXPECT_NE(netlink_msg(0, buffer.message(), 8, 39), 0);
    EXPECT_NE(netlink_msg(0, nullptr, 8, 38), 0);
    EXPECT_EQ(server.calls(), lines{});
}

TEST_F(query_test, without_kolt_bridged_fails_and_brings_nothing) {
    const table_buffer buffer(100);
    uint32_t entries = 1;
    EXPECT_NE(bridgeTableAction("br-lan", 8, &entries, buffer.payload(), 0), 0);
    EXPECT_EQ(entries, 0U);
    EXPECT_NE(netlink_msg(0, buffer.message(), 100, 38), 0);
    EXPECT_NE(netlink_msg(256, buffer.message(), 100, 38), 0);
    EXPECT_EQ(buffer.reply_length(), 0U);
    char names[2][16] = {"a", "b"};
    EXPECT_NE(uci_get_profile_eths(names, 2), 0);
    EXPECT_STREQ(names[0], "a");
    int count = 3;
    EXPECT_NE(uci_get_eth_port_num(&count), 0);
    EXPECT_EQ(count, 0);
}

TEST_F(query_test, of_ethernet_ports_brings_their_names_and_number) {
    recorded_node node;
    node.ethernets = {"eth0", "lan-of-15-chars", "eth2"};
    const server_process server(std::move(node));
    char names[5][16] = {"", "", "", "unused", ""};
    EXPECT_EQ(uci_get_profile_eths(names, 5), 0);
    EXPECT_STREQ(names[0], "eth0");
    EXPECT_STREQ(names[1], "lan-of-15-chars");
    EXPECT_STREQ(names[2], "eth2");
    EXPECT_STREQ(names[3], "unused");
    int count = 0;
    EXPECT_EQ(uci_get_eth_port_num(&count), 0);
    EXPECT_EQ(count, 3);
    char two[3][16] = {"", "", "kept"};
    EXPECT_EQ(uci_get_profile_eths(two, 2), 0);
    EXPECT_STREQ(two[1], "lan-of-15-chars");
    EXPECT_STREQ(two[2], "kept");
    EXPECT_NE(uci_get_profile_eths(nullptr, 2), 0);
    EXPECT_NE(uci_get_profile_eths(names, -1), 0);
    EXPECT_NE(uci_get_eth_port_num(nullptr), 0);
}

TEST_F(query_test, buffer_is_refused_for_names_that_no_bridge_has) {
    EXPECT_EQ(bridgeAllocTableBuf(8, nullptr), nullptr);
    EXPECT_EQ(bridgeAllocTableBuf(8, "bridge--of-16-ch"), nullptr);
    void *longest = bridgeAllocTableBuf(8, "bridge-of-15-ch");
    EXPECT_NE(longest, nullptr);
    bridgeFreeTableBuf(longest);
    bridgeFreeTableBuf(nullptr);
}

} // namespace
