// The ranking of one client by itself, with a limit.
#include "two_ways.h"

namespace {

using testing::IsEmpty;

class StreamCollect : public stream_test {
protected:
    // Ranks the streams of one client of the list, in a copy of the table.
    void collect(kolt_client *client, uint8_t limit) {
        ranked_ = table_;
        ranking_.table = ranked_;
        ASSERT_TRUE(ranking_.index.assign(ranked_, list_.span()));
        kolt_collect_client_ha_entries(&ranking_, client, *ports_.get(), limit);
    }

    // A table as bytes.
    static std::vector<uint8_t> bytes_of(const std::vector<ha_table_entry> &table) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(table.data());
        return {bytes, bytes + table.size() * sizeof(ha_table_entry)};
    }
};

TEST_F(StreamCollect, CollectingWritesTheSumsIntoTheTableAtTheirOffsets) {
    kolt_client &client = add_client(CLIENT);
    add_stream(forward());
    add_stream(reverse());
    collect(&client, 20);
    std::vector<uint8_t> expected = bytes_of(table_);
    const std::pair<size_t, uint32_t> sums[] = {{60, 37}, {64, 4500}, {76, 7}, {80, 500}};
    for (const auto &[offset, sum] : sums)
        memcpy(expected.data() + offset, &sum, sizeof sum);
    EXPECT_EQ(bytes_of(ranked_), expected);
}

TEST_F(StreamCollect, CollectingKeepsToItsLimit) {
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

TEST_F(StreamCollect, CollectingGivesUpAboveALimitOfTwenty) {
    kolt_client &client = add_client(CLIENT);
    add_stream(forward());
    add_stream(reverse());
    for (const uint8_t limit : {uint8_t{21}, uint8_t{255}})
        collect(&client, limit);
    EXPECT_THAT(keys_of(client), IsEmpty());
    EXPECT_EQ(bytes_of(ranked_), bytes_of(table_)) << "not even merged";
}

TEST_F(StreamCollect, CollectingGivesUpWithoutTableEntriesOrClient) {
    kolt_client &client = add_client(CLIENT);
    add_stream(forward());
    add_stream(reverse());
    collect(nullptr, 20);
    EXPECT_EQ(bytes_of(ranked_), bytes_of(table_));
    table_.clear();
    collect(&client, 20);
    EXPECT_THAT(keys_of(client), IsEmpty());
}

TEST_F(StreamCollect, ClientThatWasNotIndexedGetsNothing) {
    kolt_client &client = add_client(CLIENT);
    add_stream(forward());
    list_.count = 0;
    collect(&client, 20);
    EXPECT_THAT(keys_of(client), IsEmpty());
}

} // namespace
