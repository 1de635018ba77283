// Sockets below the bridge, one a port.
#include "bridged/neighbours.h"

#include "bridged/settle.h"
#include "bridged/steering.h"
#include "core/container_of.h"
#include "core/file.h"
#include "core/log.h"
#include "lib/records.h"
#include "lib/requests.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <endian.h>
#include <netinet/in.h>

namespace {

constexpr int FRAMES_A_TURN = 64;               // of one port, so that a flood on one leaves the others their turn
constexpr size_t NOTICES_A_TURN = TREE_NOTICES; // all that a child keeps for its parent; each looks through the streams

// The open link of this type among those of a group.
uint32_t link_of_type(const bridge_node *node, uint32_t group, uint8_t type) {
    for (size_t i = 0; i < TREE_PORTS; i++) {
        const port_setting &link = node->set[i];
        if (link.ifindex != 0 && link.word.group == group && (link.word.flags & PORT_OPEN) != 0 &&
            node->links.ports[i].wish.type == type)
            return link.ifindex;
    }
    return 0;
}

// A child has moved a stream: what goes back to it takes the new link at once, and kolt flushes what hardware
// remembers. A stream that leaves towards somebody else is none of its.
void heed_notice(bridge_node *node, uint32_t child, const stream_notice &notice) {
    kolt_stream_key key{};
    memcpy(key.src, notice.dst.data(), sizeof(key.src));
    memcpy(key.dst, notice.src.data(), sizeof(key.dst));
    key.src_port = htobe16(notice.dst_port);
    key.dst_port = htobe16(notice.src_port);
    key.kind = notice.protocol == IPPROTO_UDP ? KOLT_STREAM_UDP : KOLT_STREAM_TCP;
    kolt_streams &streams = node->owner->streams;
    if (const auto slot = streams.find_any_hash(key)) {
        if (!steering_allowed(node, streams.record(*slot).target, child))
            return;
        if (const uint32_t port = link_of_type(node, child, notice.type); port != 0)
            streams.repoint(*slot, port);
    }
    flow_report_record report{};
    memcpy(report.src_mac, notice.src.data(), sizeof(report.src_mac));
    memcpy(report.dst_mac, notice.dst.data(), sizeof(report.dst_mac));
    report.src_port = notice.src_port;
    report.dst_port = notice.dst_port;
    report.protocol = notice.protocol;
    report.type = notice.type;
    if (node->owner->requests == nullptr)
        return;
    (void)requests_send_event(node->owner->requests, PROTOCOL_NEIGHBOURS, NEIGHBOUR_FLOW_REPORT, &report,
                              sizeof(report));
}

// What has come in by an interface since it is there; 0 when that cannot be told.
uint64_t received_packets(const char *name) {
    char path[64];
    (void)snprintf(path, sizeof(path), "/sys/class/net/%s/statistics/rx_packets", name);
    const file_ptr file(fopen(path, "re"));
    uint64_t packets = 0;
    if (!file || fscanf(file.get(), "%" SCNu64, &packets) != 1)
        return 0;
    return packets;
}

// `notices`: how many more are heeded.
void take_frame(node_port *port, const neighbour_frame &frame, size_t *notices) {
    bridge_node *node = port->node;
    tree_receive(&node->links, port->ifindex, frame, node_now());
    const uint32_t child = steering_group(node, port->ifindex);
    if (frame.kind != FRAME_HELLO || child == GROUP_NONE || !tree_is_child_port(node->links, port->ifindex))
        return;
    const size_t heeded = std::min<size_t>(frame.stream_count, *notices);
    *notices -= heeded;
    for (size_t i = 0; i < heeded; i++)
        heed_notice(node, child, frame.streams[i]);
}

void frames_arrived(uloop_fd *watch, unsigned /*events*/) {
    node_port *port = KOLT_CONTAINER_OF(watch, node_port, watch);
    size_t notices = NOTICES_A_TURN;
    for (int i = 0; i < FRAMES_A_TURN; i++) {
        std::array<uint8_t, NEIGHBOUR_FRAME_MAX> bytes;
        size_t size = 0;
        const int error = port->frames.receive(bytes, &size);
        if (error == ENETDOWN)
            continue;
        if (error != 0)
            break;
        neighbour_frame frame;
        if (frame_decode({bytes.data(), size}, &frame))
            take_frame(port, frame, &notices);
    }
    // An interface that goes down makes the loop drop the descriptor; it works again when the interface does.
    (void)uloop_fd_add(watch, ULOOP_READ);
    settle(port->node);
}

} // namespace

bool neighbours_listen(node_port *port) {
    const int error = port->frames.open(port->ifindex);
    if (error != 0) {
        KOLT_ERROR("%s: no socket for its neighbours, so it stays closed: %s", port->name, strerror(error));
        return false;
    }
    port->watch = {};
    port->watch.fd = port->frames.fd();
    port->watch.cb = frames_arrived;
    port->listened = uloop_fd_add(&port->watch, ULOOP_READ) == 0;
    return port->listened;
}

void neighbours_forget(node_port *port) {
    if (port->listened)
        (void)uloop_fd_delete(&port->watch);
    port->listened = false;
    port->frames.close();
}

void neighbours_send(bridge_node *node) {
    tree_send out;
    while (tree_take_frame(&node->links, &out)) {
        const node_port *port = node_find_port_index(node, out.ifindex);
        std::array<uint8_t, FRAME_MAX_SIZE> bytes;
        const size_t size = port == nullptr ? 0 : frame_encode(out.frame, port->mac.data(), bytes);
        // One that is lost on the way is like one that could not be sent: the next comes soon.
        if (size != 0)
            (void)port->frames.send({bytes.data(), size});
    }
}

void neighbours_count_foreign(bridge_node *node) {
    for (const node_port &port : node->ports) {
        if (port.backhaul)
            tree_port_foreign(&node->links, port.ifindex, node->owner->programs.foreign(port.ifindex), node_now());
    }
}

void neighbours_hear(bridge_node *node) {
    const uint64_t now = node_now();
    for (node_port &port : node->ports) {
        const int slot = port.backhaul ? tree_slot(node->links, port.ifindex) : NO_SLOT;
        if (slot == NO_SLOT)
            continue;
        const tree_port &link = node->links.ports[static_cast<size_t>(slot)];
        if (!link.alive || tree_time(node->links, now) - link.echoed_ms <= node->links.timing.interval_ms) {
            port.heard_packets = 0;
            continue;
        }
        const uint64_t packets = received_packets(port.name);
        if (port.heard_packets != 0 && packets > port.heard_packets)
            tree_port_heard(&node->links, port.ifindex, now);
        port.heard_packets = packets;
    }
}
