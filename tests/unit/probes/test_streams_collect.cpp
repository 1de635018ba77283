#include "stream_test.h"

#include "probes/stream_index.h"

namespace {

using testing::IsEmpty;

constexpr mac_address CLIENT{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr mac_address PEER{0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};

stream_fields forward() {
    return {
        .src = PEER, .dst = CLIENT, .port = 10, .counter_a = 30, .counter_b = 4000, .src_port = 80, .dst_port = 5000};
}

stream_fields reverse() {
    return {.src = CLIENT,
            .dst = PEER,
            .port = 20,
            .counter_a = 7,
            .counter_b = 500,
            .src_port = 5000,
            .dst_port = 80,
            .flags = 0x10};
}

// The ranking of one client by itself, over a table of the caller's.
class StreamCollect : public stream_probe {
protected:
    void collect(kolt_client *client, uint8_t limit) {
        const std::vector<uint8_t> &bytes = platform.tables[HA_CODE].bytes;
        table_.assign(bytes.begin(), bytes.end());
        auto *entries = reinterpret_cast<ha_table_entry *>(table_.data());
        const auto count = static_cast<uint32_t>(bytes.size() / 100);
        ASSERT_TRUE(kolt_index_streams(entries, count, &list_));
        kolt_collect_client_ha_entries(entries, count, client, ports_.get(), limit);
    }

    template <class Value> [[nodiscard]] Value in_table(size_t entry, size_t offset) const {
        Value value;
        memcpy(&value, table_.data() + entry * 100 + offset, sizeof value);
        return value;
    }

    std::vector<uint8_t> table_;
};

TEST_F(StreamCollect, WritesTheSumsIntoTheTableAtTheirOffsets) {
    kolt_client &client = add_client(CLIENT);
    add_stream(forward());
    add_stream(reverse());
    const std::vector<uint8_t> before = platform.tables[HA_CODE].bytes;
    collect(&client, 20);
    EXPECT_EQ(in_table<uint32_t>(0, 60), 37U);
    EXPECT_EQ(in_table<uint32_t>(0, 64), 4500U);
    EXPECT_EQ(in_table<uint32_t>(0, 76), 7U);
    EXPECT_EQ(in_table<uint32_t>(0, 80), 500U);
    std::vector<uint8_t> expected = before;
    for (const size_t offset : {60U, 64U, 76U, 80U})
        memcpy(expected.data() + offset, table_.data() + offset, 4);
    EXPECT_EQ(table_, expected) << "something else was changed";
}

TEST_F(StreamCollect, KeepsToItsLimit) {
    for (uint8_t limit = 0; limit <= 20; limit++) {
        restart();
        kolt_client &client = add_client(CLIENT);
        for (uint32_t i = 1; i <= 30; i++)
            add_stream({.src = PEER, .dst = CLIENT, .port = 10 + i % 3, .counter_b = i});
        collect(&client, limit);
        std::vector<uint32_t> expected;
        for (uint32_t key = 30; key > 30U - limit; key--)
            expected.push_back(key);
        EXPECT_EQ(keys_of(client), expected) << int{limit};
    }
}

TEST_F(StreamCollect, GivesUpAboveALimitOfTwenty) {
    kolt_client &client = add_client(CLIENT);
    add_stream(forward());
    add_stream(reverse());
    for (const uint8_t limit : {uint8_t{21}, uint8_t{255}})
        collect(&client, limit);
    EXPECT_THAT(keys_of(client), IsEmpty());
    EXPECT_EQ(table_, platform.tables[HA_CODE].bytes) << "not even merged";
}

TEST_F(StreamCollect, GivesUpWithoutTableEntriesOrClient) {
    kolt_client &client = add_client(CLIENT);
    add_stream(forward());
    collect(nullptr, 20);
    EXPECT_EQ(table_, platform.tables[HA_CODE].bytes);
    kolt_collect_client_ha_entries(reinterpret_cast<ha_table_entry *>(table_.data()), 0, &client, ports_.get(), 20);
    kolt_collect_client_ha_entries(nullptr, 1, &client, ports_.get(), 20);
    EXPECT_THAT(keys_of(client), IsEmpty());
}

} // namespace
