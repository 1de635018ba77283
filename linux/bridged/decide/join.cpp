#include "decide/join.h"

#include "decide/neighbours.h"
#include "decide/parent.h"

#include <algorithm>

namespace {

constexpr uint8_t MOST_REFUSALS = 4; // after which a neighbour rests no longer than it did before
constexpr uint8_t MOST_PATIENCE = 2; // refusals after which its answer is waited for no longer than before

// Sent on every link that leads there, so that a bad one does not matter. Without room it is lost, and comes again.
void send(tree *self, uint64_t to, const join_record &record) {
    uint32_t ports = 0;
    for (size_t slot = 0; slot < self->port_slots; slot++) {
        if (leads_to(*self, self->ports[slot], to))
            ports |= uint32_t{1} << slot;
    }
    const auto place = std::find_if(self->outgoing.begin(), self->outgoing.end(),
                                    [](const join_to_send &one) { return one.ports == 0; });
    if (ports == 0 || place == self->outgoing.end())
        return;
    *place = {.ports = ports, .record = record};
    for (size_t slot = 0; slot < self->port_slots; slot++)
        self->ports[slot].hello_due |= (ports >> slot & 1) != 0;
}

// Where a request is remembered: its place if it came before, that of an earlier one of the same origin, or a free one.
passing_join *place_of(tree *self, uint64_t from, const join_record &request) {
    passing_join *place = nullptr;
    for (passing_join &one : self->passing) {
        if (one.token != 0 && one.from == from && one.origin == request.origin)
            return &one;
        if (place == nullptr && (one.token == 0 || one.until_ms <= self->now_ms))
            place = &one;
    }
    return place;
}

void pass_up(tree *self, uint64_t from, const join_record &request) {
    passing_join *place = place_of(self, from, request);
    if (place == nullptr)
        return;
    const bool repeated = place->token != 0 && place->from == from && place->origin == request.origin &&
                          place->from_token == request.token && place->until_ms > self->now_ms;
    if (!repeated) {
        *place = {.token = self->next_token++,
                  .from = from,
                  .from_token = request.token,
                  .origin = request.origin,
                  .until_ms = 0};
    }
    place->until_ms = self->now_ms + span_ms(*self, self->timing.join);
    send(self, self->parent, {.kind = JOIN_REQUEST, .origin = request.origin, .token = place->token});
}

void take_request(tree *self, uint64_t from, const join_record &request) {
    if (same_node(request.origin, self->id) || request.token == 0 || from == self->parent)
        return;
    if (self->parent != 0) {
        pass_up(self, from, request);
        return;
    }
    if (self->pending.token == 0 && self->id < request.origin)
        send(self, from, {.kind = JOIN_GRANT, .origin = request.origin, .token = request.token});
}

void take_own_grant(tree *self, uint64_t from, const join_record &grant) {
    const tree_node *node = find_node(*self, from);
    const pending_join &pending = self->pending;
    if (self->parent != 0 || pending.token == 0 || pending.token != grant.token || pending.to != from)
        return;
    if (node != nullptr && may_join(*self, *node))
        parent_take(self, from);
}

void take_grant(tree *self, uint64_t from, const join_record &grant) {
    if (same_node(grant.origin, self->id)) {
        take_own_grant(self, from, grant);
        return;
    }
    if (from != self->parent || self->parent == 0 || grant.token == 0)
        return;
    for (passing_join &one : self->passing) {
        if (one.token != grant.token || one.origin != grant.origin || one.until_ms <= self->now_ms)
            continue;
        const passing_join passed = one;
        one = {};
        send(self, passed.from, {.kind = JOIN_GRANT, .origin = passed.origin, .token = passed.from_token});
        return;
    }
}

void ask(tree *self) {
    send(self, self->pending.to, {.kind = JOIN_REQUEST, .origin = self->id, .token = self->pending.token});
}

// The longer the more often it has refused: there may be another neighbour, and who waits lets nobody join.
void give_up(tree *self) {
    tree_node *node = find_node(self, self->pending.to);
    self->pending = {};
    self->rest_until_ms = self->now_ms + span_ms(*self, self->timing.rest);
    if (node == nullptr)
        return;
    node->refused_until_ms = self->now_ms + (span_ms(*self, self->timing.join) << node->refusals);
    node->refusals = std::min<uint8_t>(static_cast<uint8_t>(node->refusals + 1), MOST_REFUSALS);
}

// The answer comes from the root, and the way there may be slow. What has not been answered in time is asked anew, and
// the earlier answer counts no more: without more patience each would come too late.
bool is_in_vain(const tree &self) {
    const tree_node *node = find_node(self, self.pending.to);
    if (node == nullptr || !may_join(self, *node))
        return true;
    const uint64_t patience_ms = span_ms(self, self.timing.join) << std::min(node->refusals, MOST_PATIENCE);
    return self.now_ms - self.pending.since_ms >= patience_ms;
}

} // namespace

void join_receive(tree *self, uint64_t from, const neighbour_frame &frame) {
    for (size_t i = 0; i < frame.join_count && i < frame.joins.size(); i++) {
        if (frame.joins[i].kind == JOIN_REQUEST)
            take_request(self, from, frame.joins[i]);
        else
            take_grant(self, from, frame.joins[i]);
    }
}

void join_pursue(tree *self, bool beat) {
    if (self->parent != 0)
        return;
    if (self->pending.token != 0 && is_in_vain(*self))
        give_up(self);
    if (self->pending.token != 0) {
        if (beat)
            ask(self);
        return;
    }
    const tree_node *best = self->now_ms < self->rest_until_ms ? nullptr : best_parent(self);
    if (best == nullptr)
        return;
    self->pending = {.token = self->next_token++, .to = node_mac(best->id), .since_ms = self->now_ms};
    ask(self);
}

void join_reset(tree *self) {
    self->pending = {};
    self->passing.fill({});
    self->outgoing.fill({});
}
