// Memory that is kept: it grows when it must, and a refusal leaves what there was.
#include "probes/streams/growing_array.h"

#include <gtest/gtest.h>

namespace {

TEST(GrowingArray, NewArrayHasNoRoom) {
    const kolt_growing_array<uint32_t> array;
    EXPECT_EQ(array.capacity, 0U);
    EXPECT_EQ(array.elements, nullptr);
}

TEST(GrowingArray, RoomForNothingIsThereAlready) {
    kolt_growing_array<uint32_t> array;
    EXPECT_TRUE(array.reserve(0));
    EXPECT_EQ(array.elements, nullptr);
}

TEST(GrowingArray, SmallerNeedKeepsTheMemory) {
    kolt_growing_array<uint32_t> array;
    ASSERT_TRUE(array.reserve(1000));
    const uint32_t *elements = array.elements;
    array.elements[999] = 7;
    EXPECT_TRUE(array.reserve(1000));
    EXPECT_TRUE(array.reserve(1));
    EXPECT_EQ(array.elements, elements);
    EXPECT_EQ(array.capacity, 1000U);
    EXPECT_EQ(array.elements[999], 7U);
}

TEST(GrowingArray, LargerNeedGetsRoomToItsLastElement) {
    kolt_growing_array<uint32_t> array;
    ASSERT_TRUE(array.reserve(10));
    ASSERT_TRUE(array.reserve(100000));
    EXPECT_EQ(array.capacity, 100000U);
    array.elements[99999] = 7;
}

TEST(GrowingArray, SizeThatWrapsIsRefusedAndWhatThereWasStays) {
    kolt_growing_array<uint64_t> array;
    ASSERT_TRUE(array.reserve(10));
    array.elements[9] = 7;
    EXPECT_FALSE(array.reserve(SIZE_MAX / sizeof(uint64_t) + 2)); // 8 bytes, wrapped
    EXPECT_EQ(array.capacity, 10U);
    EXPECT_EQ(array.elements[9], 7U);
}

} // namespace
