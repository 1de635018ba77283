// Each question opens a socket, asks and closes it, which a period with hundreds of clients would do a thousand times.
#include "path_selection/interface_cache.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <span>
#include <sys/socket.h>

namespace {

template <class Match> const known_interfaces::entry *find_known(const known_interfaces &list, const Match &match) {
    for (const auto &slot : std::span(list.slots, list.count)) {
        if (match(slot))
            return &slot;
    }
    return nullptr;
}

const known_interfaces::entry *add_known(known_interfaces *list, uint32_t ifindex, const char *name) {
    list->count = std::min(list->count + 1, known_interfaces::SLOTS);
    auto *slot = &list->slots[list->count - 1];
    slot->ifindex = ifindex;
    memcpy(slot->name, kolt_name_text(name).text, sizeof slot->name);
    return slot;
}

} // namespace

const char *interface_cache::name_of(uint32_t ifindex) {
    if (const auto *slot = find_known(names_, [ifindex](const auto &one) { return one.ifindex == ifindex; }))
        return slot->name;
    char name[IF_NAMESIZE] = {};
    return if_indextoname(ifindex, name) != nullptr ? add_known(&names_, ifindex, name)->name : nullptr;
}

uint32_t interface_cache::index_of(const char *name) {
    if (const auto *slot = find_known(indexes_, [name](const auto &one) { return kolt_name_equal(one.name, name); }))
        return slot->ifindex;
    const uint32_t ifindex = if_nametoindex(kolt_name_text(name).text);
    return ifindex != 0 ? add_known(&indexes_, ifindex, name)->ifindex : 0;
}

void interface_cache::after_wait() {
    // The kernel tells of every new name, and of every interface that goes, before its call returns to who changed it.
    // Whatever waits on the socket, or an error, counts as a change.
    char first;
    const ssize_t received = recv(link_fd_, &first, sizeof first, MSG_PEEK | MSG_DONTWAIT);
    if (received < 0 && errno == EAGAIN)
        return;
    names_.count = 0;
    indexes_.count = 0;
}
