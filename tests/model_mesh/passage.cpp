// What becomes of a frame on its way, and links whose queues are full: echoes are late while other frames come in.
#include "model_mesh/mesh.h"

namespace {

// Longer than a link may be without an echo.
constexpr uint64_t QUEUE_MS = 330;

uint64_t scramble(uint64_t value) {
    value = (value ^ value >> 30) * 0xbf58476d1ce4e5b9;
    value = (value ^ value >> 27) * 0x94d049bb133111eb;
    return value ^ value >> 31;
}

size_t at(int index) {
    return static_cast<size_t>(index);
}

// Nothing when there is no room. Once it is calm the queue is as long all the time.
std::optional<uint64_t> queued_ms(full_queue queue, uint8_t kind, bool calm, uint64_t dice) {
    if (queue == full_queue::WITHOUT_ECHOES && kind == FRAME_ECHO)
        return {};
    if (queue != full_queue::LATE)
        return 0;
    if (calm)
        return QUEUE_MS;
    if (dice % 4 == 0)
        return {};
    return QUEUE_MS + (dice >> 2) % QUEUE_MS;
}

} // namespace

// How long a frame takes that is sent now; nothing when it is lost.
std::optional<uint64_t> mesh::passage_ms(int link, int end, uint8_t kind) {
    const uint64_t dice = scramble(schedule_.seed * 0x9e3779b97f4a7c15 + sent_);
    const uint32_t number = sent_++;
    const size_t direction = at(2 * link + end);
    if (!carries(link, end))
        return {};
    uint64_t passage = direction < schedule_.latency_ms.size() ? schedule_.latency_ms[direction] : 1;
    const bool calm = now_ms >= schedule_.calm_after_ms;
    if (calm)
        passage = 1;
    else if (dice % 1000 < schedule_.loss_permille)
        return {};
    else if (schedule_.jitter_ms > 0)
        passage += (dice >> 20) % schedule_.jitter_ms;
    for (const schedule::exception &one : schedule_.exceptions) {
        if (one.frame == number && one.lost)
            return {};
        if (one.frame == number)
            passage += one.delay_ms;
    }
    const std::optional<uint64_t> queued = queued_ms(links[at(link)].queue[at(end)], kind, calm, dice >> 40);
    if (!queued)
        return {};
    return passage + *queued;
}

// Whether frames of hosts come in that the end sends: as long as its port is open, and then those that are queued.
bool mesh::hosts_are_heard(int link, int end) {
    model_link &way = links[at(link)];
    const bool busy = way.queue[0] != full_queue::NONE || way.queue[1] != full_queue::NONE;
    if (!busy || !carries(link, end))
        return false;
    const port_setting *out = setting(link, end);
    if (out != nullptr && (out->word.flags & PORT_OPEN) != 0)
        way.hosts_until_ms[at(end)] = now_ms + QUEUE_MS;
    return now_ms <= way.hosts_until_ms[at(end)];
}

// What kolt-bridged does at each beat: it looks at the counters of the links whose echoes are late.
void mesh::hear(int index, tree *state) {
    for (model_port &port : nodes[at(index)].ports) {
        tree_port &link = state->ports[at(tree_slot(*state, port.ifindex))];
        if (!link.alive || tree_time(*state, now_ms) - link.echoed_ms <= state->timing.interval_ms) {
            port.heard_packets = 0;
            continue;
        }
        port.packets += hosts_are_heard(port.link, 1 - port.end) ? 1 : 0;
        const bool heard = port.heard_packets != 0 && port.packets > port.heard_packets;
        port.heard_packets = port.packets;
        if (heard && broken == mutation::HEARD_ALONE)
            link.echoed_ms = now_ms;
        else if (heard)
            tree_port_heard(state, port.ifindex, now_ms);
    }
}

// The programs keep frames of hosts out of closed ports, and kolt-bridged looks at each beat how many these were.
// Hosts talk all the time, so that they come in wherever the other end lets them out.
void mesh::count_foreign(int index, tree *state) {
    for (model_port &port : nodes[at(index)].ports) {
        const port_setting *out = setting(port.link, 1 - port.end);
        const port_setting *in = setting(port.link, port.end);
        const bool open = in != nullptr && (in->word.flags & PORT_OPEN) != 0;
        const bool come = carries(port.link, 1 - port.end) && out != nullptr && (out->word.flags & PORT_OPEN) != 0;
        port.foreign += come && !open ? 1 : 0;
        port.carried |= come && open;
        if (broken == mutation::OLD_FRAMES && port.carried && !open) {
            tree_port &link = state->ports[at(tree_slot(*state, port.ifindex))];
            link.foreign_since_ms = 1;
            link.foreign_ms = now_ms;
            port.carried = false;
        }
        tree_port_foreign(state, port.ifindex, port.foreign, now_ms);
    }
}
