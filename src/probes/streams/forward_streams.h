// The forward streams of one client by their ends, to find the one that a reverse stream answers.
#pragma once

#include "probes/streams/growing_array.h"
#include "probes/streams/ha_table.h"

#include <cstddef>
#include <span>

struct kolt_forward_streams {
    kolt_growing_array<ha_table_entry *> buckets;
    size_t bucket_mask = 0; // the number of buckets in use, a power of two, less 1

    // Indexes the streams in place of those before; false without memory. Of several with the same ends the first
    // counts. The index borrows them.
    [[nodiscard]] bool assign(std::span<ha_table_entry *const> streams);

    // The first indexed stream whose other end and ports are those of `reverse`, swapped; null when there is none.
    [[nodiscard]] ha_table_entry *answered_by(const ha_table_entry &reverse) const;
};
