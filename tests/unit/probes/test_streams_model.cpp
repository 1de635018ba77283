// The ranking against a plain model of it, over many random tables.
#include "stream_test.h"

#include <duon_bridge.h>
#include <optional>
#include <random>

namespace {

constexpr int ROUNDS = 3000;

struct model_client {
    mac_address mac;
    uint32_t hd_port;
    uint8_t relay;
};

struct model_port {
    uint32_t index;
    uint8_t relay;
};

bool is_norelay(const std::vector<model_port> &ports, uint32_t index) {
    bool found = false;
    for (const model_port &port : ports)
        found = found || (port.index == index && port.relay != 1);
    return found;
}

bool is_nonrelay_client(const std::vector<model_client> &clients, const mac_address &mac) {
    bool found = false;
    for (const model_client &client : clients)
        found = found || (client.mac == mac && client.relay != 1);
    return found;
}

// A top list: a vector that ends where its list has its first empty slot.
void insert(std::vector<stream_fields *> *list, size_t limit, stream_fields *stream) {
    size_t same_port = 0;
    std::optional<size_t> remembered;
    for (size_t i = 0; i < list->size() && (*list)[i]->counter_b != 0; i++) {
        if ((*list)[i]->port != stream->port)
            continue;
        same_port++;
        if ((*list)[i]->counter_b < stream->counter_b)
            remembered = i;
    }
    if (same_port == 10) {
        if (!remembered)
            return;
        list->erase(list->begin() + static_cast<long>(*remembered));
    }
    for (size_t i = 0; i < list->size(); i++) {
        if ((*list)[i]->counter_b == 0) {
            (*list)[i] = stream;
            return;
        }
        if ((*list)[i]->counter_b < stream->counter_b) {
            list->insert(list->begin() + static_cast<long>(i), stream);
            if (list->size() > limit)
                list->pop_back();
            return;
        }
    }
    if (list->size() < limit)
        list->push_back(stream);
}

std::vector<stream_fields *> rank(std::vector<stream_fields> *table, const model_client &client,
                                  const std::vector<model_client> &clients, const std::vector<model_port> &ports) {
    std::vector<stream_fields *> candidates;
    if (client.hd_port != 65535) {
        for (stream_fields &stream : *table) {
            if (stream.dst == client.mac && is_norelay(ports, stream.port))
                candidates.push_back(&stream);
        }
        for (const stream_fields &entry : *table) {
            if (entry.src != client.mac || !is_nonrelay_client(clients, entry.src) || (entry.flags & 0x10) == 0)
                continue;
            for (stream_fields *candidate : candidates) {
                if (candidate->src != entry.dst || candidate->src_port != entry.dst_port ||
                    candidate->dst_port != entry.src_port)
                    continue;
                candidate->reverse_b = entry.counter_b;
                candidate->reverse_a = entry.counter_a;
                candidate->counter_b += candidate->reverse_b;
                candidate->counter_a += candidate->reverse_a;
                break;
            }
        }
    }
    std::vector<stream_fields *> top;
    for (stream_fields *stream : candidates) {
        if ((stream->flags & 0x20) == 0 && stream->counter_b != 0 && stream->counter_a != 0)
            insert(&top, 20, stream);
    }
    return top;
}

// A record that held `before` once the stream was written into it.
raw_record written(raw_record before, const stream_fields &stream) {
    before.put(0, stream.src).put(6, stream.dst).put(12, stream.port).put(16, stream.hash).put(18, stream.kind);
    before.put(20, stream.carried).put(24, stream.counter_b).put(28, stream.counter_a).put(32, stream.c2);
    before.put(36, stream.c1).put(40, stream.reverse_b).put(44, stream.reverse_a).put(53, uint8_t{0});
    before.put(54, stream.src_port).put(56, stream.dst_port);
    return before.put(60, uint32_t{stream.kind == 1 ? 17U : 6U});
}

class StreamModel : public probe {
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

    std::mt19937 random_{20240917};
};

TEST_F(StreamModel, AgreesWithTheRankingOfRandomTables) {
    size_t ranked = 0;
    size_t full = 0;
    for (int round = 0; round < ROUNDS && !HasFailure(); round++) {
        const uint32_t macs = 1 + below(5);
        const uint32_t entries = below(4) == 0 ? below(200) : below(40);

        std::vector<model_port> ports;
        port_list list;
        for (const uint32_t index : {10U, 11U, 12U, 20U, 10U}) {
            ports.push_back(
                {index, index == 20 ? uint8_t{1} : any_of({uint8_t{0}, uint8_t{0}, uint8_t{2}, uint8_t{1}})});
            list.add("port", index, ports.back().relay);
        }

        std::vector<model_client> clients;
        std::vector<kolt_client> records(1 + below(6));
        std::vector<std::vector<raw_record>> expected;
        for (kolt_client &record : records) {
            clients.push_back({numbered_mac(below(macs)), any_of({65535U, 0U, 10U, 10U, 70000U}),
                               any_of({uint8_t{0}, uint8_t{0}, uint8_t{1}, uint8_t{2}})});
            memset(static_cast<void *>(&record), static_cast<int>(below(256)), sizeof record);
            memcpy(record.mac, clients.back().mac.data(), 6);
            record.hd_port = clients.back().hd_port;
            record.relay = clients.back().relay;
            expected.push_back(records_of(record));
        }

        std::vector<stream_fields> table;
        platform.tables[HA_CODE] = {100, {}};
        for (uint32_t i = 0; i < entries; i++) {
            table.push_back(random_stream(macs));
            platform.add_entry(HA_CODE, raw_ha(table.back()));
        }

        kolt_client_list client_list{static_cast<uint8_t>(records.size()), records.data()};
        ASSERT_EQ(kolt_get_maximal_ha_entries("br-lan", &client_list, list.get()), 1);
        for (size_t i = 0; i < clients.size(); i++) {
            const std::vector<stream_fields *> top = rank(&table, clients[i], clients, ports);
            for (size_t k = 0; k < top.size(); k++)
                expected[i][k] = written(expected[i][k], *top[k]);
            ASSERT_TRUE(records_of(records[i]) == expected[i]) << "round " << round << ", client " << i;
            ranked += top.size();
            full += top.size() == 20 ? 1 : 0;
        }
        platform.calls.clear();
    }
    EXPECT_GT(ranked, 10000U) << "the tables are too thin to tell anything";
    EXPECT_GT(full, 20U);
}

TEST_F(StreamModel, AgreesWithTheInsertionOfRandomStreams) {
    size_t full_ports = 0;
    for (int round = 0; round < ROUNDS && !HasFailure(); round++) {
        const auto limit = static_cast<uint8_t>(1 + below(20));
        std::vector<stream_fields> streams(1 + below(60));
        std::vector<ha_table_entry> entries(streams.size());
        std::vector<stream_fields *> model;
        std::array<ha_table_entry *, 20> slots{};
        const uint32_t ports = 1 + below(3);
        for (size_t i = 0; i < streams.size(); i++) {
            streams[i] = {.port = below(ports), .counter_a = 1, .counter_b = below(30)};
            memcpy(static_cast<void *>(&entries[i]), raw_ha(streams[i]).bytes.data(), 100);
            insert(&model, limit, &streams[i]);
            kolt_insert_top_stream(slots.data(), limit, &entries[i]);
            for (size_t k = 0; k < slots.size(); k++) {
                const ha_table_entry *expected =
                    k < model.size() ? &entries[static_cast<size_t>(model[k] - streams.data())] : nullptr;
                ASSERT_EQ(slots[k], expected) << "round " << round << ", stream " << i << ", slot " << k;
            }
        }
        full_ports += ports == 1 && model.size() >= 10 ? 1 : 0;
    }
    EXPECT_GT(full_ports, 200U) << "the limit of a port was hardly ever met";
}

} // namespace
