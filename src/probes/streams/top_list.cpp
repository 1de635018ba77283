// Insertion into a list of at most twenty: a scan is all that it needs.
#include "probes/streams/top_list.h"

namespace {

// The number of slots before the first empty one, or before the first stream without a key.
uint8_t filled_slots(ha_table_entry *const *list, uint8_t limit) {
    uint8_t filled = 0;
    while (filled < limit && list[filled] != nullptr && list[filled]->counter_b != 0)
        filled++;
    return filled;
}

// Makes room for one more stream of a port that has all its slots, at the cost of its last stream that is smaller than
// the new one; false when there is none.
bool make_room_for_port(ha_table_entry **list, uint8_t limit, const ha_table_entry *stream) {
    const uint8_t filled = filled_slots(list, limit);
    uint8_t same_port = 0;
    uint8_t smaller = limit;
    for (uint8_t i = 0; i < filled; i++) {
        if (list[i]->port != stream->port)
            continue;
        same_port++;
        if (list[i]->counter_b < stream->counter_b)
            smaller = i;
    }
    if (same_port < KOLT_MAX_STREAMS_OF_PORT)
        return true;
    if (smaller == limit)
        return false;
    for (uint8_t i = smaller; i + 1 < limit; i++)
        list[i] = list[i + 1];
    list[limit - 1] = nullptr;
    return true;
}

} // namespace

void kolt_insert_top_stream(ha_table_entry **list, uint8_t limit, ha_table_entry *stream) {
    if (!make_room_for_port(list, limit, stream))
        return;
    uint8_t slot = 0;
    while (slot < limit && list[slot] != nullptr && list[slot]->counter_b != 0 &&
           list[slot]->counter_b >= stream->counter_b)
        slot++;
    if (slot == limit)
        return;
    const bool taken = list[slot] != nullptr && list[slot]->counter_b != 0;
    for (uint8_t i = limit; taken && --i > slot;)
        list[i] = list[i - 1];
    list[slot] = stream;
}
