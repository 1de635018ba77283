// Traffic control's two hooks of an interface, and programs on them: by a clsact and its filters, or by TCX where the
// kernel has that (it is cheaper by what the filter chain costs).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "kernel/reason.h"

enum class kolt_direction : uint8_t { INGRESS, EGRESS };

inline constexpr std::array KOLT_DIRECTIONS = {kolt_direction::INGRESS, kolt_direction::EGRESS};

class kolt_own_programs;

// By these names of theirs, and by their pins, are this daemon's programs told from others on a hook.
[[nodiscard]] const char *kolt_program_name(kolt_direction direction);

// A program of someone else on a hook, by the name that it has.
struct kolt_other_program {
    char name[64] = "";
};

// Filters of clsact. `attach` makes the clsact where it is missing and replaces an earlier program of this daemon in
// one step; `detach` removes the clsact too when nothing is left in it. False when the kernel does not do it or does
// not say what there is: that is never taken for nothing.
bool clsact_attach(uint32_t ifindex, kolt_direction direction, int program, kolt_reason *why);
bool clsact_detach(uint32_t ifindex, kolt_direction direction, kolt_reason *why);
[[nodiscard]] bool clsact_find(uint32_t ifindex, kolt_direction direction, bool *there, kolt_reason *why);
// Whether it is known that one is there.
[[nodiscard]] bool clsact_attached(uint32_t ifindex, kolt_direction direction);
// How many filters of others there are; `first` becomes one of them.
[[nodiscard]] size_t clsact_others(uint32_t ifindex, kolt_direction direction, kolt_other_program *first);

// The same by TCX, where `attach` refuses an interface on which a program of others runs first. A program that is not
// of `own`, and whose name this process may not ask for, is one of others.
[[nodiscard]] bool tcx_available();
bool tcx_attach(uint32_t ifindex, kolt_direction direction, int program, const kolt_own_programs &own,
                kolt_reason *why);
bool tcx_detach(uint32_t ifindex, kolt_direction direction, const kolt_own_programs &own, kolt_reason *why);
[[nodiscard]] bool tcx_find(uint32_t ifindex, kolt_direction direction, const kolt_own_programs &own, bool *there,
                            kolt_reason *why);
[[nodiscard]] bool tcx_attached(uint32_t ifindex, kolt_direction direction, const kolt_own_programs &own);
[[nodiscard]] size_t tcx_others(uint32_t ifindex, kolt_direction direction, const kolt_own_programs &own,
                                kolt_other_program *first);
