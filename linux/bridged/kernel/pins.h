// The folder of a bpf file system in which the maps outlive the process.
#pragma once

#include "core/handle.h"
#include "kernel/reason.h"

struct bpf_map;

// Whether the folder is there and on a bpf file system, or could be made so.
bool pins_make_folder(const char *folder, kolt_reason *why);

enum class pins_found : uint8_t { NONE, FITTING, OTHER };

// Opens the pin of a map as the object describes it. OTHER: what is pinned under the name is something else.
pins_found pins_open(const char *folder, const bpf_map *map, unique_fd *fd, kolt_reason *why);
// Opens the pin of whatever it is; -1 with errno when there is none.
[[nodiscard]] unique_fd pins_get(const char *folder, const char *name);
bool pins_add(const char *folder, const char *name, int fd, kolt_reason *why);
// Over the pin that has the other name.
bool pins_rename(const char *folder, const char *name, const char *to, kolt_reason *why);
// Removes every pin in the folder, and the folder.
bool pins_remove_all(const char *folder, kolt_reason *why);
