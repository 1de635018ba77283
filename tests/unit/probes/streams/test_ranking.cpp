// Which streams of a client are ranked, in which order, and what its records then say.
#include "two_ways.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Streams : public stream_test {};

// A stream to the client whose every field differs.
stream_fields telling_stream() {
    return {.src = PEER,
            .dst = CLIENT,
            .port = 11,
            .counter_a = 0xA1A2A3A4,
            .counter_b = 0xB1B2B3B4,
            .src_port = 0x5101,
            .dst_port = 0x5202,
            .flags = 0xCF, // every bit but the two that mean something
            .hash = 0x4801,
            .kind = 1,
            .c1 = 0xC1000001,
            .c2 = 0xC2000002,
            .reverse_a = 0x76000001,
            .reverse_b = 0x80000002,
            .carried = 0x84000003};
}

raw_record telling_record() {
    raw_record record;
    record.put(0, PEER).put(6, CLIENT).put(12, uint32_t{11}).put(16, uint16_t{0x4801}).put(18, uint16_t{1});
    record.put(20, uint32_t{0x84000003});
    record.put(24, uint32_t{0xB1B2B3B4}).put(28, uint32_t{0xA1A2A3A4}); // bytes before packets
    record.put(32, uint32_t{0xC2000002}).put(36, uint32_t{0xC1000001});
    record.put(40, uint32_t{0x80000002}).put(44, uint32_t{0x76000001});
    return record.put(54, uint16_t{0x5101}).put(56, uint16_t{0x5202}).put(60, uint32_t{17});
}

TEST_F(Streams, RecordTakesItsFieldsFromTheirOffsetsInCrossedCounterOrder) {
    kolt_client &client = add_client(CLIENT);
    add_stream(telling_stream());
    rank();
    EXPECT_EQ(records_of(client)[0].bytes, telling_record().bytes);
    EXPECT_EQ(records_of(client)[1], raw_record{});
}

TEST_F(Streams, RecordKeepsWhatTheFlowCacheFillsAndClearsTheEstimate) {
    kolt_client &client = add_client(CLIENT);
    memset(static_cast<void *>(client.ha), 0x99, sizeof client.ha);
    add_stream(telling_stream());
    rank();
    raw_record expected = telling_record();
    expected.put(48, uint32_t{0x99999999}).put(52, uint8_t{0x99}); // flow index, flow cache flag
    expected.put(58, uint16_t{0x9999}).put(64, uint64_t{0x9999999999999999});
    EXPECT_EQ(records_of(client)[0].bytes, expected.bytes);
}

TEST_F(Streams, OnlyStreamKindOneIsUdp) {
    const std::pair<uint16_t, uint32_t> kinds[] = {{0, 6}, {1, 17}, {2, 6}, {17, 6}, {257, 6}, {65535, 6}};
    for (const auto &[kind, protocol] : kinds) {
        restart();
        kolt_client &client = add_client(CLIENT);
        add_stream({.src = PEER, .dst = CLIENT, .port = 10, .kind = kind});
        rank();
        EXPECT_EQ(field<uint32_t>(records_of(client)[0], 60), protocol) << kind;
        EXPECT_EQ(field<uint16_t>(records_of(client)[0], 18), kind);
    }
}

TEST_F(Streams, RecordsBehindTheLastRankedOneAreLeftAlone) {
    kolt_client &client = add_client(CLIENT);
    memset(static_cast<void *>(client.ha), 0x99, sizeof client.ha);
    add_stream({.src = PEER, .dst = CLIENT, .port = 10, .counter_b = 5});
    add_stream({.src = PEER, .dst = CLIENT, .port = 10, .counter_b = 9});
    rank();
    const std::vector<raw_record> records = records_of(client);
    EXPECT_EQ(field<uint32_t>(records[0], 24), 9U);
    EXPECT_EQ(field<uint32_t>(records[1], 24), 5U);
    raw_record untouched;
    untouched.bytes.fill(0x99);
    for (size_t i = 2; i < 20; i++)
        EXPECT_EQ(records[i].bytes, untouched.bytes) << i;
}

TEST_F(Streams, ClientWithoutAnHdEntryGetsNoStreams) {
    kolt_client &client = add_client(CLIENT, NO_HD);
    memset(static_cast<void *>(client.ha), 0x99, sizeof client.ha);
    add_stream(telling_stream());
    rank();
    for (const raw_record &record : records_of(client))
        EXPECT_EQ(record.bytes[0], 0x99);
}

TEST_F(Streams, AnyOtherHdPortIsAnHdEntry) {
    for (const uint32_t port : {0U, 1U, 65534U, 65536U, 4294967295U}) {
        restart();
        kolt_client &client = add_client(CLIENT, port);
        add_stream({.src = PEER, .dst = CLIENT, .port = 10, .counter_b = port / 2 + 7});
        rank();
        EXPECT_THAT(keys_of(client), ElementsAre(port / 2 + 7)) << port;
    }
}

struct candidate_row {
    const char *name;
    stream_fields stream;
    bool ranked;
};

class StreamCandidate : public table_test<candidate_row, stream_test> {};

TEST_P(StreamCandidate, OnlyStreamsToTheClientOnANonrelayPortAreRanked) {
    kolt_client &client = add_client(CLIENT);
    add_stream(GetParam().stream);
    rank();
    EXPECT_EQ(keys_of(client).size(), GetParam().ranked ? 1U : 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Streams, StreamCandidate,
    testing::Values(
        candidate_row{"ToTheClient", {.src = PEER, .dst = CLIENT, .port = 10}, true},
        candidate_row{"ToAnother", {.src = PEER, .dst = STRANGER, .port = 10}, false},
        candidate_row{"FromTheClient", {.src = CLIENT, .dst = PEER, .port = 10}, false},
        candidate_row{"OnARelayPort", {.src = PEER, .dst = CLIENT, .port = 20}, false},
        candidate_row{"OnAnUnlistedPort", {.src = PEER, .dst = CLIENT, .port = 13}, false},
        candidate_row{"OnAPortThatSharesItsLowBits", {.src = PEER, .dst = CLIENT, .port = 65546}, false},
        candidate_row{
            "CounterAZero", {.src = PEER, .dst = CLIENT, .port = 10, .counter_a = 0, .counter_b = 4294967295}, false},
        candidate_row{
            "CounterBZero", {.src = PEER, .dst = CLIENT, .port = 10, .counter_a = 4294967295, .counter_b = 0}, false},
        candidate_row{
            "SmallestCounters", {.src = PEER, .dst = CLIENT, .port = 10, .counter_a = 1, .counter_b = 1}, true},
        candidate_row{"LargestCounters",
                      {.src = PEER, .dst = CLIENT, .port = 10, .counter_a = 4294967295, .counter_b = 4294967295},
                      true},
        candidate_row{"NeverRankedFlag", {.src = PEER, .dst = CLIENT, .port = 10, .flags = 0x20}, false},
        candidate_row{"NeverRankedAmongAllFlags", {.src = PEER, .dst = CLIENT, .port = 10, .flags = 0xFF}, false},
        candidate_row{"MergeableFlag", {.src = PEER, .dst = CLIENT, .port = 10, .flags = 0x10}, true},
        candidate_row{"AllOtherFlags", {.src = PEER, .dst = CLIENT, .port = 10, .flags = 0xDF}, true}),
    row_name<candidate_row>);

TEST_F(Streams, StreamsAreRankedByCounterBAndEqualOnesKeepTheirOrder) {
    kolt_client &client = add_client(CLIENT);
    const uint32_t counters[] = {5, 9, 5, 4294967295, 1, 9};
    for (uint16_t i = 0; i < 6; i++)
        add_stream({.src = PEER,
                    .dst = CLIENT,
                    .port = 10,
                    .counter_a = 1000U - counters[i] % 1000,
                    .counter_b = counters[i],
                    .hash = i});
    rank();
    EXPECT_THAT(keys_of(client), ElementsAre(4294967295, 9, 9, 5, 5, 1));
    std::vector<uint16_t> hashes;
    for (size_t i = 0; i < 6; i++)
        hashes.push_back(field<uint16_t>(records_of(client)[i], 16));
    EXPECT_THAT(hashes, ElementsAre(3, 1, 5, 0, 2, 4));
}

TEST_F(Streams, TwentyStreamsOfThreePortsAreKept) {
    kolt_client &client = add_client(CLIENT);
    for (uint32_t i = 1; i <= 30; i++)
        add_stream({.src = PEER, .dst = CLIENT, .port = 10 + i % 3, .counter_b = i});
    rank();
    std::vector<uint32_t> largest;
    for (uint32_t key = 30; key > 10; key--)
        largest.push_back(key);
    EXPECT_EQ(keys_of(client), largest);
}

TEST_F(Streams, ElevenStreamsOfOnePortLeaveTheTenLargest) {
    kolt_client &client = add_client(CLIENT);
    for (uint32_t i = 1; i <= 11; i++)
        add_stream({.src = PEER, .dst = CLIENT, .port = 10, .counter_b = i});
    rank();
    EXPECT_THAT(keys_of(client), ElementsAre(11, 10, 9, 8, 7, 6, 5, 4, 3, 2));
}

TEST_F(Streams, EveryClientOfTheListIsRanked) {
    kolt_client &first = add_client(CLIENT);
    kolt_client &without = add_client(STRANGER, NO_HD);
    kolt_client &last = add_client(PEER);
    add_stream({.src = STRANGER, .dst = PEER, .port = 10, .counter_b = 7});
    add_stream({.src = STRANGER, .dst = CLIENT, .port = 10, .counter_b = 8});
    add_stream({.src = PEER, .dst = STRANGER, .port = 10, .counter_b = 9});
    rank();
    EXPECT_THAT(keys_of(first), ElementsAre(8));
    EXPECT_THAT(keys_of(without), IsEmpty());
    EXPECT_THAT(keys_of(last), ElementsAre(7));
}

TEST_F(Streams, EmptyTableLeavesTheClientsUntouched) {
    kolt_client &client = add_client(CLIENT);
    memset(static_cast<void *>(client.ha), 0x99, sizeof client.ha);
    rank();
    for (const raw_record &record : records_of(client))
        EXPECT_EQ(record.bytes[71], 0x99);
}

TEST_F(Streams, RankingAgainForgetsTheTableBefore) {
    kolt_client &client = add_client(CLIENT);
    for (uint32_t i = 0; i < 50; i++)
        add_stream({.src = PEER, .dst = CLIENT, .port = 10, .counter_b = 100 + i});
    rank();
    restart();
    add_client(CLIENT);
    add_stream({.src = PEER, .dst = CLIENT, .port = 10, .counter_b = 7});
    rank();
    EXPECT_THAT(keys_of(client), ElementsAre(7));
    EXPECT_TRUE(ranking_.table.empty());
}

TEST_F(Streams, RecordIsValidWhenAnyOfItsBytesIsNotZero) {
    EXPECT_EQ(kolt_check_ha_entry_valid(nullptr), 0);
    ha_entry entry;
    EXPECT_EQ(kolt_check_ha_entry_valid(&entry), 0);
    for (size_t i = 0; i < RECORD_SIZE; i++) {
        raw_record record;
        record.put(i, uint8_t{0x80});
        memcpy(static_cast<void *>(&entry), record.bytes.data(), RECORD_SIZE);
        EXPECT_EQ(kolt_check_ha_entry_valid(&entry), 1) << "byte " << i;
    }
}

struct nonrelay_row {
    const char *name;
    mac_address src;
    int expected;
};

class NonrelayClient : public table_test<nonrelay_row, stream_test> {};

TEST_P(NonrelayClient, SourceOfAStreamIsANonrelayClientUnlessItsRelayFlagIsOne) {
    add_client(numbered_mac(0), NO_HD, 0);
    add_client(numbered_mac(1), NO_HD, 1);
    add_client(numbered_mac(2), NO_HD, 2);
    add_client(numbered_mac(3), NO_HD, 1);
    add_client(numbered_mac(3), NO_HD, 0);
    add_client(numbered_mac(4), NO_HD, 0);
    list_.count = 5;
    const ha_table_entry stream = table_entry({.src = GetParam().src, .dst = numbered_mac(0)});
    EXPECT_EQ(kolt_check_nonrelay_client(&stream, &list_), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Streams, NonrelayClient,
                         testing::Values(nonrelay_row{"RelayFlagZero", numbered_mac(0), 1},
                                         nonrelay_row{"RelayFlagOne", numbered_mac(1), 0},
                                         nonrelay_row{"RelayFlagTwo", numbered_mac(2), 1},
                                         nonrelay_row{"AnyClientWithTheMac", numbered_mac(3), 1},
                                         nonrelay_row{"BehindTheCount", numbered_mac(4), 0},
                                         nonrelay_row{"NoClient", numbered_mac(5), 0}),
                         row_name<nonrelay_row>);

TEST_F(Streams, StreamPortIsNonrelayWhenItsListSaysSo) {
    const std::pair<uint32_t, int> expected[] = {{10, 1}, {12, 1}, {20, 0}, {13, 0}, {0, 0}};
    for (const auto &[port, result] : expected) {
        const ha_table_entry stream = table_entry({.port = port});
        EXPECT_EQ(kolt_check_stream_port_norelay(&stream, ports_.get()), result) << port;
    }
}

} // namespace
