// The table of streams as the process reads and changes it.
#include "linux/support/data_plane.h"

#include <gmock/gmock.h>

#include <csignal>
#include <ctime>
#include <unistd.h>
#include <vector>

#include <sys/wait.h>

#include <bpf/bpf.h>

namespace {

class streams_test : public data_plane_test {
protected:
    streams_test() {
        open_port(one_, KOLT_PORT_FOLLOW, 1);
        open_port(two_, KOLT_PORT_FOLLOW, 1);
    }
    // Makes the stream to this port of the server, or adds a frame of its other direction.
    void make(uint16_t number, size_t payload = 0) {
        EXPECT_EQ(PASSED, arrive(ip_frame{.src_port = number, .payload = payload}.bytes(), one_));
    }
    std::vector<kolt_stream_record> all() {
        std::vector<kolt_stream_record> records(streams_.count());
        EXPECT_EQ(records.size(), streams_.read(records));
        return records;
    }
    // Takes and gives back: how many slots are free.
    size_t free_slots() {
        std::vector<uint32_t> taken;
        uint32_t slot = 0;
        const int map = programs_.map(KOLT_MAP_FREE_SLOTS);
        while (bpf_map_lookup_and_delete_elem(map, nullptr, &slot) == 0)
            taken.push_back(slot);
        for (auto last = taken.rbegin(); last != taken.rend(); ++last)
            EXPECT_EQ(0, bpf_map_update_elem(map, nullptr, &*last, BPF_ANY));
        return taken.size();
    }
};

constexpr size_t CAPACITY = KOLT_MAX_STREAMS;

TEST_F(streams_test, AFreshTableIsEmptyAndHasEverySlotFree) {
    EXPECT_EQ(0U, streams_.count());
    EXPECT_EQ(CAPACITY, free_slots());
}

TEST_F(streams_test, LowSlotsAreUsedFirst) {
    make(1);
    make(2);
    const auto records = all();
    ASSERT_EQ(2U, records.size());
    EXPECT_EQ(0U, records[0].slot);
    EXPECT_EQ(1U, records[1].slot);
}

TEST_F(streams_test, ReadsAsManyAsFitAndTellsHowManyThereAre) {
    for (uint16_t number = 1; number <= 5; number++)
        make(number);
    std::vector<kolt_stream_record> records(2);
    EXPECT_EQ(5U, streams_.read(records));
    EXPECT_EQ(1U, records[1].slot);
}

TEST_F(streams_test, CountersAreThoseOfTheLastFullPeriod) {
    make(1);
    EXPECT_EQ(0U, all()[0].rx_packets);
    streams_.end_period();
    EXPECT_EQ(1U, all()[0].rx_packets);
    EXPECT_EQ(42U, all()[0].rx_bytes);
    make(1, 58);
    make(1, 58);
    EXPECT_EQ(1U, all()[0].rx_packets) << "the period has not ended";
    streams_.end_period();
    EXPECT_EQ(2U, all()[0].rx_packets);
    EXPECT_EQ(200U, all()[0].rx_bytes);
    streams_.end_period();
    EXPECT_EQ(0U, all()[0].rx_packets);
}

TEST_F(streams_test, ASlotsNextStreamStartsAtZero) {
    make(1);
    make(1);
    streams_.end_period();
    ASSERT_TRUE(streams_.remove(0, 0));
    (void)streams_.sweep(KOLT_SLOT_REST_MS);
    make(2);
    ASSERT_EQ(0U, all()[0].slot);
    EXPECT_EQ(0U, all()[0].rx_packets);
    streams_.end_period();
    EXPECT_EQ(1U, all()[0].rx_packets);
}

TEST_F(streams_test, IsFoundByItsKeyAndWithoutTheHash) {
    make(1);
    make(2);
    kolt_stream_key key = all()[1].key;
    EXPECT_EQ(1U, streams_.find(key));
    EXPECT_EQ(1U, streams_.find_any_hash(key));
    key.hash ^= 0x5555;
    EXPECT_EQ(std::nullopt, streams_.find(key));
    EXPECT_EQ(1U, streams_.find_any_hash(key));
    key.kind = KOLT_STREAM_TCP;
    EXPECT_EQ(std::nullopt, streams_.find_any_hash(key));
}

TEST_F(streams_test, TheBusiestIsFoundWhereSeveralDifferInTheHash) {
    EXPECT_EQ(PASSED, arrive(ip_frame{.src_host = 1}.bytes(), one_));
    EXPECT_EQ(PASSED, arrive(ip_frame{.src_host = 2, .payload = 900}.bytes(), one_));
    EXPECT_EQ(PASSED, arrive(ip_frame{.src_host = 3}.bytes(), one_));
    streams_.end_period();
    EXPECT_EQ(3U, streams_.count());
    EXPECT_EQ(1U, streams_.find_any_hash(all()[2].key));
}

TEST_F(streams_test, RepointsOneOrAllOfAPort) {
    for (uint16_t number = 1; number <= 4; number++)
        make(number);
    streams_.repoint(2, two_);
    EXPECT_EQ(two_, streams_.record(2).target);
    EXPECT_EQ(one_, streams_.record(1).target);
    EXPECT_EQ(3U, streams_.repoint_all(one_, two_));
    EXPECT_EQ(0U, streams_.repoint_all(one_, two_));
    for (const kolt_stream_record &record : all())
        EXPECT_EQ(two_, record.target);
}

TEST_F(streams_test, ARemovedStreamIsGoneAtOnceAndItsSlotRests) {
    make(1);
    const kolt_stream_key key = all()[0].key;
    EXPECT_TRUE(streams_.remove(0, 5000));
    EXPECT_FALSE(streams_.remove(0, 5000));
    EXPECT_EQ(0U, streams_.count());
    EXPECT_EQ(std::nullopt, streams_.find(key));
    (void)streams_.sweep(5000 + KOLT_SLOT_REST_MS - 1);
    EXPECT_EQ(CAPACITY - 1, free_slots());
    (void)streams_.sweep(5000 + KOLT_SLOT_REST_MS);
    EXPECT_EQ(CAPACITY, free_slots());
}

TEST_F(streams_test, ARemovedStreamThatGoesOnGetsAnotherSlot) {
    make(1);
    ASSERT_TRUE(streams_.remove(0, 0));
    make(1);
    ASSERT_EQ(1U, all().size());
    EXPECT_EQ(1U, all()[0].slot);
    (void)streams_.sweep(KOLT_SLOT_REST_MS);
    EXPECT_EQ(1U, streams_.count());
    EXPECT_EQ(1U, streams_.find(all()[0].key));
}

TEST_F(streams_test, RefusesToRemoveWhatIsNotThere) {
    EXPECT_FALSE(streams_.remove(7, 0));
    EXPECT_FALSE(streams_.remove(KOLT_MAX_STREAMS, 0));
}

TEST_F(streams_test, RemovesAll) {
    for (uint16_t number = 1; number <= 100; number++)
        make(number);
    EXPECT_EQ(100U, streams_.remove_all(0));
    EXPECT_EQ(0U, streams_.count());
    (void)streams_.sweep(KOLT_SLOT_REST_MS);
    EXPECT_EQ(CAPACITY, free_slots());
}

TEST_F(streams_test, AnIdleStreamIsForgottenAndABusyOneIsNot) {
    make(1);
    make(2);
    EXPECT_EQ(0U, streams_.sweep(1000));
    make(2);
    EXPECT_EQ(0U, streams_.sweep(20000));
    EXPECT_EQ(0U, streams_.sweep(1000 + KOLT_STREAM_IDLE_MS - 1));
    EXPECT_EQ(1U, streams_.sweep(1000 + KOLT_STREAM_IDLE_MS));
    ASSERT_EQ(1U, streams_.count());
    EXPECT_EQ(1U, all()[0].slot);
    EXPECT_EQ(1U, streams_.sweep(20000 + KOLT_STREAM_IDLE_MS));
}

TEST_F(streams_test, IdleStreamsGoTheSoonerTheFewerSlotsAreFree) {
    constexpr uint16_t MANY = CAPACITY / 4 * 3;
    constexpr uint64_t HALF_AS_LONG = KOLT_STREAM_IDLE_MS / 2;
    for (uint16_t number = 0; number < MANY; number++)
        make(number);
    EXPECT_EQ(0U, streams_.sweep(0));
    make(1);
    EXPECT_EQ(0U, streams_.sweep(HALF_AS_LONG - 1));
    EXPECT_EQ(MANY - 1U, streams_.sweep(HALF_AS_LONG));
    EXPECT_EQ(1U, streams_.count());
    EXPECT_EQ(0U, streams_.sweep(HALF_AS_LONG + KOLT_SLOT_REST_MS));
    EXPECT_EQ(0U, streams_.sweep(HALF_AS_LONG + KOLT_STREAM_IDLE_MS - 2)) << "there is room again";
    EXPECT_EQ(1U, streams_.sweep(HALF_AS_LONG + KOLT_STREAM_IDLE_MS - 1));
}

TEST_F(streams_test, AFullTableMakesRoomAtOnceAndKeepsWhatTalks) {
    for (uint16_t number = 0; number < CAPACITY; number++)
        make(number);
    EXPECT_EQ(CAPACITY, streams_.count());
    EXPECT_EQ(0U, streams_.sweep(0));
    make(1);
    make(20000);
    EXPECT_EQ(CAPACITY, streams_.count()) << "no room for the last";
    EXPECT_EQ(CAPACITY - 1, streams_.sweep(1000));
    (void)streams_.sweep(1000 + KOLT_SLOT_REST_MS);
    make(20000);
    EXPECT_EQ(2U, streams_.count());
}

TEST_F(streams_test, FramesOfEitherDirectionKeepAStream) {
    make(1);
    (void)streams_.sweep(0);
    EXPECT_EQ(PASSED, leave(ip_frame{.src_port = 1}.answer().bytes(), one_));
    EXPECT_EQ(0U, streams_.sweep(KOLT_STREAM_IDLE_MS));
    EXPECT_EQ(1U, streams_.sweep(2 * KOLT_STREAM_IDLE_MS));
}

uint64_t monotonic_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

TEST_F(streams_test, StreamsThatComeWhileOthersGoLoseNoSlot) {
    const pid_t traffic = fork();
    ASSERT_GE(traffic, 0);
    if (traffic == 0) {
        const uint64_t given_up = monotonic_ms() + 60000;
        for (uint32_t number = 0; monotonic_ms() < given_up; number += 7919)
            make(static_cast<uint16_t>(number % 20000));
        _exit(0);
    }
    size_t removed = 0;
    // Long enough for slots to be given back and taken again.
    for (const uint64_t end = monotonic_ms() + 1500; removed < 200 || monotonic_ms() < end;) {
        for (uint32_t slot = 0; slot < CAPACITY; slot += 3)
            removed += streams_.remove(slot, monotonic_ms()) ? 1 : 0;
        (void)streams_.sweep(monotonic_ms());
    }
    kill(traffic, SIGKILL);
    waitpid(traffic, nullptr, 0);
    (void)streams_.sweep(monotonic_ms() + KOLT_SLOT_REST_MS);
    const auto records = all();
    for (const kolt_stream_record &record : records)
        ASSERT_EQ(record.slot, streams_.find(record.key));
    EXPECT_EQ(CAPACITY, records.size() + free_slots());
}

} // namespace
