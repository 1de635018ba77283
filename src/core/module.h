// The feature modules and their registry.
#pragma once

#include "core/container_of.h"
#include "core/list.h"

#include <cstdint>

struct config;
struct kolt_event;
enum kolt_event_kind : uint32_t;

enum kolt_module_id : uint32_t { KOLT_MODULE_LOOP_AVOIDANCE = 0, KOLT_MODULE_PATH_SELECTION = 1 };

struct kolt_module {
    kolt_list list; // in the module list
    const char *name = nullptr;
    uint32_t id = 0;
    // Releases all that the module holds, unsubscribes it and releases the record; called once.
    void (*free)(kolt_module *module) = nullptr;
    kolt_list sub; // in the hub's subscriber list
    // Called for every event; `event` is null for the start event.
    void (*event_cb)(config *config, kolt_list *sub, kolt_event_kind kind, kolt_event *event) = nullptr;
};

// Builds a module and subscribes it to the hub; null when it failed, which it has logged.
using kolt_module_constructor = kolt_module *(*)(config *config);

// The first module of the list whose id is `id`, or null. The list keeps it.
kolt_module *kolt_get_mod_contex(kolt_list *modules, uint32_t id);

// The module that a subscriber link belongs to.
inline kolt_module *kolt_module_of_sub(kolt_list *sub) {
    return KOLT_CONTAINER_OF(sub, kolt_module, sub);
}

inline kolt_module *kolt_module_of_list(kolt_list *link) {
    return KOLT_CONTAINER_OF(link, kolt_module, list);
}
