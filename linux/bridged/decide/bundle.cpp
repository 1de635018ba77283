#include "decide/bundle.h"

namespace {

struct choice {
    int best = NO_SLOT;
    int best_permitted = NO_SLOT;
    bool in_use_permitted = false;
};

constexpr unsigned ANY_CLASS = BCAST_CLASSES;

bool is_better(const bundle &links, int slot, int than) {
    return than == NO_SLOT || link_preference(links[static_cast<size_t>(slot)]->type) >
                                  link_preference(links[static_cast<size_t>(than)]->type);
}

choice look(const bundle &links, unsigned bcast_class, int in_use) {
    choice found;
    for (int slot = 0; slot < static_cast<int>(TREE_PORTS); slot++) {
        const port_wish *link = links[static_cast<size_t>(slot)];
        if (link == nullptr || (bcast_class != ANY_CLASS && link->class_ != bcast_class))
            continue;
        if (is_better(links, slot, found.best))
            found.best = slot;
        if (link->permit && is_better(links, slot, found.best_permitted))
            found.best_permitted = slot;
        found.in_use_permitted |= link->permit && slot == in_use;
    }
    return found;
}

} // namespace

int link_preference(uint8_t type) {
    constexpr std::array<int, 5> BY_TYPE = {5, 0, 1, 2, 3};
    return type < BY_TYPE.size() ? BY_TYPE[type] : -1;
}

int bundle_choose(const bundle &links, unsigned bcast_class, int in_use) {
    choice found = look(links, bcast_class, in_use);
    if (found.best == NO_SLOT)
        found = look(links, ANY_CLASS, in_use);
    if (found.in_use_permitted)
        return in_use;
    return found.best_permitted != NO_SLOT ? found.best_permitted : found.best;
}

int bundle_backup(const bundle &links, int slot) {
    bundle others = links;
    if (slot != NO_SLOT)
        others[static_cast<size_t>(slot)] = nullptr;
    return look(others, ANY_CLASS, NO_SLOT).best;
}
