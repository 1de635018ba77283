// What may happen to a mesh from outside, and the rules that can be broken.
#include "model_mesh/mesh.h"

#include <algorithm>

namespace {

size_t at(int index) {
    return static_cast<size_t>(index);
}

port_wish wish_of(const topology_link &link, int end) {
    return {.type = link.type,
            .class_ = link.class_,
            .group = link.nonrelay[end] ? PORT_NONRELAY : PORT_RELAY,
            .permit = false,
            .need_ha = link.nonrelay[end]};
}

} // namespace

// Gives the ports to a node's new kolt-bridged, which may find what the last one knew.
void mesh::begin_life(int index, bool with_past) {
    model_node &node = nodes[at(index)];
    node.on = node.running = true;
    node.asleep = false;
    node.waiting.clear();
    node.lives++;
    node.crash_countdown = 0;
    node.seen_changes = UINT32_MAX;
    for (model_port &port : node.ports)
        port.heard_packets = 0;
    const uint64_t seed = (uint64_t{node.lives} << 40) + (uint64_t{at(index)} << 32);
    const auto incarnation = static_cast<uint32_t>(node.lives * 100 + at(index));
    if (!with_past || !tree_take_over(&node.state, node.record, seed, now_ms))
        tree_start(&node.state, node.id, incarnation, seed, now_ms);
    for (const model_port &port : node.ports) {
        const model_link &link = links[at(port.link)];
        if (!tree_port_add(&node.state, port.ifindex, wish_of(link.made, port.end), link.carrier, now_ms))
            violation = "too many ports";
    }
    finish(index);
}

void mesh::set_carrier(int index, bool carrier) {
    model_link &link = links[at(index)];
    if (link.carrier == carrier)
        return;
    link.carrier = carrier;
    link.flying = {};
    link.last_arrival_ms = {};
    link.hosts_until_ms = {};
    check();
    for (int end = 0; end < 2; end++) {
        const model_notice one{.at_ms = now_ms + schedule_.notice_ms[at(end)],
                               .node = link.made.node[end],
                               .ifindex = static_cast<uint32_t>(10 + 2 * index + end),
                               .carrier = carrier};
        const auto place =
            std::upper_bound(notices_.begin(), notices_.end(), one,
                             [](const model_notice &a, const model_notice &b) { return a.at_ms < b.at_ms; });
        notices_.insert(place, one);
    }
    run_to(now_ms);
}

void mesh::set_silent(int index, bool first, bool second) {
    links[at(index)].silent = {first, second};
    check();
}

void mesh::set_queues(int index, full_queue first, full_queue second) {
    links[at(index)].queue = {first, second};
}

void mesh::sleep_bridged(int index) {
    model_node &node = nodes[at(index)];
    if (!node.on || !node.running)
        return;
    kill_bridged(index); // what it knows is in its record at any time
    node.asleep = true;
}

// Its timer has run out long ago and comes before what has arrived meanwhile.
void mesh::wake_bridged(int index) {
    model_node &node = nodes[at(index)];
    if (!node.asleep)
        return;
    node.asleep = false;
    node.running = true;
    tick(index);
    const std::vector<model_waiting> waiting = std::move(node.waiting);
    node.waiting.clear();
    for (const model_waiting &one : waiting) {
        if (one.frame)
            receive(index, one.ifindex, *one.frame);
        else
            input(index, [&](tree *state) { tree_port_carrier(state, one.ifindex, one.carrier, now_ms); });
    }
}

void mesh::kill_bridged(int index) {
    model_node &node = nodes[at(index)];
    node.asleep = false;
    if (!node.on || !node.running)
        return;
    if (broken != mutation::OLD_RECORD)
        tree_save(node.state, &node.record);
    node.running = false;
}

void mesh::start_bridged(int index) {
    if (!nodes[at(index)].on)
        return;
    kill_bridged(index);
    begin_life(index, true);
}

void mesh::arm_crash(int index, uint32_t countdown, crash_point point) {
    nodes[at(index)].crash_countdown = countdown;
    nodes[at(index)].crash = point;
}

void mesh::power(int index, bool on) {
    model_node &node = nodes[at(index)];
    if (node.on == on)
        return;
    node.on = on;
    node.asleep = false;
    node.set = {};
    changed_ms = now_ms;
    if (on)
        begin_life(index, false);
    check();
}

void mesh::flip_rank(int index) {
    model_node &node = nodes[at(index)];
    if (node.asleep)
        return;
    const node_rank rank = rank_of(node.id) == NODE_RANK_ROOT ? NODE_RANK_EXTENDER : NODE_RANK_ROOT;
    node.id = node_mac(node.id) | node_id{rank} << NODE_RANK_SHIFT;
    input(index, [&](tree *state) { tree_set_rank(state, rank, now_ms); });
}

void mesh::permit(int index, int chosen) {
    for (size_t i = 0; i < nodes[at(index)].ports.size(); i++) {
        input(index, [&](tree *state) {
            const uint32_t ifindex = nodes[at(index)].ports[i].ifindex;
            const int slot = tree_slot(*state, ifindex);
            port_wish wish = state->ports[at(slot)].wish;
            wish.permit = static_cast<int>(i) == chosen;
            tree_port_wish(state, ifindex, wish, now_ms);
        });
    }
}

void mesh::regroup(int index, int chosen) {
    if (at(chosen) >= nodes[at(index)].ports.size())
        return;
    input(index, [&](tree *state) {
        const uint32_t ifindex = nodes[at(index)].ports[at(chosen)].ifindex;
        port_wish wish = state->ports[at(tree_slot(*state, ifindex))].wish;
        wish.group = wish.group == PORT_RELAY ? PORT_NONRELAY : PORT_RELAY;
        tree_port_wish(state, ifindex, wish, now_ms);
    });
}

// Hands a frame to a node that is awake, which breaks the rule that is to be broken.
void mesh::receive(int index, uint32_t ifindex, const neighbour_frame &frame) {
    if (nodes[at(index)].asleep)
        nodes[at(index)].waiting.push_back({.ifindex = ifindex, .frame = frame});
    input(index, [&](tree *state) {
        neighbour_frame read = frame;
        const pending_join waiting = state->pending;
        const bool own_grant = read.join_count == 1 && read.joins[0].kind == JOIN_GRANT &&
                               same_node(read.joins[0].origin, state->id) && state->parent == 0 && waiting.token != 0;
        const bool request = read.join_count > 0 && read.joins[0].kind == JOIN_REQUEST;
        if (broken == mutation::GRANT_WHILE_WAITING && request && state->parent == 0 &&
            !same_node(read.joins[0].origin, state->id)) {
            state->pending.token = 0;
            state->rest_until_ms = UINT64_MAX; // asks nobody meanwhile
            tree_receive(state, ifindex, read, now_ms);
            state->rest_until_ms = 0;
            state->pending = waiting;
            return;
        }
        if (broken == mutation::OLD_GRANTS && own_grant)
            read.joins[0].token = waiting.token;
        if (broken == mutation::JOIN_WITHOUT_GRANT && waiting.token != 0 && node_mac(read.node) == waiting.to &&
            read.kind == FRAME_HELLO) {
            read.join_count = 1;
            read.joins[0] = {.kind = JOIN_GRANT, .origin = state->id, .token = waiting.token};
        }
        tree_receive(state, ifindex, read, now_ms);
    });
}
