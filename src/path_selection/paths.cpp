#include "path_selection/paths.h"

#include "core/log.h"
#include "path_selection/interface_cache.h"

constinit path_selection_context path_selection_ctx;

ps_path *path_selection_get_path_by_port(ps_path_table *paths, uint32_t ifindex) {
    const char *name = ps_interface_name(ifindex);
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
