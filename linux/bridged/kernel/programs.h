// The two traffic control programs and their maps: loading, pinning, taking over, the words of the ports, the HD table,
// and putting the programs on an interface. One object for a process; nothing here logs by itself.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "bpf/records.h"
#include "core/handle.h"
#include "kernel/hooks.h"
#include "kernel/own_programs.h"
#include "kernel/reason.h"

// What may pass a port. `admits` and `accepts` have a bit for each class of group frames: those that may come in here,
// and those that may leave here, by the class of the port they came in by.
struct kolt_port {
    uint16_t group = 0;
    uint8_t flags = 0;
    uint8_t admits = 0;
    uint8_t accepts = 0;
    uint8_t class_ = 0;

    bool operator==(const kolt_port &) const = default;
};

[[nodiscard]] uint32_t kolt_port_word(const kolt_port &port);
[[nodiscard]] kolt_port kolt_port_of_word(uint32_t word);

struct kolt_hd_entry {
    std::array<uint8_t, 6> mac{};
    uint32_t ifindex = 0;
};

enum kolt_map : uint8_t {
    KOLT_MAP_LAYOUT,
    KOLT_MAP_PORTS,
    KOLT_MAP_IDENTITIES,
    KOLT_MAP_HD,
    KOLT_MAP_STREAM_SLOTS,
    KOLT_MAP_STREAMS,
    KOLT_MAP_FREE_SLOTS,
    KOLT_MAP_ROAMED,
    KOLT_MAP_COUNT,
};

enum class kolt_opened : uint8_t {
    FRESH,        // nothing was pinned
    TAKEN_OVER,   // every map is as the last process left it
    INCOMPATIBLE, // pins of another version: left alone, nothing is loaded
    FAILED,
};

// How a program comes onto an interface. BEST takes TCX where the kernel has it.
enum class kolt_hooking : uint8_t { BEST, CLSACT, TCX };

// Lines of libbpf go to this function, one at a time and without the line's end, instead of standard error.
using kolt_bpf_log = void (*)(void *context, bool warning, const char *line);
void kolt_set_bpf_log(kolt_bpf_log log, void *context);

// At least that of any machine; all of the table in memory would be more than the rest of the process.
constexpr size_t SMALLEST_PAGE = 4096;
constexpr size_t MAX_PORT_PAGES = KOLT_MAX_PORTS * sizeof(kolt_port_entry) / SMALLEST_PAGE;

class kolt_programs {
public:
    kolt_programs() = default;
    kolt_programs(const kolt_programs &) = delete;
    kolt_programs &operator=(const kolt_programs &) = delete;
    ~kolt_programs();

    // Loads the programs with the maps pinned in `pin_folder`; makes and pins those that are missing. Makes the folder,
    // and mounts a bpf file system on it, or on the usual place that it is in, where there is none.
    [[nodiscard]] kolt_opened open(const char *pin_folder, kolt_reason *why);
    // Removes every pin of `pin_folder`, of whatever version. Programs that stand on an interface keep their maps.
    static bool unpin(const char *pin_folder, kolt_reason *why);

    // One store into the map's memory: a frame sees the old word or the new one. False: no such port number.
    bool set_port(uint32_t ifindex, const kolt_port &port);
    [[nodiscard]] kolt_port port(uint32_t ifindex) const;
    // How many frames that no node sends a closed port has kept out so far; begins anew after 2^32.
    [[nodiscard]] uint32_t foreign(uint32_t ifindex) const;
    // With what probes that arrive at the port are answered; a null pointer: no longer.
    bool set_identity(uint32_t ifindex, const kolt_port_identity *identity);
    // Whether it was given one, by this process or an earlier one: so are all interfaces that have the programs.
    [[nodiscard]] bool identified(uint32_t ifindex) const;

    // Adds the entry or points it to another interface. False: the table is full.
    bool hd_set(const uint8_t *mac, uint32_t ifindex);
    bool hd_remove(const uint8_t *mac);
    // Interface index, or 0 without an entry.
    [[nodiscard]] uint32_t hd_find(const uint8_t *mac) const;
    // How many there are; as many as fit are written to `entries`.
    [[nodiscard]] size_t hd_read(std::span<kolt_hd_entry> entries) const;
    // Points all entries of one interface to another; how many these were.
    size_t hd_repoint(uint32_t from, uint32_t to);
    void hd_flush();
    // Takes the next client whose entry a program has removed, since it spoke elsewhere; false when there is none.
    bool roamed_take(uint8_t *mac);

    // Puts both programs on the interface, replacing those of an earlier process without a gap. Until the port's word
    // has OPEN, nothing passes: give it its word first where traffic is to go on.
    bool attach(uint32_t ifindex, kolt_reason *why, kolt_hooking hooking = kolt_hooking::BEST);
    // Takes off both, by whatever way they were put on, and a clsact that then holds nothing.
    bool detach(uint32_t ifindex, kolt_reason *why);
    // Whether both stand on the interface, of this process or of an earlier one. Who may look at all programs knows
    // them by their names, without `own`.
    [[nodiscard]] static bool attached(uint32_t ifindex, const kolt_own_programs &own = {});
    // The same for this process. False when the kernel does not say.
    [[nodiscard]] bool find(uint32_t ifindex, bool *both, kolt_reason *why) const;
    // How many programs and filters of others stand on one of the interface's hooks, TCX and clsact together. `first`
    // becomes one of them: they see what this daemon's let pass, and the user wants to know.
    [[nodiscard]] static size_t others(uint32_t ifindex, kolt_direction direction, kolt_other_program *first,
                                       const kolt_own_programs &own = {});

    // -1 before `open`.
    [[nodiscard]] int map(kolt_map which) const;
    // Whether this process has made the map, and not taken it over.
    [[nodiscard]] bool made(kolt_map which) const;
    [[nodiscard]] int program(kolt_direction direction) const;
    [[nodiscard]] const kolt_own_programs &own() const {
        return own_;
    }

private:
    bool pin_made(const char *pin_folder, kolt_reason *why);
    // A port's place in the map's memory; null where there is none, with errno.
    [[nodiscard]] kolt_port_entry *entry(uint32_t ifindex) const;
    void forget_identities_of_nobody();

    std::array<unique_fd, KOLT_MAP_COUNT> maps_;
    std::array<bool, KOLT_MAP_COUNT> made_{};
    kolt_own_programs own_;
    mutable std::array<void *, MAX_PORT_PAGES> port_pages_{}; // of the map's memory, each from when it is asked for
};
