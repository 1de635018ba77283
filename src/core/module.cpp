// The module registry.
#include "core/module.h"

kolt_module *kolt_get_mod_contex(kolt_list *modules, uint32_t id) {
    for (kolt_list *link = modules->next; link != modules; link = link->next) {
        kolt_module *module = kolt_module_of_list(link);
        if (module->id == id)
            return module;
    }
    return nullptr;
}
