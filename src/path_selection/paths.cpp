// Rows are told apart by name: an interface that was made anew keeps its name, not its index.
#include "path_selection/paths.h"

#include "core/log.h"

ps_path *path_selection_get_path_by_port(interface_cache *interfaces, ps_path_table *paths, uint32_t ifindex) {
    const char *name = interfaces->name_of(ifindex);
    if (name == nullptr) {
        KOLT_ERROR("get interface name");
        return nullptr;
    }
    for (ps_path &row : *paths) {
        if (kolt_name_equal(row.name, name))
            return &row;
    }
    return nullptr;
}
