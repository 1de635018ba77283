#include "lib/reply.h"

#include "lib/record_size.h"

#include <algorithm>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

uint32_t carried_records(const call_request &request, const call_reply &reply) {
    return reply.result == 0 ? std::min(reply.count, request.capacity) : 0;
}

bool read_reply(const void *message, size_t size, bool has_table, const call_request &request, call_reply *reply) {
    if (size != sizeof *reply)
        return false;
    memcpy(reply, message, sizeof *reply);
    if (reply->sequence != request.sequence || reply->count > MAX_TABLE_RECORDS)
        return false;
    const uint32_t record_size = reply->result == 0 ? requested_record_size(request) : 0;
    if (reply->record_size != record_size || (record_size == 0 && reply->count != 0))
        return false;
    return has_table == (carried_records(request, *reply) > 0);
}

bool read_table(int file, void *buffer, size_t size) {
    struct stat status {};
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode) || static_cast<uint64_t>(status.st_size) != size)
        return false;
    size_t used = 0;
    while (used < size) {
        const ssize_t got = pread(file, static_cast<char *>(buffer) + used, size - used, static_cast<off_t>(used));
        if (got <= 0)
            return false;
        used += static_cast<size_t>(got);
    }
    return true;
}
