// The chains of streams by the clients at their ends.
#include "two_ways.h"

#include "probes/streams/stream_index.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class StreamIndex : public stream_test {
protected:
    void index() {
        ASSERT_TRUE(index_.assign(table_, list_.span()));
    }

    // The positions of a chain.
    static std::vector<uint32_t> chain(uint32_t first, const kolt_growing_array<uint32_t> &next) {
        std::vector<uint32_t> positions;
        for (uint32_t i = first; i != KOLT_NO_STREAM; i = next.elements[i])
            positions.push_back(i);
        return positions;
    }
    [[nodiscard]] std::vector<uint32_t> to(const mac_address &mac) const {
        return chain(index_.of(mac.data())->first_to, index_.next_to);
    }
    [[nodiscard]] std::vector<uint32_t> from(const mac_address &mac) const {
        return chain(index_.of(mac.data())->first_from, index_.next_from);
    }

    kolt_stream_index index_;
};

TEST_F(StreamIndex, StreamsOfAClientAreChainedInTableOrder) {
    add_client(CLIENT);
    add_client(PEER);
    add_stream({.src = PEER, .dst = CLIENT});
    add_stream({.src = CLIENT, .dst = PEER});
    add_stream({.src = numbered_mac(1), .dst = CLIENT});
    add_stream({.src = numbered_mac(1), .dst = numbered_mac(2)});
    add_stream({.src = CLIENT, .dst = CLIENT});
    index();
    EXPECT_THAT(to(CLIENT), ElementsAre(0, 2, 4));
    EXPECT_THAT(from(CLIENT), ElementsAre(1, 4));
    EXPECT_THAT(to(PEER), ElementsAre(1));
    EXPECT_THAT(from(PEER), ElementsAre(0));
}

TEST_F(StreamIndex, ClientThatIsNotListedHasNoStreams) {
    add_client(CLIENT);
    add_stream({.src = PEER, .dst = CLIENT});
    index();
    EXPECT_EQ(index_.of(PEER.data()), nullptr);
}

TEST_F(StreamIndex, EmptyTableHasEmptyChains) {
    add_client(CLIENT);
    index();
    EXPECT_THAT(to(CLIENT), IsEmpty());
    EXPECT_THAT(from(CLIENT), IsEmpty());
}

TEST_F(StreamIndex, OneNonrelayClientAmongThoseOfAMacIsEnough) {
    add_client(CLIENT, 10, 1);
    add_client(CLIENT, 10, 0);
    add_client(CLIENT, 10, 1);
    add_client(PEER, 10, 1);
    index();
    EXPECT_TRUE(index_.of(CLIENT.data())->nonrelay);
    EXPECT_FALSE(index_.of(PEER.data())->nonrelay);
}

TEST_F(StreamIndex, AssigningAgainForgetsTheTableBefore) {
    add_client(CLIENT);
    add_stream({.src = PEER, .dst = CLIENT});
    add_stream({.src = PEER, .dst = CLIENT});
    index();
    restart();
    add_client(CLIENT, 10, 1);
    add_stream({.src = CLIENT, .dst = PEER});
    index();
    EXPECT_THAT(to(CLIENT), IsEmpty());
    EXPECT_THAT(from(CLIENT), ElementsAre(0));
    EXPECT_FALSE(index_.of(CLIENT.data())->nonrelay);
}

} // namespace
