// The programs that are this daemon's, by their pins: to look at a program by its number alone takes a right that a
// service does not have.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "core/handle.h"
#include "kernel/hooks.h"

class kolt_own_programs {
public:
    // Opens what earlier processes have pinned in the folder, and touches nothing. False when something else has a
    // program's name there.
    [[nodiscard]] bool find(const char *folder, kolt_reason *why);
    // Makes `loaded` the program of the direction, unless the pinned one is the same: then that goes on, and whatever
    // it stands on need not change. The one that is replaced stays known, and pinned beside it. `maps` are those that
    // processes hand on.
    [[nodiscard]] bool add(const char *folder, kolt_direction direction, int loaded, std::span<const unique_fd> maps,
                           kolt_reason *why);

    // The descriptor of what `add` has made the program of the direction; -1 before.
    [[nodiscard]] int current(kolt_direction direction) const;
    // The descriptor of a program of the direction by its number, or -1 when it is none of them.
    [[nodiscard]] int of_number(kolt_direction direction, uint32_t number) const;

private:
    enum : size_t { CURRENT, BEFORE, COUNT };
    struct program {
        uint32_t number = 0;
        unique_fd fd;
    };
    std::array<std::array<program, COUNT>, KOLT_DIRECTIONS.size()> programs_;
};
