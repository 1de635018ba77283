// The sum that the writer of a tree's record puts into it.
#pragma once

#include "decide/record.h"

#include <cstddef>

inline void make_sum_fit(tree_record *record) {
    constexpr size_t BEGIN = offsetof(tree_record, checksum) + sizeof record->checksum;
    const auto *content = reinterpret_cast<const uint8_t *>(record);
    uint32_t sum = 0x811c9dc5;
    for (size_t i = BEGIN; i < sizeof *record; i++)
        sum = (sum ^ content[i]) * 0x01000193;
    record->checksum = sum;
}
