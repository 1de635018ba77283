// Collects the records of one table in a memory file that can be given away.
#pragma once

#include "bridged/requests/handlers.h"
#include "core/handle.h"

struct table_writer {
    static constexpr size_t BUFFER_SIZE = 16384;

    // For records of this size, of which no more than `capacity` are kept.
    table_writer(uint32_t record_size, uint32_t capacity) : record_size_(record_size), capacity_(capacity) {}

    void add(const void *record, size_t size);

    // Ends the table. False when a record had a wrong size or the memory ran out.
    bool finish();

    // The number of records that were added, and the sealed file that holds those that were kept: none when there are
    // none.
    [[nodiscard]] uint32_t count() const {
        return count_;
    }
    unique_fd take_file() {
        return std::move(file_);
    }

private:
    bool flush();

    uint32_t record_size_;
    uint32_t capacity_;
    uint32_t count_ = 0;
    bool failed_ = false;
    size_t used_ = 0;
    unique_fd file_;
    char buffer_[BUFFER_SIZE];
};
