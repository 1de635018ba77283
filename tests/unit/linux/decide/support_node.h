// One node under test, with neighbours that say what a test has them say.
#pragma once

#include "decide/port_words.h"
#include "decide/tree.h"

#include <array>
#include <cstdlib>
#include <vector>

// Neighbours: one that every node would rather have as its root, and two that come after it.
constexpr node_id BEST = 0x020000000001;
constexpr node_id OTHER = 0x0001020000000005;
constexpr node_id WORSE = 0x0001020000000090;

// A neighbour as it looks on the node's port `ifindex`: by default the best of all roots, 02:00:00:00:00:01.
struct puppet {
    uint32_t ifindex = 0;
    node_id id = 0x020000000001;
    uint32_t port = 50;
    uint32_t incarnation = 1;
    uint32_t version = 1;
    node_id root = 0x020000000001;
    node_id parent = 0;
    uint8_t hops = 0;
    uint8_t flags = 0;
    uint8_t link_flags = LINK_ALIVE;
    std::array<uint32_t, BCAST_CLASSES> taking{};
    bool talks = true;  // says hello
    bool echoes = true; // its kernel answers probes
};

constexpr node_id OWN_ID = 0x0001020000000020;
constexpr port_wish RELAY = {.type = 3, .class_ = 0, .group = PORT_RELAY};
constexpr port_wish NONRELAY = {.type = 3, .class_ = 0, .group = PORT_NONRELAY};

// A neighbour below the node, which it reaches by that port.
inline puppet child_on(uint32_t ifindex) {
    return {.ifindex = ifindex,
            .id = WORSE,
            .version = 5,
            .root = OWN_ID,
            .parent = node_mac(OWN_ID),
            .hops = 1,
            .link_flags = LINK_ALIVE | LINK_UPWARD};
}

class one_node {
public:
    explicit one_node(node_id id = OWN_ID) {
        tree_start(&state, id, 77, 1000, now);
    }
    void port(uint32_t ifindex, const port_wish &wish, bool carrier = true) {
        if (!tree_port_add(&state, ifindex, wish, carrier, now))
            abort();
    }
    // Time passes, in steps of 50 ms, with hellos and echoes of the puppets.
    void pass(uint64_t ms) {
        for (const uint64_t end = now + ms; now < end;) {
            now += 50;
            for (const puppet &one : puppets)
                hello(one);
            tree_tick(&state, now);
            drain();
        }
    }
    void hello(const puppet &one, const std::vector<join_record> &joins = {}) {
        neighbour_frame frame;
        frame.node = one.id;
        frame.port = one.port;
        frame.incarnation = one.incarnation;
        frame.version = one.version;
        frame.root = one.root;
        frame.parent = one.parent;
        frame.hops = one.hops;
        frame.node_flags = one.flags;
        frame.link_flags = one.link_flags;
        frame.taking = one.taking;
        for (const join_record &join : joins)
            frame.joins[frame.join_count++] = join;
        if (one.talks)
            tree_receive(&state, one.ifindex, frame, now);
    }
    // Takes what the node sends, and answers its probes.
    void drain() {
        tree_send due;
        while (tree_take_frame(&state, &due)) {
            sent.push_back(due);
            for (const puppet &one : puppets) {
                if (due.frame.kind != FRAME_PROBE || one.ifindex != due.ifindex || !one.echoes)
                    continue;
                due.frame.kind = FRAME_ECHO;
                due.frame.echoed_by = one.id;
                tree_receive(&state, one.ifindex, due.frame, now);
                due.frame.kind = FRAME_PROBE;
            }
        }
    }
    // Forgets what was sent, has the puppet say something, and returns the joins that the node sends at once on a port.
    std::vector<join_record> answers(const puppet &one, const std::vector<join_record> &joins, uint32_t ifindex) {
        drain();
        sent.clear();
        hello(one, joins);
        drain();
        return joins_sent(ifindex);
    }
    std::vector<join_record> joins_sent(uint32_t ifindex) const {
        std::vector<join_record> found;
        for (const tree_send &one : sent) {
            for (size_t i = 0; one.ifindex == ifindex && i < one.frame.join_count; i++)
                found.push_back(one.frame.joins[i]);
        }
        return found;
    }
    // The last hello on a port.
    neighbour_frame said(uint32_t ifindex) const {
        for (size_t i = sent.size(); i > 0; i--) {
            if (sent[i - 1].ifindex == ifindex && sent[i - 1].frame.kind == FRAME_HELLO)
                return sent[i - 1].frame;
        }
        return {};
    }
    // Makes the node a child of the puppet, which grants what it is asked.
    void join(const puppet &one) {
        puppets.push_back(one);
        pass(100);
        for (const join_record &asked : joins_sent(one.ifindex))
            hello(one, {{.kind = JOIN_GRANT, .origin = asked.origin, .token = asked.token}});
        pass(50);
    }
    port_role role(uint32_t ifindex) const {
        const int slot = tree_slot(state, ifindex);
        return slot == NO_SLOT ? ROLE_CLOSED : state.ports[static_cast<size_t>(slot)].role;
    }
    port_setting setting(uint32_t ifindex) const {
        port_settings all;
        port_words(state, &all);
        return all.at(static_cast<size_t>(tree_slot(state, ifindex)));
    }

    tree state;
    uint64_t now = 1000000;
    std::vector<puppet> puppets;
    std::vector<tree_send> sent;
};
