#include "path_selection/interface_cache.h"

#include "core/names.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <net/if.h>

namespace {

struct known_interface {
    uint32_t ifindex;
    char name[IF_NAMESIZE + 1];
};

// Room for all ports of a bridge. Where it does not suffice, the last slot serves for the answers of the moment.
constexpr size_t SLOTS = 160;

// The kernel's answers to one of the two questions; it knows some interfaces by more than one name, so an answer to one
// is none to the other. What it did not know is asked for again.
struct known_list {
    known_interface slots[SLOTS];
    size_t count;
};

known_list names;
known_list indexes;

template <class Match> const known_interface *find_known(const known_list &list, const Match &match) {
    const known_interface *end = list.slots + list.count;
    const known_interface *found = std::find_if(list.slots, end, match);
    return found != end ? found : nullptr;
}

const known_interface *add_known(known_list *list, uint32_t ifindex, const char *name) {
    list->count = std::min(list->count + 1, SLOTS);
    known_interface *slot = &list->slots[list->count - 1];
    slot->ifindex = ifindex;
    memcpy(slot->name, kolt_name_text(name).text, sizeof slot->name);
    return slot;
}

} // namespace

void ps_forget_interfaces() {
    names.count = 0;
    indexes.count = 0;
}

const char *ps_interface_name(uint32_t ifindex) {
    if (const auto *slot = find_known(names, [ifindex](const auto &one) { return one.ifindex == ifindex; }))
        return slot->name;
    char name[IF_NAMESIZE] = {};
    return if_indextoname(ifindex, name) != nullptr ? add_known(&names, ifindex, name)->name : nullptr;
}

uint32_t ps_interface_index(const char *name) {
    if (const auto *slot = find_known(indexes, [name](const auto &one) { return kolt_name_equal(one.name, name); }))
        return slot->ifindex;
    const uint32_t ifindex = if_nametoindex(kolt_name_text(name).text);
    return ifindex != 0 ? add_known(&indexes, ifindex, name)->ifindex : 0;
}
