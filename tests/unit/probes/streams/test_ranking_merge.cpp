// What comes back of a stream is added to what went out.
#include "two_ways.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The counters of a record: bytes and packets of both directions, then those of the reverse one.
std::vector<uint32_t> counters_of(const kolt_client &client, size_t record = 0) {
    std::vector<uint32_t> counters;
    for (const size_t offset : {24U, 28U, 40U, 44U})
        counters.push_back(field<uint32_t>(records_of(client)[record], offset));
    return counters;
}

class StreamMerge : public stream_test {};

TEST_F(StreamMerge, ReverseDirectionIsAddedToItsForwardStream) {
    kolt_client &client = add_client(CLIENT);
    add_stream(forward());
    add_stream(reverse());
    rank();
    EXPECT_THAT(counters_of(client), ElementsAre(4500, 37, 500, 7));
    EXPECT_EQ(keys_of(client).size(), 1U) << "the reverse direction is no stream of its own";
}

TEST_F(StreamMerge, ReverseThatStandsBeforeItsForwardStreamIsAdded) {
    kolt_client &client = add_client(CLIENT);
    add_stream(reverse());
    add_stream(forward());
    rank();
    EXPECT_THAT(counters_of(client), ElementsAre(4500, 37, 500, 7));
}

TEST_F(StreamMerge, ReverseReplacesWhatTheTableHadAsTheReverse) {
    kolt_client &client = add_client(CLIENT);
    stream_fields stream = forward();
    stream.reverse_a = 1111;
    stream.reverse_b = 2222;
    add_stream(stream);
    add_stream(reverse());
    rank();
    EXPECT_THAT(counters_of(client), ElementsAre(4500, 37, 500, 7));
}

TEST_F(StreamMerge, LastOfTwoReversesIsKeptAndTheSumOfAll) {
    kolt_client &client = add_client(CLIENT);
    add_stream(forward());
    add_stream(reverse());
    stream_fields second = reverse();
    second.counter_a = 2;
    second.counter_b = 60;
    add_stream(second);
    rank();
    EXPECT_THAT(counters_of(client), ElementsAre(4560, 39, 60, 2));
}

TEST_F(StreamMerge, ReverseGoesToTheFirstOfTwoEqualForwardStreams) {
    kolt_client &client = add_client(CLIENT);
    add_stream(forward());
    stream_fields twin = forward();
    twin.counter_b = 9000;
    add_stream(twin);
    add_stream(reverse());
    rank();
    EXPECT_THAT(counters_of(client, 0), ElementsAre(9000, 30, 0, 0));
    EXPECT_THAT(counters_of(client, 1), ElementsAre(4500, 37, 500, 7));
}

TEST_F(StreamMerge, SumOfBothDirectionsDecidesTheRanking) {
    kolt_client &client = add_client(CLIENT);
    stream_fields larger = forward();
    larger.dst_port = 5001;
    larger.counter_b = 4400;
    add_stream(larger);
    add_stream(forward());
    add_stream(reverse());
    rank();
    EXPECT_THAT(keys_of(client), ElementsAre(4500, 4400));
}

TEST_F(StreamMerge, ReverseMakesAStreamWithoutCountersOfItsOwnRankable) {
    kolt_client &client = add_client(CLIENT);
    stream_fields stream = forward();
    stream.counter_a = 0;
    stream.counter_b = 0;
    add_stream(stream);
    add_stream(reverse());
    rank();
    EXPECT_THAT(counters_of(client), ElementsAre(500, 7, 500, 7));
}

TEST_F(StreamMerge, SumsWrapAndAWrappedZeroIsNotRanked) {
    kolt_client &client = add_client(CLIENT);
    stream_fields stream = forward();
    stream.counter_b = 4294966800; // 496 below the wrap
    add_stream(stream);
    add_stream(reverse());
    stream.src_port = 81;
    stream.counter_a = 4294967289; // 7 below the wrap
    add_stream(stream);
    stream_fields other = reverse();
    other.dst_port = 81;
    add_stream(other);
    rank();
    EXPECT_THAT(keys_of(client), ElementsAre(4));
    EXPECT_THAT(counters_of(client), ElementsAre(4, 37, 500, 7));
}

struct unmerged_row {
    const char *name;
    stream_fields reverse;
};

class StreamUnmerged : public table_test<unmerged_row, stream_test> {};

TEST_P(StreamUnmerged, OtherStreamLeavesTheForwardStreamAsItIs) {
    kolt_client &client = add_client(CLIENT);
    add_stream(forward());
    add_stream(GetParam().reverse);
    rank();
    EXPECT_THAT(counters_of(client), ElementsAre(4000, 30, 0, 0));
}

INSTANTIATE_TEST_SUITE_P(
    StreamMerge, StreamUnmerged,
    testing::Values(
        unmerged_row{"PortsNotSwapped",
                     {.src = CLIENT, .dst = PEER, .src_port = 80, .dst_port = 5000, .flags = MERGEABLE}},
        unmerged_row{"OtherSourcePort",
                     {.src = CLIENT, .dst = PEER, .src_port = 5001, .dst_port = 80, .flags = MERGEABLE}},
        unmerged_row{"OtherDestinationPort",
                     {.src = CLIENT, .dst = PEER, .src_port = 5000, .dst_port = 81, .flags = MERGEABLE}},
        unmerged_row{"OtherPeer",
                     {.src = CLIENT, .dst = STRANGER, .src_port = 5000, .dst_port = 80, .flags = MERGEABLE}},
        unmerged_row{"FromAnother",
                     {.src = STRANGER, .dst = PEER, .src_port = 5000, .dst_port = 80, .flags = MERGEABLE}},
        unmerged_row{"WithoutTheFlag", {.src = CLIENT, .dst = PEER, .src_port = 5000, .dst_port = 80, .flags = 0}},
        unmerged_row{"WithEveryOtherFlag",
                     {.src = CLIENT, .dst = PEER, .src_port = 5000, .dst_port = 80, .flags = 0xEF}}),
    row_name<unmerged_row>);

TEST_F(StreamMerge, ReverseOfAClientBehindARelayPortIsNotAdded) {
    kolt_client &client = add_client(CLIENT, 10, 1);
    add_stream(forward());
    add_stream(reverse());
    rank();
    EXPECT_THAT(counters_of(client), ElementsAre(4000, 30, 0, 0));
}

TEST_F(StreamMerge, ReverseOfAClientWithAnyRelayFlagButOneIsAdded) {
    kolt_client &client = add_client(CLIENT, 10, 2);
    add_stream(forward());
    add_stream(reverse());
    rank();
    EXPECT_THAT(counters_of(client), ElementsAre(4500, 37, 500, 7));
}

TEST_F(StreamMerge, ReverseThatIsNeverRankedItselfIsAdded) {
    kolt_client &client = add_client(CLIENT);
    add_stream(forward());
    stream_fields back = reverse();
    back.flags = 0x30;
    add_stream(back);
    rank();
    EXPECT_THAT(counters_of(client), ElementsAre(4500, 37, 500, 7));
}

TEST_F(StreamMerge, ReverseIsNotAddedToAStreamOfARelayPort) {
    kolt_client &client = add_client(CLIENT);
    stream_fields on_relay = forward();
    on_relay.port = 20;
    add_stream(on_relay);
    add_stream(forward());
    add_stream(reverse());
    rank();
    EXPECT_THAT(counters_of(client), ElementsAre(4500, 37, 500, 7));
}

TEST_F(StreamMerge, ReverseIsAddedToAForwardStreamThatIsNeverRanked) {
    kolt_client &client = add_client(CLIENT);
    stream_fields unranked = forward();
    unranked.flags = 0x20;
    add_stream(unranked);
    add_stream(forward());
    add_stream(reverse());
    rank();
    EXPECT_THAT(counters_of(client), ElementsAre(4000, 30, 0, 0)) << "the reverse went to the first";
}

TEST_F(StreamMerge, ReverseOfAClientWithoutAnHdEntryIsNotAdded) {
    add_client(CLIENT, NO_HD);
    kolt_client &peer = add_client(PEER);
    stream_fields back = reverse();
    back.port = 11;
    add_stream(forward());
    add_stream(back);
    rank();
    EXPECT_THAT(keys_of(peer), ElementsAre(500)) << "the forward stream lacks the flag, and the client came first";
}

// The table is fetched once for all clients, so that what one client's merging changed is what a later one sees.
TEST_F(StreamMerge, SumOfOneClientIsWhatALaterClientSees) {
    kolt_client &first = add_client(CLIENT);
    kolt_client &second = add_client(PEER);
    stream_fields there = forward();
    there.flags = MERGEABLE;
    stream_fields back = reverse();
    back.port = 11;
    add_stream(there);
    add_stream(back);
    rank();
    EXPECT_THAT(counters_of(first), ElementsAre(4500, 37, 500, 7));
    // 500 of its own and the 4500 that the other direction has become
    EXPECT_THAT(counters_of(second), ElementsAre(5000, 44, 4500, 37));
}

TEST_F(StreamMerge, ReverseOfAClientThatIsListedTwiceIsAddedTwice) {
    kolt_client &first = add_client(CLIENT);
    kolt_client &second = add_client(CLIENT);
    add_stream(forward());
    add_stream(reverse());
    rank();
    EXPECT_THAT(counters_of(first), ElementsAre(4500, 37, 500, 7));
    EXPECT_THAT(counters_of(second), ElementsAre(5000, 44, 500, 7));
}

TEST_F(StreamMerge, StreamThatAnswersItselfIsDoubled) {
    kolt_client &client = add_client(CLIENT);
    add_stream({.src = CLIENT,
                .dst = CLIENT,
                .port = 10,
                .counter_a = 3,
                .counter_b = 5,
                .src_port = 9,
                .dst_port = 9,
                .flags = MERGEABLE});
    rank();
    EXPECT_THAT(counters_of(client), ElementsAre(10, 6, 5, 3));
}

} // namespace
