#include "model_mesh/mesh.h"

#include "model_mesh/check.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint64_t FIRST_MAC = 0x020000000010;

size_t at(int index) {
    return static_cast<size_t>(index);
}

} // namespace

mesh::mesh(const topology &made, bool reversed, mutation broken_rule) : broken(broken_rule) {
    for (const topology_link &link : made.links)
        links.push_back({.made = link, .flying = {}});
    for (size_t i = 0; i < made.nodes.size(); i++) {
        model_node node;
        const uint64_t place = reversed ? made.nodes.size() - i : i;
        const node_rank rank = made.nodes[i].root ? NODE_RANK_ROOT : NODE_RANK_EXTENDER;
        node.id = (FIRST_MAC + place) | node_id{rank} << NODE_RANK_SHIFT;
        for (size_t l = 0; l < links.size(); l++) {
            for (int end = 0; end < 2; end++) {
                if (at(links[l].made.node[end]) == i) {
                    const auto ifindex = static_cast<uint32_t>(10 + 2 * l + at(end));
                    node.ports.push_back({.ifindex = ifindex, .link = static_cast<int>(l), .end = end});
                }
            }
        }
        nodes.push_back(node);
    }
    for (size_t i = 0; i < nodes.size(); i++) {
        run_to(now_ms + 13);
        begin_life(static_cast<int>(i), false);
    }
}

void mesh::set_schedule(const schedule &one) {
    schedule_ = one;
    sent_ = 0;
}

bool mesh::carries(int link, int end) const {
    const model_link &one = links[at(link)];
    return one.carrier && !one.silent[at(end)] && nodes[at(one.made.node[0])].on && nodes[at(one.made.node[1])].on;
}

const port_setting *mesh::setting(int link, int end) const {
    const auto ifindex = static_cast<uint32_t>(10 + 2 * link + end);
    for (const port_setting &one : nodes[at(links[at(link)].made.node[end])].set) {
        if (one.ifindex == ifindex)
            return &one;
    }
    return nullptr;
}

void mesh::check() {
    checks++;
    if (violation.empty())
        violation = what_goes_wrong(*this);
}

void mesh::apply(model_node *node, const port_setting &one) {
    changed_ms = now_ms;
    port_setting *place = nullptr;
    for (port_setting &known : node->set) {
        if (known.ifindex == one.ifindex || (known.ifindex == 0 && place == nullptr))
            place = &known;
        if (known.ifindex == one.ifindex)
            break;
    }
    *place = one;
    check();
}

bool mesh::send_due(int node, uint32_t most) {
    tree_send due;
    model_node &sender = nodes[at(node)];
    for (uint32_t i = 0; i < most; i++) {
        if (!tree_take_frame(&sender.state, &due))
            return true;
        const uint8_t mac[6] = {2, 0, 0, 0, 0, static_cast<uint8_t>(node)};
        std::array<uint8_t, MODEL_FRAME_SIZE> bytes{};
        const size_t size = frame_encode(due.frame, mac, bytes);
        const auto port = std::find_if(sender.ports.begin(), sender.ports.end(),
                                       [&due](const model_port &one) { return one.ifindex == due.ifindex; });
        send(port->link, port->end, bytes.data(), size);
    }
    return false;
}

void mesh::finish(int index) {
    model_node &node = nodes[at(index)];
    port_plan plan;
    plan.closing_count = plan.opening_count = 0;
    crash_point crash = crash_point::NOWHERE;
    if (node.state.changes != node.seen_changes) {
        node.seen_changes = node.state.changes;
        port_settings wanted;
        port_words(node.state, &wanted);
        port_plan_make(node.set, wanted, &plan);
        const bool changes_words = plan.closing_count + plan.opening_count > 0;
        if (node.crash_countdown > 0 && changes_words && --node.crash_countdown == 0)
            crash = node.crash;
        if (broken == mutation::OPEN_BEFORE_CLOSING) {
            for (size_t i = 0; i < plan.opening_count; i++)
                apply(&node, plan.opening[i]);
        }
    }
    for (size_t i = 0; i < plan.closing_count; i++)
        apply(&node, plan.closing[i]);
    if (crash == crash_point::CLOSED) { // the record is the one from before this input
        node.running = false;
        return;
    }
    if (crash != crash_point::NOWHERE)
        tree_save(node.state, &node.record);
    if (crash != crash_point::NOWHERE) {
        (void)send_due(index, crash == crash_point::SENT_ALL ? UINT32_MAX : crash == crash_point::SENT_ONE ? 1 : 0);
        node.running = false;
        return;
    }
    (void)send_due(index, UINT32_MAX);
    for (size_t i = 0; i < plan.opening_count; i++)
        apply(&node, plan.opening[i]);
}

void mesh::input(int index, const std::function<void(tree *)> &act) {
    model_node &node = nodes[at(index)];
    if (!node.on || !node.running)
        return;
    if (node.crash_countdown > 0)
        tree_save(node.state, &node.record);
    act(&node.state);
    finish(index);
}

void mesh::send(int link, int end, const uint8_t *bytes, size_t size) {
    const std::optional<uint64_t> passage = passage_ms(link, end, bytes[FRAME_KIND_OFFSET]);
    if (!passage)
        return;
    model_link &way = links[at(link)];
    model_frame frame{.arrives_ms = std::max(way.last_arrival_ms[at(end)], now_ms + *passage),
                      .size = static_cast<uint16_t>(size),
                      .bytes = {}};
    memcpy(frame.bytes.data(), bytes, size);
    way.last_arrival_ms[at(end)] = frame.arrives_ms;
    way.flying[at(end)].push_back(frame);
}

void mesh::arrive(int link, int end) {
    model_link &way = links[at(link)];
    model_frame frame = way.flying[at(end)].front();
    way.flying[at(end)].erase(way.flying[at(end)].begin());
    const int index = way.made.node[1 - end];
    if (!carries(link, end))
        return;
    for (model_port &port : nodes[at(index)].ports)
        port.packets += port.link == link && port.end == 1 - end ? 1 : 0;
    neighbour_frame read;
    if (!frame_decode({frame.bytes.data(), frame.size}, &read)) {
        violation = "a frame cannot be read";
        return;
    }
    receive(index, static_cast<uint32_t>(10 + 2 * link + 1 - end), read);
    if (read.kind != FRAME_PROBE)
        return;
    frame.bytes[FRAME_KIND_OFFSET] = FRAME_ECHO; // what the kernel does by itself
    for (size_t i = 0; i < 8; i++)
        frame.bytes[FRAME_ECHOED_BY_OFFSET + i] = static_cast<uint8_t>(nodes[at(index)].id >> 8 * (7 - i));
    send(link, 1 - end, frame.bytes.data(), frame.size);
}

void mesh::tick(int index) {
    input(index, [this, index](tree *state) {
        hear(index, state);
        count_foreign(index, state);
        tree_tick(state, now_ms);
    });
}

void mesh::notice(const model_notice &one) {
    if (nodes[at(one.node)].asleep)
        nodes[at(one.node)].waiting.push_back({.ifindex = one.ifindex, .frame = {}, .carrier = one.carrier});
    input(one.node, [&](tree *state) { tree_port_carrier(state, one.ifindex, one.carrier, now_ms); });
}

// The next thing that happens, if it happens by then: frames first, then carriers, then time.
bool mesh::step(uint64_t limit_ms) {
    uint64_t next = limit_ms + 1;
    std::function<void()> act;
    for (size_t i = 0; i < nodes.size(); i++) {
        const uint64_t due = tree_next_ms(nodes[i].state);
        if (nodes[i].on && nodes[i].running && nodes[i].lives > 0 && due < next) {
            next = due;
            act = [this, i] { tick(static_cast<int>(i)); };
        }
    }
    if (!notices_.empty() && notices_.front().at_ms <= next) {
        next = notices_.front().at_ms;
        act = [this] {
            const model_notice first = notices_.front();
            notices_.erase(notices_.begin());
            notice(first);
        };
    }
    for (size_t l = 0; l < links.size(); l++) {
        for (int end = 0; end < 2; end++) {
            const auto &flying = links[l].flying[at(end)];
            if (!flying.empty() && flying.front().arrives_ms < next + (act ? 1 : 0)) {
                next = flying.front().arrives_ms;
                act = [this, l, end] { arrive(static_cast<int>(l), end); };
            }
        }
    }
    if (!act || next > limit_ms)
        return false;
    now_ms = std::max(now_ms, next);
    act();
    return true;
}

void mesh::run_to(uint64_t ms) {
    while (violation.empty() && step(ms)) {
    }
    now_ms = std::max(now_ms, ms);
}
