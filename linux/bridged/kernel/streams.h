// The streams that the programs count and steer, read and re-pointed in the map's own memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "bpf/records.h"
#include "kernel/programs.h"

// A stream as a reader gets it. The counters are those of the last full measuring period.
struct kolt_stream_record {
    uint32_t slot = 0;
    uint32_t target = 0;
    kolt_stream_key key{};
    uint32_t tx_packets = 0;
    uint32_t tx_bytes = 0;
    uint32_t rx_packets = 0;
    uint32_t rx_bytes = 0;
};

// A stream without a frame for this long, in either direction, is forgotten; sooner when more than half of the slots
// are taken, as much as places are scarce.
constexpr uint64_t KOLT_STREAM_IDLE_MS = 30000;
// A slot rests for this long between its key's removal and its next stream.
constexpr uint64_t KOLT_SLOT_REST_MS = 1000;

class kolt_streams {
public:
    kolt_streams() = default;
    kolt_streams(const kolt_streams &) = delete;
    kolt_streams &operator=(const kolt_streams &) = delete;
    ~kolt_streams();

    // Maps the table and gives back the slots that nobody holds: all of them after a fresh start, those that an
    // earlier process had in hand after a takeover. `programs` must outlive this. All times are CLOCK_MONOTONIC in ms.
    bool open(const kolt_programs &programs, uint64_t now, kolt_reason *why);

    // How many there are; as many as fit are written to `records`, in the order of their slots.
    [[nodiscard]] size_t read(std::span<kolt_stream_record> records) const;
    [[nodiscard]] size_t count() const;

    // The slot of a stream.
    [[nodiscard]] std::optional<uint32_t> find(const kolt_stream_key &key) const;
    // The same, whatever the address hash; the busiest of the last period where several differ only in that.
    [[nodiscard]] std::optional<uint32_t> find_any_hash(const kolt_stream_key &key) const;
    [[nodiscard]] kolt_stream_record record(uint32_t slot) const;

    // One store: the stream's next frame takes the new port. A stream of a FOLLOW port goes back with the next frame
    // of its other direction.
    void repoint(uint32_t slot, uint32_t ifindex);
    // All streams of one port to another; how many these were.
    size_t repoint_all(uint32_t from, uint32_t to);

    bool remove(uint32_t slot, uint64_t now);
    size_t remove_all(uint64_t now);

    // Ends a measuring period: what `read` and `record` tell until the next one.
    void end_period();
    // Forgets idle streams and gives rested slots back; to be called about once a second. How many were forgotten.
    size_t sweep(uint64_t now);

private:
    struct account;
    struct account_freer {
        void operator()(account *accounts) const;
    };

    [[nodiscard]] uint32_t state(uint32_t slot) const;
    void set_state(uint32_t slot, uint32_t state);
    [[nodiscard]] bool has_key(uint32_t slot) const;
    void begin_counting();
    void give_back_unheld(const kolt_programs &programs, uint64_t now);
    void rest(uint32_t slot, uint64_t now);
    std::optional<uint64_t> idle_for(uint32_t slot, uint64_t now);
    void free_if_rested(uint32_t slot, uint64_t now);

    int slots_map_ = -1;
    int free_map_ = -1;
    kolt_stream *table_ = nullptr;
    size_t used_ = 0;                                    // slots, after the last sweep
    std::unique_ptr<account[], account_freer> accounts_; // by slot
};
