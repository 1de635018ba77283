// The frames that are due, one at a time.
#include "decide/neighbours.h"

#include <algorithm>

namespace {

void put_joins(tree *self, size_t slot, neighbour_frame *frame) {
    for (join_to_send &one : self->outgoing) {
        if ((one.ports >> slot & 1) == 0)
            continue;
        if (frame->join_count == FRAME_JOINS) {
            self->ports[slot].hello_due = true; // the rest needs another frame
            return;
        }
        frame->joins[frame->join_count++] = one.record;
        one.ports &= ~(uint32_t{1} << slot);
    }
}

void put_notices(tree *self, size_t slot, neighbour_frame *frame) {
    if (self->notice_count == 0 || static_cast<int>(slot) != self->taking_slot[0] || self->parent == 0)
        return;
    while (frame->stream_count < FRAME_STREAMS && self->notice_count > 0) {
        frame->streams[frame->stream_count++] = self->notices[self->notice_first];
        self->notice_first = (self->notice_first + 1) % TREE_NOTICES;
        self->notice_count--;
    }
    self->ports[slot].hello_due |= self->notice_count > 0;
}

void fill_hello(tree *self, size_t slot, neighbour_frame *frame) {
    frame->incarnation = self->incarnation;
    frame->version = self->version;
    frame->root = self->root;
    frame->parent = self->parent;
    frame->taking = self->taking;
    frame->hops = self->hops;
    frame->node_flags = self->flags;
    frame->link_flags = self->ports[slot].said_flags;
    put_joins(self, slot, frame);
    put_notices(self, slot, frame);
}

} // namespace

void outbox_forget(tree *self, size_t slot) {
    for (join_to_send &one : self->outgoing)
        one.ports &= ~(uint32_t{1} << slot);
}

bool tree_take_frame(tree *self, tree_send *send) {
    const std::span<tree_port> ports = used_ports(self);
    const auto due = std::find_if(ports.begin(), ports.end(), [](const tree_port &port) {
        return port.carrier && (port.hello_due || port.probe_due);
    });
    if (due == ports.end())
        return false;
    tree_port &port = *due;
    *send = {.ifindex = port.ifindex, .frame = {}};
    send->frame.node = self->id;
    send->frame.port = port.ifindex;
    if (port.hello_due) {
        port.hello_due = false;
        send->frame.kind = FRAME_HELLO;
        fill_hello(self, static_cast<size_t>(due - ports.begin()), &send->frame);
    } else {
        port.probe_due = false;
        port.sequence++;
        send->frame.kind = FRAME_PROBE;
    }
    send->frame.sequence = port.sequence;
    return true;
}

bool tree_tell_stream(tree *self, const stream_notice &notice) {
    if (self->parent == 0 || self->taking_slot[0] == NO_SLOT || self->notice_count == TREE_NOTICES)
        return false;
    self->notices[(self->notice_first + self->notice_count) % TREE_NOTICES] = notice;
    self->notice_count++;
    self->ports[static_cast<uint8_t>(self->taking_slot[0])].hello_due = true;
    return true;
}
