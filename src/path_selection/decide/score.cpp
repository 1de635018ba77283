// The inner product is 32 bits wide and the outer 64, both signed; scores are compared unsigned.
#include "path_selection/decide/score.h"

uint64_t ps_score(const ps_path &row) {
    const int32_t capacity = row.quota * row.rate / 100;
    return static_cast<uint64_t>((100 + 20 * int64_t{row.priority}) * capacity);
}

ps_path *ps_find_best_path(ps_path_table *paths, bool relay_client) {
    ps_path *best = nullptr;
    uint64_t best_score = 0;
    for (ps_path &row : *paths) {
        if (!row.is_usable())
            continue;
        if (relay_client)
            return &row;
        const uint64_t score = ps_score(row);
        if (best == nullptr || score > best_score) {
            best = &row;
            best_score = score;
        }
    }
    return best;
}
