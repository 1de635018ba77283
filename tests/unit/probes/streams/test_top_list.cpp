// The top list while it is filled: its order, its length, and its limit for the streams of one port.
#include "stream_test.h"

#include "probes/streams/top_list.h"

#include <deque>

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

// A top list of so many slots, filled by insertion or by hand. Streams are told by port and key.
class TopList : public testing::Test {
protected:
    ha_table_entry *stream(uint32_t port, uint32_t key, uint16_t hash = 0) {
        streams_.push_back(table_entry({.port = port, .counter_a = 1, .counter_b = key, .hash = hash}));
        return &streams_.back();
    }

    void insert(uint32_t port, uint32_t key, uint16_t hash = 0) {
        kolt_insert_top_stream(slots_.data(), limit_, stream(port, key, hash));
    }

    // What stands in the list: the key of each slot, or -1 for an empty one.
    [[nodiscard]] std::vector<int64_t> keys() const {
        std::vector<int64_t> result;
        for (uint8_t i = 0; i < limit_; i++)
            result.push_back(slots_[i] != nullptr ? int64_t{slots_[i]->counter_b} : -1);
        return result;
    }

    [[nodiscard]] std::vector<uint16_t> hashes() const {
        std::vector<uint16_t> result;
        for (uint8_t i = 0; i < limit_ && slots_[i] != nullptr; i++)
            result.push_back(slots_[i]->hash);
        return result;
    }

    void TearDown() override {
        for (size_t i = limit_; i < slots_.size(); i++)
            EXPECT_EQ(slots_[i], nullptr) << "slot " << i << " is behind the limit";
    }

    uint8_t limit_ = 20;
    std::array<ha_table_entry *, 24> slots_{};

private:
    std::deque<ha_table_entry> streams_;
};

TEST_F(TopList, FirstStreamTakesTheFirstSlot) {
    limit_ = 3;
    insert(10, 5);
    EXPECT_THAT(keys(), ElementsAre(5, -1, -1));
}

TEST_F(TopList, ListDescendsByKey) {
    limit_ = 5;
    for (const uint32_t key : {5U, 4294967295U, 1U, 9U})
        insert(10, key);
    EXPECT_THAT(keys(), ElementsAre(4294967295, 9, 5, 1, -1));
}

TEST_F(TopList, EqualKeysKeepTheirArrivalOrder) {
    limit_ = 6;
    insert(10, 5, 1);
    insert(11, 7, 2);
    insert(12, 5, 3);
    insert(10, 7, 4);
    insert(10, 5, 5);
    EXPECT_THAT(keys(), ElementsAre(7, 7, 5, 5, 5, -1));
    EXPECT_THAT(hashes(), ElementsAre(2, 4, 1, 3, 5));
}

TEST_F(TopList, LastFallsOffAFullList) {
    limit_ = 3;
    for (const uint32_t key : {3U, 2U, 1U})
        insert(10, key);
    insert(11, 4);
    EXPECT_THAT(keys(), ElementsAre(4, 3, 2));
    insert(11, 3);
    EXPECT_THAT(keys(), ElementsAre(4, 3, 3));
}

TEST_F(TopList, StreamThatIsNotLargerThanTheLastIsNotListedInAFullList) {
    limit_ = 2;
    insert(10, 3, 1);
    insert(10, 2, 2);
    insert(11, 2, 3);
    insert(11, 1, 4);
    EXPECT_THAT(hashes(), ElementsAre(1, 2));
}

TEST_F(TopList, ListOfOneSlotHoldsTheLargest) {
    limit_ = 1;
    insert(10, 3);
    insert(10, 2);
    EXPECT_THAT(keys(), ElementsAre(3));
    insert(11, 4);
    EXPECT_THAT(keys(), ElementsAre(4));
}

TEST_F(TopList, ListWithoutSlotsHoldsNothing) {
    limit_ = 0;
    insert(10, 3);
}

TEST_F(TopList, TenStreamsOfOnePortAreListed) {
    for (uint32_t key = 1; key <= 10; key++)
        insert(10, key);
    std::vector<int64_t> expected = {10, 9, 8, 7, 6, 5, 4, 3, 2, 1};
    expected.resize(20, -1);
    EXPECT_EQ(keys(), expected);
}

TEST_F(TopList, EleventhOfAPortReplacesTheSmallest) {
    for (uint32_t key = 1; key <= 10; key++)
        insert(10, key * 10);
    insert(10, 55);
    std::vector<int64_t> expected = {100, 90, 80, 70, 60, 55, 50, 40, 30, 20};
    expected.resize(20, -1);
    EXPECT_EQ(keys(), expected);
}

TEST_F(TopList, EleventhOfAPortThatIsSmallerThanAllIsDropped) {
    for (uint32_t key = 1; key <= 10; key++)
        insert(10, key * 10);
    const std::vector<int64_t> before = keys();
    insert(10, 9);
    EXPECT_EQ(keys(), before);
}

TEST_F(TopList, EleventhOfAPortThatEqualsTheSmallestIsDropped) {
    for (uint16_t i = 0; i < 10; i++)
        insert(10, 7, i);
    insert(10, 7, 99);
    EXPECT_THAT(hashes(), ElementsAreArray({0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

TEST_F(TopList, LastOfTheSmallestEqualsIsReplaced) {
    for (uint16_t i = 0; i < 10; i++)
        insert(10, 7, i);
    insert(10, 8, 99);
    EXPECT_THAT(hashes(), ElementsAreArray({99, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(TopList, StreamsOfOtherPortsCloseTheGap) {
    for (uint32_t key = 1; key <= 10; key++)
        insert(10, key * 10);
    insert(11, 5);
    insert(12, 15);
    insert(10, 105);
    std::vector<int64_t> expected = {105, 100, 90, 80, 70, 60, 50, 40, 30, 20, 15, 5};
    expected.resize(20, -1);
    EXPECT_EQ(keys(), expected);
}

TEST_F(TopList, GapInAFullListMakesRoom) {
    for (uint32_t key = 1; key <= 10; key++)
        insert(10, key * 10);
    for (uint32_t key = 1; key <= 10; key++)
        insert(11, key);
    insert(10, 15);
    EXPECT_THAT(keys(), ElementsAreArray({100, 90, 80, 70, 60, 50, 40, 30, 20, 15, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1}));
    EXPECT_EQ(slots_[9]->port, 10U);
}

TEST_F(TopList, OtherPortsAreNotHeldBackByAFullPort) {
    for (uint32_t key = 1; key <= 10; key++)
        insert(10, key * 10);
    insert(11, 1);
    EXPECT_EQ(keys()[10], 1);
    insert(12, 200);
    EXPECT_EQ(keys()[0], 200);
    EXPECT_EQ(keys()[11], 1);
}

TEST_F(TopList, PortLimitBindsEachPortByItself) {
    for (uint32_t key = 1; key <= 11; key++) {
        insert(10, key * 2);
        insert(11, key * 2 + 1);
    }
    EXPECT_THAT(keys(), ElementsAreArray({23, 22, 21, 20, 19, 18, 17, 16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4}));
}

TEST_F(TopList, StreamWithoutAKeyTakesAnEmptySlot) {
    limit_ = 3;
    insert(10, 5);
    insert(10, 0);
    EXPECT_THAT(keys(), ElementsAre(5, 0, -1));
}

TEST_F(TopList, StreamWithoutAKeyIsReplacedByAnyOther) {
    limit_ = 4;
    insert(10, 5);
    insert(10, 0, 1);
    insert(10, 0, 2);
    EXPECT_THAT(keys(), ElementsAre(5, 0, -1, -1));
    EXPECT_EQ(hashes().back(), 2) << "also by another without a key";
    insert(10, 3);
    EXPECT_THAT(keys(), ElementsAre(5, 3, -1, -1)) << "in its slot, without moving it down";
}

TEST_F(TopList, StreamsBehindOneWithoutAKeyAreNotLookedAt) {
    limit_ = 16;
    slots_[0] = stream(10, 50);
    slots_[1] = stream(11, 0);
    for (size_t i = 2; i < 12; i++)
        slots_[i] = stream(10, 1);
    insert(10, 40);
    EXPECT_EQ(keys()[1], 40) << "ten of the port stand behind the end of the filled part";
    EXPECT_EQ(keys()[2], 1);
    EXPECT_EQ(keys()[11], 1);
}

TEST_F(TopList, StreamWithoutAKeyMovesDownWithTheOthers) {
    limit_ = 4;
    insert(10, 5);
    insert(10, 0);
    insert(10, 9);
    EXPECT_THAT(keys(), ElementsAre(9, 5, 0, -1));
}

TEST_F(TopList, FullPortWithoutASmallerStreamDropsOneWithoutAKey) {
    for (uint32_t key = 1; key <= 10; key++)
        insert(10, key);
    const std::vector<int64_t> before = keys();
    insert(10, 0);
    EXPECT_EQ(keys(), before);
}

} // namespace
