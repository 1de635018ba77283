// Finding the pinned programs, and handing them on.
#include "kernel/own_programs.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

#include <linux/bpf.h>

#include <bpf/bpf.h>

#include "kernel/pins.h"

namespace {

constexpr size_t MAX_USED_MAPS = 16;

struct pin_name {
    char text[32];
};

pin_name name_of(kolt_direction direction, bool before) {
    pin_name name;
    (void)snprintf(name.text, sizeof name.text, "%s%s", kolt_program_name(direction), before ? "_before" : "");
    return name;
}

// The numbers of the maps that a program uses.
struct used_maps {
    std::array<uint32_t, MAX_USED_MAPS> numbers{};
    size_t count = 0;

    [[nodiscard]] bool has(uint32_t number) const {
        return std::find(numbers.begin(), numbers.begin() + count, number) != numbers.begin() + count;
    }
};

bool describe(int program, bpf_prog_info *info, used_maps *used = nullptr) {
    uint32_t size = sizeof *info;
    *info = {};
    if (used != nullptr) {
        info->map_ids = reinterpret_cast<uintptr_t>(used->numbers.data());
        info->nr_map_ids = MAX_USED_MAPS;
    }
    if (bpf_obj_get_info_by_fd(program, info, &size) != 0)
        return false;
    if (used != nullptr)
        used->count = std::min<size_t>(info->nr_map_ids, MAX_USED_MAPS);
    return true;
}

uint32_t number_of_map(int map) {
    bpf_map_info info{};
    uint32_t size = sizeof info;
    return bpf_obj_get_info_by_fd(map, &info, &size) == 0 ? info.id : 0;
}

// The same instructions on the same maps. What else a program has is its own, and not handed on.
bool are_same(int one, int other, std::span<const unique_fd> maps) {
    bpf_prog_info of_one;
    bpf_prog_info of_other;
    used_maps one_uses;
    used_maps other_uses;
    if (!describe(one, &of_one, &one_uses) || !describe(other, &of_other, &other_uses))
        return false;
    return memcmp(of_one.tag, of_other.tag, sizeof of_one.tag) == 0 &&
           std::all_of(maps.begin(), maps.end(), [&](const unique_fd &map) {
               const uint32_t number = number_of_map(map.get());
               return one_uses.has(number) == other_uses.has(number);
           });
}

unique_fd duplicate(int fd) {
    return unique_fd(fcntl(fd, F_DUPFD_CLOEXEC, 0));
}

} // namespace

bool kolt_own_programs::find(const char *folder, kolt_reason *why) {
    for (const auto direction : KOLT_DIRECTIONS)
        for (const size_t which : {CURRENT, BEFORE}) {
            const pin_name name = name_of(direction, which == BEFORE);
            program &found = programs_[static_cast<size_t>(direction)][which];
            found.fd = pins_get(folder, name.text);
            if (!found.fd && errno == ENOENT)
                continue;
            bpf_prog_info info;
            if (!found.fd || !describe(found.fd.get(), &info))
                return why->say(errno, "cannot open the pin %.100s/%s", folder, name.text);
            // What a map is said to be has other things in these places.
            if (info.type != BPF_PROG_TYPE_SCHED_CLS || strcmp(info.name, kolt_program_name(direction)) != 0)
                return why->say(0, "the pin %.100s/%s is no program of kolt-bridged", folder, name.text);
            found.number = info.id;
        }
    return true;
}

bool kolt_own_programs::add(const char *folder, kolt_direction direction, int loaded, std::span<const unique_fd> maps,
                            kolt_reason *why) {
    auto &known = programs_[static_cast<size_t>(direction)];
    program &now = known[CURRENT];
    if (now.fd && are_same(now.fd.get(), loaded, maps))
        return true;
    const pin_name name = name_of(direction, false);
    // Before anything stands on an interface: whoever comes after a sudden end has to know it.
    if (now.fd && !pins_rename(folder, name.text, name_of(direction, true).text, why))
        return false;
    if (!pins_add(folder, name.text, loaded, why))
        return false;
    bpf_prog_info info;
    if (!describe(loaded, &info))
        return why->say(errno, "cannot look at the program %s", name.text);
    if (now.fd)
        std::swap(now, known[BEFORE]);
    now = program{info.id, duplicate(loaded)};
    return true;
}

int kolt_own_programs::current(kolt_direction direction) const {
    return programs_[static_cast<size_t>(direction)][CURRENT].fd.get();
}

int kolt_own_programs::of_number(kolt_direction direction, uint32_t number) const {
    for (const program &one : programs_[static_cast<size_t>(direction)])
        if (one.fd && one.number == number)
            return one.fd.get();
    return -1;
}
