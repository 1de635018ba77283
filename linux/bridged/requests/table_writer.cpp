#include "bridged/requests/table_writer.h"

#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>

namespace {

constexpr int SEALS = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

bool write_all(int fd, const char *bytes, size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, bytes, size);
        if (written <= 0)
            return false;
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

} // namespace

void table_writer::add(const void *record, size_t size) {
    if (size != record_size_ || count_ == MAX_TABLE_RECORDS)
        failed_ = true;
    if (failed_)
        return;
    if (count_++ >= capacity_)
        return;
    if (used_ + size > sizeof buffer_ && !flush()) {
        failed_ = true;
        return;
    }
    memcpy(buffer_ + used_, record, size);
    used_ += size;
}

bool table_writer::flush() {
    if (!file_)
        file_.reset(memfd_create("kolt-table", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    const bool written = file_ && write_all(file_.get(), buffer_, used_);
    used_ = 0;
    return written;
}

bool table_writer::finish() {
    if (!failed_ && used_ > 0)
        failed_ = !flush();
    if (!failed_ && file_)
        failed_ = fcntl(file_.get(), F_ADD_SEALS, SEALS) != 0;
    return !failed_;
}

void table_add_bytes(table_writer *table, const void *record, size_t size) {
    table->add(record, size);
}
