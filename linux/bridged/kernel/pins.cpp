// Pins: making their folder, finding and comparing what an earlier process left, adding, removing.
#include "kernel/pins.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <unistd.h>

#include <linux/magic.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <bpf/bpf.h>
#include <bpf/libbpf.h>

namespace {

constexpr char USUAL_PLACE[] = "/sys/fs/bpf";
constexpr mode_t FOLDER_MODE = 0700;

using directory = kolt_handle<DIR, closedir>;

struct pin_path {
    char text[PATH_MAX] = "";
};

bool set_path(pin_path *path, const char *folder, const char *name, kolt_reason *why) {
    const int length = snprintf(path->text, sizeof path->text, "%s/%s", folder, name);
    return (length > 0 && static_cast<size_t>(length) < sizeof path->text) ||
           why->say(ENAMETOOLONG, "cannot use the pins of %.100s", folder);
}

bool is_bpf(const char *folder) {
    struct statfs system {};
    return statfs(folder, &system) == 0 && static_cast<unsigned long>(system.f_type) == BPF_FS_MAGIC;
}

bool mount_bpf(const char *folder) {
    return mount("bpf", folder, "bpf", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=0700") == 0;
}

bool is_in_usual_place(const char *folder) {
    const size_t length = strlen(USUAL_PLACE);
    return strncmp(folder, USUAL_PLACE, length) == 0 && folder[length] == '/';
}

bool make_parents(const char *folder) {
    char path[PATH_MAX];
    const int length = snprintf(path, sizeof path, "%s", folder);
    if (length <= 0 || static_cast<size_t>(length) >= sizeof path)
        return false;
    for (char *slash = strchr(path + 1, '/'); slash != nullptr; slash = strchr(slash + 1, '/')) {
        *slash = '\0';
        if (mkdir(path, FOLDER_MODE) != 0 && errno != EEXIST)
            return false;
        *slash = '/';
    }
    return mkdir(path, FOLDER_MODE) == 0 || errno == EEXIST;
}

// What a pin is said to be by the kernel, against what the programs expect.
bool fits(const bpf_map_info &pinned, const bpf_map *map, const char *folder, kolt_reason *why) {
    struct {
        const char *what;
        uint32_t pinned, expected;
    } const facts[] = {
        {"type", pinned.type, bpf_map__type(map)},
        {"key size", pinned.key_size, bpf_map__key_size(map)},
        {"value size", pinned.value_size, bpf_map__value_size(map)},
        {"size", pinned.max_entries, bpf_map__max_entries(map)},
        {"flags", pinned.map_flags, bpf_map__map_flags(map)},
    };
    for (const auto &fact : facts)
        if (fact.pinned != fact.expected)
            return why->say(0, "the pin %.100s/%s is of another version: its %s is %u, not %u", folder,
                            bpf_map__name(map), fact.what, fact.pinned, fact.expected);
    return true;
}

} // namespace

bool pins_make_folder(const char *folder, kolt_reason *why) {
    // The usual place is a folder of another file system that makes no folders.
    if (is_in_usual_place(folder) && !is_bpf(USUAL_PLACE) && !mount_bpf(USUAL_PLACE))
        return why->say(errno, "cannot mount a bpf file system on %s", USUAL_PLACE);
    if (!make_parents(folder))
        return why->say(errno, "cannot make the folder %.100s", folder);
    return is_bpf(folder) || mount_bpf(folder) || why->say(errno, "cannot mount a bpf file system on %.100s", folder);
}

pins_found pins_open(const char *folder, const bpf_map *map, unique_fd *fd, kolt_reason *why) {
    pin_path path;
    if (!set_path(&path, folder, bpf_map__name(map), why))
        return pins_found::OTHER;
    fd->reset(bpf_obj_get(path.text));
    if (!*fd && errno == ENOENT)
        return pins_found::NONE;
    bpf_map_info info{};
    uint32_t size = sizeof info;
    if (!*fd || bpf_obj_get_info_by_fd(fd->get(), &info, &size) != 0) {
        why->say(errno, "cannot open the pin %.150s", path.text);
        return pins_found::OTHER;
    }
    return fits(info, map, folder, why) ? pins_found::FITTING : pins_found::OTHER;
}

unique_fd pins_get(const char *folder, const char *name) {
    pin_path path;
    kolt_reason too_long;
    if (set_path(&path, folder, name, &too_long))
        return unique_fd(bpf_obj_get(path.text));
    errno = too_long.error;
    return unique_fd();
}

bool pins_add(const char *folder, const char *name, int fd, kolt_reason *why) {
    pin_path path;
    return set_path(&path, folder, name, why) &&
           (bpf_obj_pin(fd, path.text) == 0 || why->say(errno, "cannot make the pin %.150s", path.text));
}

bool pins_rename(const char *folder, const char *name, const char *to, kolt_reason *why) {
    pin_path from;
    pin_path path;
    return set_path(&from, folder, name, why) && set_path(&path, folder, to, why) &&
           (rename(from.text, path.text) == 0 || why->say(errno, "cannot rename the pin %.150s", from.text));
}

bool pins_remove_all(const char *folder, kolt_reason *why) {
    const directory pins(opendir(folder));
    if (!pins)
        return errno == ENOENT || why->say(errno, "cannot read the folder %.100s", folder);
    if (!is_bpf(folder))
        return why->say(0, "the folder %.100s holds no pins", folder);
    while (const dirent *entry = readdir(pins.get())) {
        if (entry->d_type == DT_DIR)
            continue;
        // What the kernel itself shows at a mount's top cannot be removed.
        if (unlinkat(dirfd(pins.get()), entry->d_name, 0) != 0 && errno != EPERM)
            return why->say(errno, "cannot remove the pin %.80s/%.80s", folder, entry->d_name);
    }
    (void)rmdir(folder); // a mount point stays
    return true;
}
