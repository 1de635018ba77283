// Loading the programs with the maps that are pinned, and putting them on interfaces.
#include "kernel/programs.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <iterator>

#include <sys/resource.h>

#include <bpf/bpf.h>
#include <bpf/libbpf.h>

#include "bpf/object.h"
#include "kernel/pins.h"

namespace {

constexpr const char *MAP_NAMES[] = {"layout",       "ports",   "identities", "hd",
                                     "stream_slots", "streams", "free_slots", "roamed"};
static_assert(std::size(MAP_NAMES) == KOLT_MAP_COUNT);

using bpf_object_owner = kolt_handle<bpf_object, bpf_object__close>;

// Where libbpf's lines go. It has one such place for a process, and hands its function no context.
struct log_target {
    kolt_bpf_log log = nullptr;
    void *context = nullptr;
};
log_target bpf_log;

__attribute__((format(printf, 2, 0))) int take_line(libbpf_print_level level, const char *format, va_list arguments) {
    char line[512];
    if (level == LIBBPF_DEBUG || bpf_log.log == nullptr)
        return 0;
    (void)vsnprintf(line, sizeof line, format, arguments);
    line[strcspn(line, "\n")] = '\0';
    bpf_log.log(bpf_log.context, level == LIBBPF_WARN, line);
    return 0;
}

bpf_object_owner open_object(kolt_reason *why) {
    const auto bytes = kolt_bpf_object();
    bpf_object_open_opts options{};
    options.sz = sizeof options;
    options.object_name = "kolt_bridge";
    bpf_object_owner object(bpf_object__open_mem(bytes.data(), bytes.size(), &options));
    if (!object)
        why->say(errno, "cannot read the traffic control programs");
    return object;
}

// What is pinned of the maps, by kolt_map.
using pinned_maps = std::array<unique_fd, KOLT_MAP_COUNT>;

kolt_opened refused(const kolt_reason &why) {
    return why.error == 0 ? kolt_opened::INCOMPATIBLE : kolt_opened::FAILED;
}

bool is_this_layout(int layout, const char *folder, kolt_reason *why) {
    const uint32_t key = 0;
    uint32_t version = 0;
    if (bpf_map_lookup_elem(layout, &key, &version) != 0)
        return why->say(errno, "cannot read the pin %.100s/layout", folder);
    return version == KOLT_LAYOUT_VERSION ||
           why->say(0, "the pins in %.100s are of version %u, not %d", folder, version, KOLT_LAYOUT_VERSION);
}

// The layout's pin is there before all others: without it they are not of this daemon's making.
kolt_opened find_pins(const char *folder, const bpf_object *object, pinned_maps *pinned, kolt_reason *why) {
    for (size_t which = 0; which < KOLT_MAP_COUNT; which++) {
        unique_fd &fd = (*pinned)[which];
        const bpf_map *map = bpf_object__find_map_by_name(object, MAP_NAMES[which]);
        const pins_found found = pins_open(folder, map, &fd, why);
        if (found == pins_found::OTHER)
            return refused(*why);
        if (found == pins_found::NONE)
            continue;
        if (which == KOLT_MAP_LAYOUT && !is_this_layout(fd.get(), folder, why))
            return refused(*why);
        if (!(*pinned)[KOLT_MAP_LAYOUT]) {
            why->say(0, "the pin %.100s/%s has no layout beside it", folder, MAP_NAMES[which]);
            return kolt_opened::INCOMPATIBLE;
        }
    }
    return (*pinned)[KOLT_MAP_LAYOUT] ? kolt_opened::TAKEN_OVER : kolt_opened::FRESH;
}

bool load(bpf_object *object, const pinned_maps &pinned, kolt_reason *why) {
    for (size_t which = 0; which < KOLT_MAP_COUNT; which++) {
        bpf_map *map = bpf_object__find_map_by_name(object, MAP_NAMES[which]);
        const int error = pinned[which] ? bpf_map__reuse_fd(map, pinned[which].get()) : 0;
        if (error != 0)
            return why->say(-error, "cannot take over the pin of the map %s", MAP_NAMES[which]);
    }
    const int error = bpf_object__load(object);
    return error == 0 || why->say(-error, "the kernel refuses the traffic control programs");
}

// Kernels before 5.11 count the tables as locked memory, of which a process is given less. Who may not raise the limit
// for good has what it was given.
void raise_memory_limit() {
    const rlimit none{.rlim_cur = RLIM_INFINITY, .rlim_max = RLIM_INFINITY};
    rlimit given{};
    if (setrlimit(RLIMIT_MEMLOCK, &none) == 0 || getrlimit(RLIMIT_MEMLOCK, &given) != 0)
        return;
    given.rlim_cur = given.rlim_max;
    (void)setrlimit(RLIMIT_MEMLOCK, &given); // or loading says what is missing
}

unique_fd keep(int fd) {
    return unique_fd(fcntl(fd, F_DUPFD_CLOEXEC, 0));
}

} // namespace

void kolt_set_bpf_log(kolt_bpf_log log, void *context) {
    bpf_log = {log, context};
    libbpf_set_print(take_line);
}

kolt_opened kolt_programs::open(const char *pin_folder, kolt_reason *why) {
    libbpf_set_print(take_line);
    raise_memory_limit();
    const bpf_object_owner object = open_object(why);
    if (!object || !pins_make_folder(pin_folder, why))
        return kolt_opened::FAILED;
    pinned_maps pinned;
    const kolt_opened found = find_pins(pin_folder, object.get(), &pinned, why);
    if (found != kolt_opened::FRESH && found != kolt_opened::TAKEN_OVER)
        return found;
    if (!own_.find(pin_folder, why))
        return refused(*why);
    if (!load(object.get(), pinned, why))
        return kolt_opened::FAILED;
    for (size_t which = 0; which < KOLT_MAP_COUNT; which++) {
        maps_[which] = keep(bpf_map__fd(bpf_object__find_map_by_name(object.get(), MAP_NAMES[which])));
        made_[which] = !pinned[which];
    }
    if (!pin_made(pin_folder, why))
        return kolt_opened::FAILED;
    for (const auto direction : KOLT_DIRECTIONS) {
        const bpf_program *loaded = bpf_object__find_program_by_name(object.get(), kolt_program_name(direction));
        if (!own_.add(pin_folder, direction, bpf_program__fd(loaded), maps_, why))
            return kolt_opened::FAILED;
    }
    return found;
}

bool kolt_programs::pin_made(const char *pin_folder, kolt_reason *why) {
    const uint32_t key = 0;
    const uint32_t version = KOLT_LAYOUT_VERSION;
    if (bpf_map_update_elem(map(KOLT_MAP_LAYOUT), &key, &version, BPF_ANY) != 0)
        return why->say(errno, "cannot write the layout's version");
    for (size_t which = 0; which < KOLT_MAP_COUNT; which++)
        if (made_[which] && !pins_add(pin_folder, MAP_NAMES[which], maps_[which].get(), why))
            return false;
    return true;
}

bool kolt_programs::unpin(const char *pin_folder, kolt_reason *why) {
    return pins_remove_all(pin_folder, why);
}

bool kolt_programs::attach(uint32_t ifindex, kolt_reason *why, kolt_hooking hooking) {
    if (ifindex == 0 || ifindex >= KOLT_MAX_PORTS)
        return why->say(ERANGE, "interface %u cannot be guarded: the table of ports ends at %d", ifindex,
                        KOLT_MAX_PORTS);
    if (entry(ifindex) == nullptr) // its word could never be set
        return why->say(errno, "cannot map the table of ports");
    const bool tcx = hooking == kolt_hooking::TCX || (hooking == kolt_hooking::BEST && tcx_available());
    bool were_there = false;
    if (!find(ifindex, &were_there, why))
        return false;
    for (const auto direction : KOLT_DIRECTIONS)
        if (!(tcx ? tcx_attach(ifindex, direction, program(direction), own_, why)
                  : clsact_attach(ifindex, direction, program(direction), why))) {
            kolt_reason ignored;
            if (!were_there)
                detach(ifindex, &ignored); // half a guard would only stop traffic
            return false;
        }
    // After the others are on, so that the port is guarded at every instant of a change from one way to the other.
    for (const auto direction : KOLT_DIRECTIONS)
        if (!(tcx ? clsact_detach(ifindex, direction, why) : tcx_detach(ifindex, direction, own_, why)))
            return false;
    return true;
}

bool kolt_programs::detach(uint32_t ifindex, kolt_reason *why) {
    bool done = true;
    for (const auto direction : KOLT_DIRECTIONS) {
        done = tcx_detach(ifindex, direction, own_, why) && done;
        done = clsact_detach(ifindex, direction, why) && done;
    }
    return done;
}

bool kolt_programs::attached(uint32_t ifindex, const kolt_own_programs &own) {
    bool both = true;
    for (const auto direction : KOLT_DIRECTIONS)
        both = both && (tcx_attached(ifindex, direction, own) || clsact_attached(ifindex, direction));
    return both;
}

bool kolt_programs::find(uint32_t ifindex, bool *both, kolt_reason *why) const {
    *both = true;
    for (const auto direction : KOLT_DIRECTIONS) {
        bool there = false;
        if (!tcx_find(ifindex, direction, own_, &there, why) ||
            (!there && !clsact_find(ifindex, direction, &there, why)))
            return false;
        *both = *both && there;
    }
    return true;
}

size_t kolt_programs::others(uint32_t ifindex, kolt_direction direction, kolt_other_program *first,
                             const kolt_own_programs &own) {
    const size_t filters = clsact_others(ifindex, direction, first);
    return filters + tcx_others(ifindex, direction, own, first); // by TCX they come first
}

int kolt_programs::map(kolt_map which) const {
    return maps_[which].get();
}

bool kolt_programs::made(kolt_map which) const {
    return made_[which];
}

int kolt_programs::program(kolt_direction direction) const {
    return own_.current(direction);
}
