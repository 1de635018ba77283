// Any bytes as what kolt-bridged answers. The first 8 bytes are the request: its call, the table's code, whether a file
// comes with the answer, the sequence, and the room for records (16 bits). Then comes the reply, and behind it, after
// 16 bytes, what the file holds.
#include "core/handle.h"
#include "lib/record_size.h"
#include "lib/reply.h"

#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr size_t REQUEST_BYTES = 8;

void require(bool condition) {
    if (!condition)
        abort();
}

call_request request_of(const uint8_t *data) {
    call_request request{};
    request.call = data[0];
    request.values[0] = data[1];
    request.sequence = data[3];
    request.capacity = static_cast<uint32_t>(data[4] | data[5] << 8);
    return request;
}

unique_fd file_of(const uint8_t *data, size_t size) {
    unique_fd file(memfd_create("table", MFD_CLOEXEC));
    if (!file || write(file.get(), data, size) != static_cast<ssize_t>(size))
        abort();
    return file;
}

} // namespace

// A reply that is taken brings what the caller has room for, to the byte.
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < REQUEST_BYTES)
        return 0;
    const call_request request = request_of(data);
    const bool has_table = (data[2] & 1) != 0;
    // Bit 1: a reply of the size that the whole rest has.
    data += REQUEST_BYTES;
    size -= REQUEST_BYTES;
    const size_t reply_size = (data[-6] & 2) != 0 || size < sizeof(call_reply) ? size : sizeof(call_reply);
    call_reply reply;
    if (!read_reply(data, reply_size, has_table, request, &reply))
        return 0;
    const uint32_t records = carried_records(request, reply);
    require(records <= request.capacity && (records > 0) == has_table);
    require(reply.count <= MAX_TABLE_RECORDS);
    if (!has_table)
        return 0;
    require(reply.record_size == requested_record_size(request) && reply.record_size > 0);
    std::vector<char> buffer(size_t{records} * reply.record_size);
    const unique_fd file = file_of(data + sizeof reply, size - sizeof reply);
    require(read_table(file.get(), buffer.data(), buffer.size()) == (size - sizeof reply == buffer.size()));
    return 0;
}
