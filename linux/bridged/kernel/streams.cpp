// The table of streams in the map's memory, what each stream carried in the last period, and the way of a slot from one
// stream to the next.
#include "kernel/streams.h"

#include <bitset>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <sys/mman.h>

#include <bpf/bpf.h>

namespace {

constexpr size_t TABLE_BYTES = KOLT_MAX_STREAMS * sizeof(kolt_stream);

// The low halves of a stream's counters. Differences are right across a wrap.
struct counters {
    uint32_t tx_packets = 0;
    uint32_t tx_bytes = 0;
    uint32_t rx_packets = 0;
    uint32_t rx_bytes = 0;
};

// The programs count while this is read.
counters counters_of(const volatile kolt_stream &stream) {
    return {.tx_packets = static_cast<uint32_t>(stream.tx_packets),
            .tx_bytes = static_cast<uint32_t>(stream.tx_bytes),
            .rx_packets = static_cast<uint32_t>(stream.rx_packets),
            .rx_bytes = static_cast<uint32_t>(stream.rx_bytes)};
}

counters difference(const counters &now, const counters &before) {
    return {.tx_packets = now.tx_packets - before.tx_packets,
            .tx_bytes = now.tx_bytes - before.tx_bytes,
            .rx_packets = now.rx_packets - before.rx_packets,
            .rx_bytes = now.rx_bytes - before.rx_bytes};
}

// Whoever sends a frame each of many streams would keep the table full for all others.
uint64_t idle_time(size_t used) {
    constexpr size_t ENOUGH = KOLT_MAX_STREAMS / 2;
    const size_t left = KOLT_MAX_STREAMS - used;
    return left >= ENOUGH ? KOLT_STREAM_IDLE_MS : KOLT_STREAM_IDLE_MS * left / ENOUGH;
}

bool same_but_hash(const kolt_stream_key &one, const kolt_stream_key &other) {
    return memcmp(&one, &other, offsetof(kolt_stream_key, hash)) == 0;
}

} // namespace

// What is remembered of a slot's stream between two looks at it. Each generation counts for one use, so that a slot's
// next stream never continues where the one before it ended.
struct kolt_streams::account {
    uint32_t counted_generation;
    counters counted;
    counters period;
    uint32_t seen_generation;
    uint32_t seen_packets;
    uint64_t active_at;
    uint64_t rested_at;
};

void kolt_streams::account_freer::operator()(account *accounts) const {
    free(accounts);
}

kolt_streams::~kolt_streams() {
    if (table_ != nullptr)
        munmap(table_, TABLE_BYTES);
}

bool kolt_streams::open(const kolt_programs &programs, uint64_t now, kolt_reason *why) {
    slots_map_ = programs.map(KOLT_MAP_STREAM_SLOTS);
    free_map_ = programs.map(KOLT_MAP_FREE_SLOTS);
    // Zeroed pages that are never touched cost nothing, and most slots are never used.
    accounts_.reset(static_cast<account *>(calloc(KOLT_MAX_STREAMS, sizeof(account))));
    if (!accounts_)
        return why->say(ENOMEM, "no memory for the accounts of the streams");
    const int streams = programs.map(KOLT_MAP_STREAMS);
    void *memory = mmap(nullptr, TABLE_BYTES, PROT_READ | PROT_WRITE, MAP_SHARED, streams, 0);
    if (memory == MAP_FAILED)
        return why->say(errno, "cannot map the table of streams");
    table_ = static_cast<kolt_stream *>(memory);
    begin_counting();
    give_back_unheld(programs, now);
    return true;
}

// What an earlier process has found counted was of its periods.
void kolt_streams::begin_counting() {
    for (uint32_t slot = 0; slot < KOLT_MAX_STREAMS; slot++) {
        if (state(slot) == KOLT_STREAM_FREE)
            continue;
        accounts_[slot].counted_generation = table_[slot].generation;
        accounts_[slot].counted = counters_of(table_[slot]);
    }
}

// A slot that is neither on the stack nor in use can be one that a program is filling at this moment, so it rests
// first. Nobody fills any where the maps are new. The lowest slots come out of the stack first, which keeps the table
// in use short.
void kolt_streams::give_back_unheld(const kolt_programs &programs, uint64_t now) {
    const bool nobody_else = programs.made(KOLT_MAP_FREE_SLOTS) && programs.made(KOLT_MAP_STREAMS);
    std::bitset<KOLT_MAX_STREAMS> was_free;
    uint32_t slot = 0;
    for (size_t taken = 0; taken < KOLT_MAX_STREAMS; taken++) {
        if (bpf_map_lookup_and_delete_elem(free_map_, nullptr, &slot) != 0)
            break;
        if (slot < KOLT_MAX_STREAMS)
            was_free[slot] = true;
    }
    for (slot = KOLT_MAX_STREAMS; slot-- > 0;) {
        if (nobody_else || was_free[slot])
            (void)bpf_map_update_elem(free_map_, nullptr, &slot, BPF_ANY); // has a place for each
        else if (state(slot) != KOLT_STREAM_USED || !has_key(slot))
            rest(slot, now);
    }
}

uint32_t kolt_streams::state(uint32_t slot) const {
    return __atomic_load_n(&table_[slot].state, __ATOMIC_ACQUIRE);
}

void kolt_streams::set_state(uint32_t slot, uint32_t state) {
    __atomic_store_n(&table_[slot].state, state, __ATOMIC_RELEASE);
}

bool kolt_streams::has_key(uint32_t slot) const {
    const kolt_stream_key key = table_[slot].key;
    uint32_t found = 0;
    return bpf_map_lookup_elem(slots_map_, &key, &found) == 0 && found == slot;
}

void kolt_streams::rest(uint32_t slot, uint64_t now) {
    set_state(slot, KOLT_STREAM_DYING);
    accounts_[slot].rested_at = now + KOLT_SLOT_REST_MS;
}

size_t kolt_streams::read(std::span<kolt_stream_record> records) const {
    size_t count = 0;
    for (uint32_t slot = 0; slot < KOLT_MAX_STREAMS; slot++) {
        if (state(slot) != KOLT_STREAM_USED)
            continue;
        if (count < records.size())
            records[count] = record(slot);
        count++;
    }
    return count;
}

size_t kolt_streams::count() const {
    return read({});
}

std::optional<uint32_t> kolt_streams::find(const kolt_stream_key &key) const {
    uint32_t slot = 0;
    if (bpf_map_lookup_elem(slots_map_, &key, &slot) != 0 || slot >= KOLT_MAX_STREAMS)
        return std::nullopt;
    return slot;
}

std::optional<uint32_t> kolt_streams::find_any_hash(const kolt_stream_key &key) const {
    std::optional<uint32_t> best;
    uint64_t most = 0;
    for (uint32_t slot = 0; slot < KOLT_MAX_STREAMS; slot++) {
        if (state(slot) != KOLT_STREAM_USED || !same_but_hash(table_[slot].key, key))
            continue;
        const kolt_stream_record found = record(slot);
        const uint64_t bytes = static_cast<uint64_t>(found.tx_bytes) + found.rx_bytes;
        if (best && bytes <= most)
            continue;
        best = slot;
        most = bytes;
    }
    return best;
}

kolt_stream_record kolt_streams::record(uint32_t slot) const {
    const kolt_stream &stream = table_[slot];
    const account &known = accounts_[slot];
    const counters period = known.counted_generation == stream.generation ? known.period : counters{};
    return {.slot = slot,
            .target = __atomic_load_n(&stream.target, __ATOMIC_RELAXED),
            .key = stream.key,
            .tx_packets = period.tx_packets,
            .tx_bytes = period.tx_bytes,
            .rx_packets = period.rx_packets,
            .rx_bytes = period.rx_bytes};
}

void kolt_streams::repoint(uint32_t slot, uint32_t ifindex) {
    __atomic_store_n(&table_[slot].target, ifindex, __ATOMIC_RELEASE);
}

size_t kolt_streams::repoint_all(uint32_t from, uint32_t to) {
    size_t count = 0;
    for (uint32_t slot = 0; slot < KOLT_MAX_STREAMS; slot++) {
        uint32_t expected = from;
        // A stream that its program points elsewhere at this moment stays there.
        if (state(slot) == KOLT_STREAM_USED &&
            __atomic_compare_exchange_n(&table_[slot].target, &expected, to, false, __ATOMIC_RELEASE, __ATOMIC_RELAXED))
            count++;
    }
    return count;
}

// The state goes first: whoever takes over after a crash in between finds what was begun.
bool kolt_streams::remove(uint32_t slot, uint64_t now) {
    if (slot >= KOLT_MAX_STREAMS || state(slot) != KOLT_STREAM_USED)
        return false;
    rest(slot, now);
    const kolt_stream_key key = table_[slot].key;
    (void)bpf_map_delete_elem(slots_map_, &key); // an entry that is gone already is what is wanted
    return true;
}

size_t kolt_streams::remove_all(uint64_t now) {
    size_t count = 0;
    for (uint32_t slot = 0; slot < KOLT_MAX_STREAMS; slot++)
        count += remove(slot, now) ? 1U : 0U;
    return count;
}

void kolt_streams::end_period() {
    for (uint32_t slot = 0; slot < KOLT_MAX_STREAMS; slot++) {
        if (state(slot) != KOLT_STREAM_USED)
            continue;
        account &known = accounts_[slot];
        if (known.counted_generation != table_[slot].generation)
            known.counted = {};
        known.counted_generation = table_[slot].generation;
        const counters now = counters_of(table_[slot]);
        known.period = difference(now, known.counted);
        known.counted = now;
    }
}

size_t kolt_streams::sweep(uint64_t now) {
    const uint64_t longest = idle_time(used_);
    size_t forgotten = 0;
    used_ = 0;
    for (uint32_t slot = 0; slot < KOLT_MAX_STREAMS; slot++) {
        const uint32_t found = state(slot);
        if (found == KOLT_STREAM_DYING)
            free_if_rested(slot, now);
        if (found == KOLT_STREAM_USED && idle_for(slot, now) >= longest)
            forgotten += remove(slot, now) ? 1U : 0U;
        used_ += state(slot) == KOLT_STREAM_USED ? 1U : 0U;
    }
    return forgotten;
}

// One with a frame since it was last looked at: not at all.
std::optional<uint64_t> kolt_streams::idle_for(uint32_t slot, uint64_t now) {
    account &known = accounts_[slot];
    const counters carried = counters_of(table_[slot]);
    const uint32_t packets = carried.tx_packets + carried.rx_packets;
    if (known.seen_generation == table_[slot].generation && known.seen_packets == packets)
        return now - known.active_at;
    known.seen_generation = table_[slot].generation;
    known.seen_packets = packets;
    known.active_at = now;
    return std::nullopt;
}

// A slot whose key is there after all was being filled while this process started.
void kolt_streams::free_if_rested(uint32_t slot, uint64_t now) {
    if (now < accounts_[slot].rested_at)
        return;
    if (has_key(slot))
        return set_state(slot, KOLT_STREAM_USED);
    set_state(slot, KOLT_STREAM_FREE);
    (void)bpf_map_update_elem(free_map_, nullptr, &slot, BPF_ANY); // has a place for each
}
