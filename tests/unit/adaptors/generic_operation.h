// What every generic operation of the driver table has in common, as checks over one description of it.
#pragma once

#include "support/recording_wlan.h"

#include <cstdint>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>

constexpr uintptr_t LARGEST_WORD = std::numeric_limits<uintptr_t>::max();

struct generic_operation {
    const char *name;
    std::string slot;         // the slot's name in the recording table
    std::function<int()> run; // calls the operation; 0 for one without a result
    std::string recorded;     // the call that then reaches the slot
    enum { REDUCED, AS_IS, NONE } result;
    std::function<void(wlan_platform &)> clear; // empties the slot
};

inline void PrintTo(const generic_operation &operation, std::ostream *out) {
    *out << operation.name;
}

inline std::string operation_name(const testing::TestParamInfo<generic_operation> &tested) {
    return tested.param.name;
}

inline void expect_nothing_without_a_table(const generic_operation &operation) {
    platform = fake_platform{};
    const installed_table none(nullptr);
    EXPECT_EQ(operation.run(), 0);
    EXPECT_THAT(platform.calls, testing::IsEmpty());
}

inline void expect_nothing_with_an_empty_slot(const generic_operation &operation) {
    platform = fake_platform{};
    wlan_platform table = recording::table;
    operation.clear(table);
    const installed_table installed(&table);
    EXPECT_EQ(operation.run(), 0);
    EXPECT_THAT(platform.calls, testing::IsEmpty()) << "no other slot stands in";
}

inline void expect_arguments_handed_on(const generic_operation &operation) {
    platform = fake_platform{};
    const installed_table installed(&recording::table);
    (void)operation.run();
    EXPECT_THAT(platform.calls, testing::ElementsAre(operation.slot + "(" + operation.recorded + ")"));
}

inline void expect_result(const generic_operation &operation, int from_slot) {
    platform = fake_platform{};
    const installed_table installed(&recording::table);
    platform.fail(operation.slot, from_slot);
    switch (operation.result) {
    case generic_operation::REDUCED:
        EXPECT_EQ(operation.run(), from_slot != 0 ? 1 : 0);
        break;
    case generic_operation::AS_IS:
        EXPECT_EQ(operation.run(), from_slot);
        break;
    case generic_operation::NONE:
        EXPECT_EQ(operation.run(), 0);
        break;
    }
}

// Results of a slot that are easily mistaken for each other when narrowed.
inline constexpr int SLOT_RESULTS[] = {0, 1, 2, 16, -1, 256, 65536};
