// What the tests of the stream ranking share: an HA table of raw entries, clients, and a client's records as bytes.
#pragma once

#include "../port_records.h"
#include "../raw_tables.h"

#include "probes/streams/ranking.h"
#include "support/rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <vector>

constexpr uint32_t NO_HD = 65535;
constexpr size_t RECORD_SIZE = 72;
constexpr size_t ALL_RECORDS = 20 * RECORD_SIZE;

// One stream record as the bytes that it holds, at their offsets.
struct raw_record {
    std::array<uint8_t, RECORD_SIZE> bytes{};

    template <class Value> raw_record &put(size_t offset, const Value &value) {
        memcpy(bytes.data() + offset, &value, sizeof value);
        return *this;
    }
    bool operator==(const raw_record &) const = default;
};

// A stream as the library's table holds it.
inline ha_table_entry table_entry(const stream_fields &stream) {
    const raw_entry<100> raw = raw_ha(stream);
    ha_table_entry entry;
    memcpy(static_cast<void *>(&entry), raw.bytes.data(), sizeof entry);
    return entry;
}

// A client's stream records.
inline std::vector<raw_record> records_of(const kolt_client &client) {
    std::vector<raw_record> records(20);
    static_assert(sizeof client.ha == ALL_RECORDS);
    for (size_t i = 0; i < records.size(); i++)
        memcpy(records[i].bytes.data(), reinterpret_cast<const uint8_t *>(client.ha) + i * RECORD_SIZE, RECORD_SIZE);
    return records;
}

template <class Value> Value field(const raw_record &record, size_t offset) {
    Value value;
    memcpy(&value, record.bytes.data() + offset, sizeof value);
    return value;
}

// The sums that a record is ranked by (counter B), up to the first empty record.
inline std::vector<uint32_t> keys_of(const kolt_client &client) {
    std::vector<uint32_t> keys;
    for (const raw_record &record : records_of(client)) {
        if (record == raw_record{})
            break;
        keys.push_back(field<uint32_t>(record, 24));
    }
    return keys;
}

// Clients, ports and a table, ranked without any bridge.
template <class Base> class stream_fixture : public Base {
protected:
    stream_fixture() {
        ports_.add("port10", 10, 0);
        ports_.add("port11", 11, 0);
        ports_.add("port12", 12, 0);
        ports_.add("relay", 20, 1);
    }

    // Begins anew, without clients and streams.
    void restart() {
        list_.count = 0;
        *clients_ = {};
        table_.clear();
    }

    kolt_client &add_client(const mac_address &mac, uint32_t hd_port = 10, uint8_t relay = 0) {
        kolt_client &client = (*clients_)[list_.count];
        memcpy(client.mac, mac.data(), mac.size());
        client.hd_port = hd_port;
        client.relay = relay;
        list_.clients = clients_->data();
        list_.count++;
        return client;
    }

    void add_stream(const stream_fields &stream) {
        table_.push_back(table_entry(stream));
    }

    // Ranks the streams of all clients, as a period does, in a copy of the table.
    void rank() {
        ranked_ = table_;
        kolt_rank_streams(&ranking_, ranked_, list_.span(), *ports_.get());
    }

    port_records ports_;
    kolt_client_list list_;
    std::vector<ha_table_entry> table_;
    std::vector<ha_table_entry> ranked_;
    kolt_stream_ranking ranking_;

private:
    std::unique_ptr<std::array<kolt_client, 8>> clients_ = std::make_unique<std::array<kolt_client, 8>>();
};

using stream_test = stream_fixture<testing::Test>;
