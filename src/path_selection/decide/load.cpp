// Comparisons of utilisations; the lighter of two counts with what was measured, not with its correction.
#include "path_selection/decide/load.h"

namespace {

bool is_much_lighter(const ps_path &path, int adjusted, int delta_threshold) {
    return path.util < adjusted && adjusted - path.util > delta_threshold;
}

// The usable Wi-Fi path that is much lighter than path `i`; PATH_NONE without any.
kolt_link_type find_lighter(const ps_path_table &paths, kolt_link_type i, int delta_threshold) {
    for (const kolt_link_type j : KOLT_WIFI_LINKS) {
        if (j != i && paths[j].is_usable() && is_much_lighter(paths[j], paths[i].adjusted_util(), delta_threshold))
            return j;
    }
    return PATH_NONE;
}

} // namespace

bool ps_is_any_overloaded(const ps_path_table &paths, int high_threshold) {
    for (const ps_path &row : paths) {
        if (row.is_present() && row.adjusted_util() > high_threshold)
            return true;
    }
    return false;
}

ps_full_load ps_check_full_load(const ps_path_table &paths, int high_threshold, int delta_threshold) {
    bool full = false;
    for (const kolt_link_type i : KOLT_WIFI_LINKS) {
        if (!paths[i].is_usable())
            continue;
        if (paths[i].adjusted_util() <= high_threshold)
            return {};
        const kolt_link_type lighter = find_lighter(paths, i, delta_threshold);
        if (lighter != PATH_NONE)
            return {.loaded = i, .lighter = lighter};
        full = true;
    }
    return {.full = full};
}

bool ps_is_overloaded_beside(const ps_path &path, const ps_path &best, int high_threshold, int delta_threshold) {
    const int adjusted = path.adjusted_util();
    return adjusted > high_threshold && adjusted - best.util > delta_threshold;
}
