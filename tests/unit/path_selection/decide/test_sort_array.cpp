// Sorting of samples.
#include "path_selection/decide/sort_array.h"
#include "support/rows.h"

#include <gmock/gmock.h>

#include <vector>

namespace {

struct sort_row {
    const char *name;
    std::vector<uint16_t> values;
    std::vector<uint16_t> sorted;
    uint8_t count;
};
class SortArray : public table_test<sort_row> {};

TEST_P(SortArray, ValuesAreSortedDownwardsAndCountedUpToTheFirstZero) {
    std::vector<uint16_t> values = GetParam().values;
    EXPECT_EQ(kolt_sort_array(values.data(), static_cast<uint32_t>(values.size())), GetParam().count);
    EXPECT_EQ(values, GetParam().sorted);
}

INSTANTIATE_TEST_SUITE_P(Arrays, SortArray,
                         testing::Values(sort_row{"OfOneValue", {7}, {7}, 1}, sort_row{"OfOneZero", {0}, {0}, 0},
                                         sort_row{"Ascending", {1, 2, 3}, {3, 2, 1}, 3},
                                         sort_row{"Descending", {3, 2, 1}, {3, 2, 1}, 3},
                                         sort_row{"WithEqualValues", {5, 9, 5}, {9, 5, 5}, 3},
                                         sort_row{"WithZeroes", {0, 4, 0, 65535}, {65535, 4, 0, 0}, 2},
                                         sort_row{"OfZeroes", {0, 0, 0}, {0, 0, 0}, 0}),
                         row_name<sort_row>);

TEST(SortOfNothing, SortingNoValuesCountsNone) {
    uint16_t value = 9;
    EXPECT_EQ(kolt_sort_array(nullptr, 5), 0);
    EXPECT_EQ(kolt_sort_array(&value, 0), 0);
}

} // namespace
