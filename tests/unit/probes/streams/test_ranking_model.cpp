// The ranking against the plain model of it, over many random tables.
#include "stream_test.h"

#include "plain_ranking.h"
#include "probes/streams/top_list.h"

#include <random>

namespace {

constexpr int ROUNDS = 3000;

template <class Record> bool have_same_bytes(const std::vector<Record> &a, const std::vector<Record> &b) {
    return a.size() == b.size() && (a.empty() || memcmp(a.data(), b.data(), a.size() * sizeof(Record)) == 0);
}

class StreamModel : public testing::Test {
protected:
    uint32_t below(uint32_t limit) {
        return std::uniform_int_distribution<uint32_t>(0, limit - 1)(random_);
    }
    uint32_t word() {
        return static_cast<uint32_t>(random_());
    }
    template <class Value> Value any_of(std::initializer_list<Value> values) {
        return values.begin()[below(static_cast<uint32_t>(values.size()))];
    }

    // Small numbers, so that streams meet, with large ones among them, so that sums wrap.
    uint32_t counter() {
        return below(8) == 0 ? any_of({0U, 4294967295U, 2147483648U, 4294967290U}) : below(12);
    }

    stream_fields random_stream(uint32_t macs) {
        return {.src = numbered_mac(below(macs)),
                .dst = numbered_mac(below(macs)),
                .port = any_of({10U, 10U, 10U, 11U, 12U, 13U, 20U, 99U}),
                .counter_a = counter(),
                .counter_b = counter(),
                .src_port = static_cast<uint16_t>(below(3)),
                .dst_port = static_cast<uint16_t>(below(3)),
                .flags = static_cast<uint8_t>(any_of({0x00U, 0x10U, 0x10U, 0x10U, 0x20U, 0x30U, 0xDFU, 0xCFU})),
                .hash = static_cast<uint16_t>(word()),
                .kind = any_of({uint16_t{0}, uint16_t{1}, uint16_t{2}}),
                .c1 = word(),
                .c2 = word(),
                .reverse_a = word(),
                .reverse_b = word(),
                .carried = word()};
    }

    std::vector<ha_table_entry> random_table(uint32_t macs) {
        std::vector<ha_table_entry> table(below(4) == 0 ? below(200) : below(40));
        for (ha_table_entry &entry : table)
            entry = table_entry(random_stream(macs));
        return table;
    }

    // Their records hold what stood there before.
    std::vector<kolt_client> random_clients(uint32_t macs) {
        std::vector<kolt_client> clients(1 + below(6));
        for (kolt_client &client : clients) {
            memset(static_cast<void *>(&client), static_cast<int>(below(256)), sizeof client);
            memcpy(client.mac, numbered_mac(below(macs)).data(), sizeof client.mac);
            client.hd_port = any_of({65535U, 0U, 10U, 10U, 70000U});
            client.relay = any_of({uint8_t{0}, uint8_t{0}, uint8_t{1}, uint8_t{2}});
        }
        return clients;
    }

    port_records random_ports() {
        port_records ports;
        for (const uint32_t index : {10U, 11U, 12U, 20U, 10U})
            ports.add("port", index,
                      index == 20 ? uint8_t{1} : any_of({uint8_t{0}, uint8_t{0}, uint8_t{2}, uint8_t{1}}));
        return ports;
    }

    std::mt19937 random_{20240917};
};

// How many records of the clients differ from what they were before.
std::vector<size_t> written_records(const std::vector<kolt_client> &before, const std::vector<kolt_client> &after) {
    std::vector<size_t> counts;
    for (size_t i = 0; i < before.size(); i++) {
        const std::vector<raw_record> then = records_of(before[i]);
        const std::vector<raw_record> now = records_of(after[i]);
        size_t &count = counts.emplace_back(0);
        for (size_t k = 0; k < now.size(); k++)
            count += now[k] == then[k] ? 0 : 1;
    }
    return counts;
}

TEST_F(StreamModel, RankingOfRandomTablesIsThatOfThePlainModel) {
    size_t ranked = 0;
    size_t full = 0;
    kolt_stream_ranking ranking; // kept, as a period keeps it
    for (int round = 0; round < ROUNDS; round++) {
        const uint32_t macs = 1 + below(5);
        const port_records ports = random_ports();
        const std::vector<kolt_client> before = random_clients(macs);
        std::vector<kolt_client> clients = before;
        std::vector<kolt_client> expected_clients = before;
        std::vector<ha_table_entry> table = random_table(macs);
        std::vector<ha_table_entry> expected_table = table;
        kolt_rank_streams(&ranking, table, clients, *ports.get());
        plain_rank_streams(expected_table, expected_clients, *ports.get());
        ASSERT_TRUE(have_same_bytes(clients, expected_clients)) << "round " << round;
        ASSERT_TRUE(have_same_bytes(table, expected_table)) << "round " << round;
        for (const size_t count : written_records(before, clients)) {
            ranked += count;
            full += count == KOLT_MAX_STREAMS ? 1 : 0;
        }
    }
    EXPECT_GT(ranked, 10000U) << "the tables are too thin to tell anything";
    EXPECT_GT(full, 20U);
}

TEST_F(StreamModel, InsertionOfRandomStreamsIsThatOfThePlainModel) {
    size_t full_ports = 0;
    for (int round = 0; round < ROUNDS; round++) {
        const auto limit = static_cast<uint8_t>(1 + below(20));
        std::vector<ha_table_entry> streams(1 + below(60));
        std::array<ha_table_entry *, 20> slots{};
        std::array<ha_table_entry *, 20> expected{};
        const uint32_t ports = 1 + below(3);
        for (ha_table_entry &stream : streams) {
            stream = table_entry({.port = below(ports), .counter_a = 1, .counter_b = below(30)});
            kolt_insert_top_stream(slots.data(), limit, &stream);
            plain_insert_stream(expected.data(), limit, &stream);
            ASSERT_EQ(slots, expected) << "round " << round << ", stream " << &stream - streams.data();
        }
        full_ports += ports == 1 && limit >= 10 && slots[9] != nullptr ? 1 : 0;
    }
    EXPECT_GT(full_ports, 200U) << "the limit of a port was hardly ever met";
}

} // namespace
