// One way from the tree to the kernel.
#include "bridged/settle.h"

#include "bridged/clients.h"
#include "bridged/neighbours.h"
#include "bridged/report.h"
#include "bridged/saved_state.h"
#include "core/log.h"

#include <cerrno>
#include <cstring>

namespace {

constexpr unsigned ANNOUNCE_AFTER = 2; // intervals: a new parent's port lets nothing in before its hello is read there

bool is_open(const port_setting &setting) {
    return (setting.word.flags & PORT_OPEN) != 0;
}

// The programs know one flag more, and the numbers of both are the same otherwise.
static_assert(uint8_t{PORT_OPEN} == uint8_t{KOLT_PORT_OPEN} && uint8_t{PORT_NEED_HA} == uint8_t{KOLT_PORT_NEED_HA} &&
              uint8_t{PORT_FOLLOW} == uint8_t{KOLT_PORT_FOLLOW});

constexpr unsigned GROUP_BITS = 8;
static_assert(GROUP_FIRST_CHILD + TREE_NODES <= 1 << GROUP_BITS && CONFIG_MAX_BRIDGES <= 1 << (16 - GROUP_BITS));

// The trees number their groups alike, the programs know one bridge's from another's.
uint16_t program_group(const bridge_node *node, uint32_t group) {
    const auto bridge = static_cast<uint32_t>(node - node->owner->bridges.data());
    return static_cast<uint16_t>(group == GROUP_NONE ? GROUP_NONE : bridge << GROUP_BITS | group);
}

kolt_port program_word(const bridge_node *node, const port_word &word) {
    return {.group = program_group(node, word.group),
            .flags = static_cast<uint8_t>(word.flags | KOLT_PORT_GUARDED),
            .admits = word.admits,
            .accepts = word.accepts,
            .class_ = word.class_};
}

// Who is behind a link asked for groups where they came from before, and is asked again every two minutes: until then
// the link gets them all.
bridge_mcast_router router_of(const port_setting &setting) {
    if (!setting.flooding.mcast_router)
        return MCAST_ROUTER_NEVER;
    return setting.word.group == GROUP_NONE ? MCAST_ROUTER_LEARNT : MCAST_ROUTER_TEMPORARY;
}

bridge_port_flags bridge_flags(const port_setting &setting) {
    return {.learning = setting.flooding.learning,
            .flood = setting.flooding.flood,
            .mcast_flood = setting.flooding.mcast_flood,
            .bcast_flood = setting.flooding.bcast_flood,
            .mcast_router = router_of(setting)};
}

// The kernel itself ends what is temporary.
bridge_port_flags after_a_while(bridge_port_flags flags) {
    if (flags.mcast_router == MCAST_ROUTER_TEMPORARY)
        flags.mcast_router = MCAST_ROUTER_LEARNT;
    return flags;
}

// What left by a port that is closed now leaves by the next best one.
void move_off(bridge_node *node, const port_settings &from, const port_settings &to, uint32_t ifindex) {
    const uint32_t backup = backup_port(node->links, from, to, ifindex);
    if (backup != 0)
        (void)node->owner->streams.repoint_all(ifindex, backup);
    clients_move_off(node, ifindex, backup);
}

// Entries that the bridge has learnt on a link that no longer teaches it would send frames into the void.
void forget_learnt(bridge_node *node, const port_setting &before, const port_setting &after) {
    if (before.flooding.learning && !after.flooding.learning)
        (void)bridge_port_flush(node->owner->rtnl, after.ifindex);
}

const port_setting *find_setting(const port_settings &settings, uint32_t ifindex) {
    for (const port_setting &setting : settings) {
        if (setting.ifindex == ifindex)
            return &setting;
    }
    return nullptr;
}

void close_ports(bridge_node *node, const port_plan &plan, const port_settings &to) {
    for (size_t i = 0; i < plan.closing_count; i++) {
        const port_setting &step = plan.closing[i];
        const port_setting *before = find_setting(node->set, step.ifindex);
        settle_port(node, step);
        if (before != nullptr && is_open(*before) && !is_open(step))
            move_off(node, node->set, to, step.ifindex);
        if (before != nullptr)
            forget_learnt(node, *before, step);
    }
}

void open_ports(bridge_node *node, const port_plan &plan) {
    for (size_t i = 0; i < plan.opening_count; i++)
        settle_port(node, plan.opening[i]);
}

// The way up is another one: what was placed on the old one is for kolt to place again.
void new_parent(bridge_node *node) {
    node->seen_parent = node->links.parent;
    clients_flush(node);
    node->announce_ms =
        node->links.parent == 0 ? 0 : node_now() + ANNOUNCE_AFTER * uint64_t{node->links.timing.interval_ms};
}

void announce_when_due(bridge_node *node) {
    if (node->announce_ms == 0 || node_now() < node->announce_ms)
        return;
    node->announce_ms = 0;
    clients_announce(node);
}

// What a port is set to after the step. When the bridge has not taken it that is nothing that can be wished, so that it
// is set again.
port_setting outcome_of(bridge_node *node, port_setting step) {
    const node_port *port = node_find_port_index(node, step.ifindex);
    if (port == nullptr || !port->unset)
        return step;
    port_flooding &now = step.flooding;
    now = {.flood = !now.flood,
           .mcast_flood = !now.mcast_flood,
           .bcast_flood = !now.bcast_flood,
           .learning = !now.learning,
           .mcast_router = !now.mcast_router};
    return step;
}

void stay_closed(bridge_node *node, const port_plan &plan) {
    for (port_setting &setting : node->set) {
        for (size_t i = 0; i < plan.closing_count; i++) {
            if (plan.closing[i].ifindex == setting.ifindex)
                setting = outcome_of(node, plan.closing[i]);
        }
    }
}

// False when a part has to wait: what the file does not say is told to nobody, and opens nothing.
bool bring_to(bridge_node *node, const port_settings &to, bool moved) {
    port_plan plan;
    port_plan_make(node->set, to, &plan);
    close_ports(node, plan, to);
    if (!saved_state_write(node)) {
        stay_closed(node, plan);
        return false;
    }
    node->seen_changes = node->links.changes;
    neighbours_send(node);
    open_ports(node, plan);
    for (size_t i = 0; i < to.size(); i++)
        node->set[i] = outcome_of(node, to[i]);
    if (node->seen_parent != node->links.parent)
        new_parent(node);
    else if (moved)
        clients_place(node);
    report_links(node->owner);
    return true;
}

// The beat comes when the first of the trees wants it.
void wake_for(bridge_node *node) {
    bridged *owner = node->owner;
    const uint64_t next = tree_next_ms(node->links);
    if (owner->watches.beat.pending && owner->beat_at <= next)
        return;
    const uint64_t now = node_now();
    owner->beat_at = next;
    (void)uloop_timeout_set(&owner->watches.beat, next > now ? static_cast<int>(next - now) : 0);
}

} // namespace

void settle_port(bridge_node *node, const port_setting &setting) {
    node_port *port = node_find_port_index(node, setting.ifindex);
    if (port == nullptr || !port->backhaul)
        return; // it has gone, and its word with it, or is no link any more
    (void)node->owner->programs.set_port(setting.ifindex, program_word(node, setting.word));
    const int error = bridge_port_set(node->owner->rtnl, setting.ifindex, bridge_flags(setting));
    const bool failed = error != 0 && error != ENODEV && error != EOPNOTSUPP;
    if (failed && !port->unset)
        KOLT_ERROR("%s: cannot set what the bridge sends there: %s", port->name,
                   node->owner->rtnl.last_error().text.data());
    port->unset = failed;
}

bool settle_holds(const bridge_node &node, const bridge_port &described) {
    const port_setting *last = find_setting(node.set, described.index);
    return last == nullptr || after_a_while(described.flags) == after_a_while(bridge_flags(*last));
}

void settle_port_again(bridge_node *node, uint32_t ifindex) {
    if (const port_setting *last = find_setting(node->set, ifindex); last != nullptr)
        settle_port(node, *last);
}

void settle_move_off(bridge_node *node, const port_settings &from, uint32_t ifindex) {
    move_off(node, from, node->set, ifindex);
}

void settle(bridge_node *node) {
    if (node->ifindex == 0)
        return;
    port_settings to{};
    port_words(node->links, &to);
    const bool moved = to != node->set;
    const bool changed = moved || node->links.changes != node->seen_changes;
    if (!changed || bring_to(node, to, moved))
        neighbours_send(node);
    announce_when_due(node);
    wake_for(node);
}
