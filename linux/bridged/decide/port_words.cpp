#include "decide/port_words.h"

namespace {

constexpr uint8_t ALL_CLASSES = (1 << BCAST_CLASSES) - 1;

port_word word_of(const tree &self, size_t slot) {
    const tree_port &port = self.ports[slot];
    // A class of its own keeps a link from being chosen; what comes in by it is of one that others let out.
    port_word word{.class_ = port.wish.class_ < BCAST_CLASSES ? port.wish.class_ : uint8_t{0}};
    switch (port.role) {
    case ROLE_UPLINK:
    case ROLE_OUTSIDE:
        word.group = GROUP_UP;
        word.admits = port.carries != 0 ? ALL_CLASSES : uint8_t{0};
        word.flags = static_cast<uint8_t>(PORT_OPEN | (port.wish.need_ha ? PORT_NEED_HA : 0));
        break;
    case ROLE_DOWNLINK:
        word.group = GROUP_FIRST_CHILD + port.node;
        word.admits = ALL_CLASSES;
        word.flags = static_cast<uint8_t>(PORT_OPEN | (self.follow ? PORT_FOLLOW : 0));
        break;
    case ROLE_ACCESS:
        word.admits = ALL_CLASSES;
        word.flags = PORT_OPEN;
        break;
    case ROLE_CLOSED:
        return word;
    }
    if (port.role == ROLE_OUTSIDE && port.carries == 0) // what is behind it may be behind the others too
        return {.class_ = word.class_};
    word.accepts = port.carries;
    return word;
}

// Unicast for unknown addresses has no class. It takes the way of class 0, as one of the links must be the only one.
port_flooding flooding_of(const port_word &word) {
    const bool any = word.accepts != 0;
    return {
        .flood = (word.accepts & 1) != 0, .mcast_flood = any, .bcast_flood = any, .learning = any, .mcast_router = any};
}

port_flooding both(const port_flooding &a, const port_flooding &b) {
    return {.flood = a.flood && b.flood,
            .mcast_flood = a.mcast_flood && b.mcast_flood,
            .bcast_flood = a.bcast_flood && b.bcast_flood,
            .learning = a.learning && b.learning,
            .mcast_router = a.mcast_router && b.mcast_router};
}

// What both settings allow: the way from one to the other leads through it.
port_setting between(const port_setting &from, const port_setting &to) {
    port_setting least = to;
    if (from.word.group != to.word.group || (from.word.flags & to.word.flags & PORT_OPEN) == 0) {
        least.word = {.class_ = to.word.class_};
        least.flooding = {};
        return least;
    }
    least.word.admits = from.word.admits & to.word.admits;
    least.word.accepts = from.word.accepts & to.word.accepts;
    least.flooding = both(from.flooding, to.flooding);
    return least;
}

port_setting closed(uint32_t ifindex) {
    port_setting setting;
    setting.ifindex = ifindex;
    return setting;
}

const port_setting *find(const port_settings &settings, uint32_t ifindex) {
    for (const port_setting &one : settings) {
        if (one.ifindex == ifindex)
            return &one;
    }
    return nullptr;
}

} // namespace

void port_words(const tree &self, port_settings *settings) {
    for (size_t slot = 0; slot < TREE_PORTS; slot++) {
        port_setting &setting = (*settings)[slot];
        setting = closed(self.ports[slot].ifindex);
        if (setting.ifindex == 0)
            continue;
        setting.word = word_of(self, slot);
        setting.flooding = flooding_of(setting.word);
    }
}

void port_plan_make(const port_settings &from, const port_settings &to, port_plan *plan) {
    plan->closing_count = plan->opening_count = 0;
    for (const port_setting &old : from) {
        if (old.ifindex != 0 && find(to, old.ifindex) == nullptr && old != closed(old.ifindex))
            plan->closing[plan->closing_count++] = closed(old.ifindex);
    }
    for (const port_setting &wanted : to) {
        if (wanted.ifindex == 0)
            continue;
        const port_setting *known = find(from, wanted.ifindex);
        port_setting old = known != nullptr ? *known : closed(wanted.ifindex);
        if (known == nullptr)
            old.word.class_ = wanted.word.class_; // of what is not known yet: no reason to close what is open
        const port_setting least = between(old, wanted);
        if (least != old)
            plan->closing[plan->closing_count++] = least;
        if (wanted != least)
            plan->opening[plan->opening_count++] = wanted;
    }
}

bool carries_class(const port_setting &setting, unsigned bcast_class) {
    return (setting.word.flags & PORT_OPEN) != 0 && (setting.word.accepts >> bcast_class & 1) != 0;
}

uint32_t backup_port(const tree &self, const port_settings &from, const port_settings &to, uint32_t ifindex) {
    const port_setting *lost = find(from, ifindex);
    if (ifindex == 0 || lost == nullptr || lost->word.group == GROUP_NONE)
        return 0;
    bundle links{};
    int slot = NO_SLOT;
    for (size_t i = 0; i < TREE_PORTS; i++) {
        const port_word &word = to[i].word;
        if (to[i].ifindex != 0 && (word.flags & PORT_OPEN) != 0 && word.group == lost->word.group)
            links[i] = &self.ports[i].wish;
        if (to[i].ifindex == ifindex)
            slot = static_cast<int>(i);
    }
    const int backup = bundle_backup(links, slot);
    return backup == NO_SLOT ? 0 : to[static_cast<size_t>(backup)].ifindex;
}
