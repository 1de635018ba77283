#include "model_mesh/check.h"

#include <algorithm>

namespace {

size_t at(int index) {
    return static_cast<size_t>(index);
}

// One direction of a link by which frames can pass at present.
struct way {
    int link;
    int end; // that sends
    int from;
    int to;
    const port_setting *out;
    const port_setting *in;
};

std::vector<way> open_ways(const mesh &all) {
    std::vector<way> ways;
    for (int link = 0; link < static_cast<int>(all.links.size()); link++) {
        for (int end = 0; end < 2; end++) {
            const port_setting *out = all.setting(link, end);
            const port_setting *in = all.setting(link, 1 - end);
            const auto &made = all.links[at(link)].made;
            if (all.carries(link, end) && out != nullptr && in != nullptr && (out->word.flags & PORT_OPEN) != 0 &&
                (in->word.flags & PORT_OPEN) != 0)
                ways.push_back({link, end, made.node[end], made.node[1 - end], out, in});
        }
    }
    return ways;
}

// Whether what came in by `came` may leave by `leaves` at all.
bool follows(const mesh &all, const way &came, const way &leaves) {
    if (came.to != leaves.from || came.link == leaves.link)
        return false;
    const bool horizon = all.broken != mutation::NO_SPLIT_HORIZON;
    return !horizon || came.in->word.group == GROUP_NONE || came.in->word.group != leaves.out->word.group;
}

bool leads_back(const mesh &all, const std::vector<way> &ways, size_t at_way, std::vector<uint8_t> *state) {
    (*state)[at_way] = 1; // on the path
    for (size_t next = 0; next < ways.size(); next++) {
        if (!follows(all, ways[at_way], ways[next]) || (*state)[next] == 2)
            continue;
        if ((*state)[next] == 1 || leads_back(all, ways, next, state))
            return true;
    }
    (*state)[at_way] = 2;
    return false;
}

bool floods(const mesh &all, const way &one, flooded kind, unsigned bcast_class) {
    if (all.broken == mutation::TAKE_EVERYWHERE)
        return true;
    if (kind == flooded::UNKNOWN_UNICAST)
        return one.out->flooding.flood;
    return one.out->flooding.bcast_flood && one.out->flooding.mcast_flood &&
           (one.out->word.accepts >> bcast_class & 1) != 0 && (one.in->word.admits >> one.in->word.class_ & 1) != 0;
}

std::vector<int> copies_by(const mesh &all, const std::vector<way> &ways, int from, flooded kind) {
    std::vector<int> got(all.nodes.size());
    std::vector<const way *> todo;
    const auto pass_on = [&](const way *came, unsigned bcast_class, int node) {
        for (const way &leaves : ways) {
            if (leaves.from == node && (came == nullptr || follows(all, *came, leaves)) &&
                floods(all, leaves, kind, bcast_class))
                todo.push_back(&leaves);
        }
    };
    got[at(from)] = 1;
    pass_on(nullptr, kind == flooded::BROADCAST_CLASS_1 ? 1 : 0, from);
    while (!todo.empty()) {
        const way *one = todo.back();
        todo.pop_back();
        if (++got[at(one->to)] > 1)
            return got;
        pass_on(one, one->in->word.class_, one->to);
    }
    return got;
}

// Below a node that is dead, or dead itself.
bool is_stuck(const mesh &all, int node) {
    const model_node &one = all.nodes[at(node)];
    return !one.running || (one.state.flags & NODE_BELOW_FROZEN) != 0;
}

bool carries_both_ways(const mesh &all, int link) {
    return all.carries(link, 0) && all.carries(link, 1);
}

bool is_way(const mesh &all, int link) {
    const auto &queue = all.links[at(link)].queue;
    return carries_both_ways(all, link) && queue[0] != full_queue::WITHOUT_ECHOES &&
           queue[1] != full_queue::WITHOUT_ECHOES;
}

std::vector<bool> connected(const mesh &all, int from, bool without_stuck) {
    std::vector<bool> reached(all.nodes.size());
    std::vector<int> todo = {from};
    reached[at(from)] = true;
    while (!todo.empty()) {
        const int node = todo.back();
        todo.pop_back();
        for (int link = 0; link < static_cast<int>(all.links.size()); link++) {
            for (int end = 0; end < 2; end++) {
                const auto &made = all.links[at(link)].made;
                const int other = made.node[1 - end];
                if (made.node[end] != node || reached[at(other)] || !is_way(all, link) ||
                    (without_stuck && is_stuck(all, other)))
                    continue;
                reached[at(other)] = true;
                todo.push_back(other);
            }
        }
    }
    return reached;
}

std::string name_of(flooded kind) {
    return kind == flooded::BROADCAST_CLASS_0   ? "a broadcast"
           : kind == flooded::BROADCAST_CLASS_1 ? "a broadcast of class 1"
                                                : "unknown unicast";
}

} // namespace

std::vector<int> copies(const mesh &all, int from, flooded kind) {
    return copies_by(all, open_ways(all), from, kind);
}

std::string what_goes_wrong(const mesh &all) {
    const std::vector<way> ways = open_ways(all);
    std::vector<uint8_t> state(ways.size());
    for (size_t i = 0; i < ways.size(); i++) {
        if (state[i] == 0 && leads_back(all, ways, i, &state))
            return "frames can circle through link " + std::to_string(ways[i].link);
    }
    for (int from = 0; from < static_cast<int>(all.nodes.size()); from++) {
        for (const flooded kind : ALL_FLOODED) {
            const std::vector<int> got = copies_by(all, ways, from, kind);
            const auto twice = std::find_if(got.begin(), got.end(), [](int n) { return n > 1; });
            if (twice != got.end())
                return name_of(kind) + " of node " + std::to_string(from) + " comes twice to node " +
                       std::to_string(twice - got.begin());
        }
    }
    return {};
}

std::string who_is_lost(const mesh &all, bool frozen_may_be_lost) {
    const std::vector<way> ways = open_ways(all);
    for (int from = 0; from < static_cast<int>(all.nodes.size()); from++) {
        if (!all.nodes[at(from)].on || (frozen_may_be_lost && is_stuck(all, from)))
            continue;
        const std::vector<bool> reachable = connected(all, from, frozen_may_be_lost);
        for (const flooded kind : ALL_FLOODED) {
            const std::vector<int> got = copies_by(all, ways, from, kind);
            for (size_t to = 0; to < got.size(); to++) {
                if (reachable[to] && got[to] != 1)
                    return name_of(kind) + " of node " + std::to_string(from) + " comes " + std::to_string(got[to]) +
                           " times to node " + std::to_string(to);
            }
        }
    }
    return {};
}

std::string who_is_deceived(const mesh &all) {
    for (const model_node &node : all.nodes) {
        for (const model_port &port : node.ports) {
            const int slot = tree_slot(node.state, port.ifindex);
            if (node.on && node.running && slot != NO_SLOT && node.state.ports[at(slot)].alive &&
                !carries_both_ways(all, port.link))
                return "node " + std::to_string(&node - all.nodes.data()) + " takes link " + std::to_string(port.link) +
                       " for alive";
        }
    }
    return {};
}
