// Plain records in small files: mode, tree.<bridge> and port.<interface>.
#include "bridged/saved_state.h"

#include "bridged/replace_file.h"
#include "core/file.h"
#include "core/handle.h"
#include "core/log.h"
#include "decide/record.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <unistd.h>

namespace {

constexpr size_t PATH_SIZE = 96;
constexpr uint64_t SAVE_AGAIN_MS = 1000; // what is in the way of a file stays there for a while

struct saved_flags {
    uint32_t version = 1;
    uint8_t learning = 0;
    uint8_t flood = 0;
    uint8_t mcast_flood = 0;
    uint8_t bcast_flood = 0;
    uint8_t mcast_router = 0;
    uint8_t shut = 0;
    uint8_t zeros[2] = {};
};
static_assert(sizeof(saved_flags) == 12);

struct saved_mode {
    uint32_t version = 1;
    uint32_t started_with = 0;
    uint32_t mode = 0;
};
static_assert(sizeof(saved_mode) == 12);

constexpr bool is_mode(uint32_t mode) {
    return mode == KOLT_MODE_RE || mode == KOLT_MODE_FAP || mode == KOLT_MODE_HAP;
}

void mode_file_name(const bridged *self, char *path) {
    (void)snprintf(path, PATH_SIZE, "%s/mode", self->settings.run_folder);
}

void file_name(const bridged *self, const char *kind, const char *name, char *path) {
    (void)snprintf(path, PATH_SIZE, "%s/%s.%s", self->settings.run_folder, kind, kolt_name_text(name).text);
}

bool read_whole(const char *path, void *record, size_t size) {
    const file_ptr file(fopen(path, "re"));
    if (!file)
        return false;
    char more = 0;
    return fread(record, 1, size, file.get()) == size && fread(&more, 1, 1, file.get()) == 0;
}

} // namespace

bool saved_state_write(bridge_node *node) {
    static_assert(sizeof(tree_record) < size_t{64} * 1024);
    tree_record record;
    tree_save(node->links, &record);
    if (memcmp(&record, &node->saved, sizeof(record)) == 0)
        return true;
    char path[PATH_SIZE];
    file_name(node->owner, "tree", node->name, path);
    if (node_now() < node->save_again_ms)
        return false;
    if (replace_file(path, reinterpret_cast<const char *>(&record), sizeof(record))) {
        node->saved = record;
        return true;
    }
    node->saved = {};
    if (unlink(path) == 0 || errno == ENOENT)
        return true;
    KOLT_ERROR("%s: opens nothing before its file is written", node->name);
    node->save_again_ms = node_now() + SAVE_AGAIN_MS;
    return false;
}

bool saved_state_read(bridge_node *node, uint64_t seed) {
    char path[PATH_SIZE];
    file_name(node->owner, "tree", node->name, path);
    tree_record record;
    return read_whole(path, &record, sizeof(record)) && tree_take_over(&node->links, record, seed, node_now());
}

void saved_state_remove(bridge_node *node) {
    char path[PATH_SIZE];
    file_name(node->owner, "tree", node->name, path);
    (void)unlink(path); // one that is not there needs no removing
    node->saved = {};
}

bool saved_mode_read(bridged *self) {
    char path[PATH_SIZE];
    mode_file_name(self, path);
    saved_mode saved;
    if (!read_whole(path, &saved, sizeof(saved)) || saved.version != saved_mode{}.version ||
        saved.started_with != self->settings.mode || !is_mode(saved.mode))
        return false;
    self->mode = static_cast<kolt_work_mode>(saved.mode);
    return true;
}

void saved_mode_write(const bridged *self) {
    char path[PATH_SIZE];
    mode_file_name(self, path);
    const saved_mode saved{.started_with = self->settings.mode, .mode = self->mode};
    (void)replace_file(path, reinterpret_cast<const char *>(&saved), sizeof(saved)); // it has logged a failure
}

void saved_state_remove_all(const bridged *self) {
    const kolt_handle<DIR, closedir> folder(opendir(self->settings.run_folder));
    while (const dirent *entry = folder ? readdir(folder.get()) : nullptr) {
        if (strncmp(entry->d_name, "tree.", 5) == 0 || strncmp(entry->d_name, "port.", 5) == 0 ||
            strcmp(entry->d_name, "mode") == 0)
            (void)unlinkat(dirfd(folder.get()), entry->d_name, 0);
    }
}

void saved_port_write(const bridged *self, const node_port &port) {
    char path[PATH_SIZE];
    file_name(self, "port", port.name, path);
    const saved_flags flags{.learning = port.found.learning,
                            .flood = port.found.flood,
                            .mcast_flood = port.found.mcast_flood,
                            .bcast_flood = port.found.bcast_flood,
                            .mcast_router = port.found.mcast_router,
                            .shut = port.shut};
    (void)replace_file(path, reinterpret_cast<const char *>(&flags), sizeof(flags)); // it has logged a failure
}

bool saved_port_read(const bridged *self, node_port *port) {
    char path[PATH_SIZE];
    file_name(self, "port", port->name, path);
    saved_flags flags;
    if (!read_whole(path, &flags, sizeof(flags)) || flags.version != saved_flags{}.version ||
        flags.mcast_router > MCAST_ROUTER_TEMPORARY)
        return false;
    port->shut = flags.shut != 0;
    port->found = {.learning = flags.learning != 0,
                   .flood = flags.flood != 0,
                   .mcast_flood = flags.mcast_flood != 0,
                   .bcast_flood = flags.bcast_flood != 0,
                   .mcast_router = static_cast<bridge_mcast_router>(flags.mcast_router)};
    return true;
}

void saved_port_remove(const bridged *self, const char *name) {
    char path[PATH_SIZE];
    file_name(self, "port", name, path);
    (void)unlink(path);
}
