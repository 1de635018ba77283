// Any bytes as frames of neighbours to a node with a parent, a child, hosts and a port that feeds it. Whatever they
// say, a port is open in one role at most, one link carries the group frames of a class towards the parent, and what
// the node says of itself makes sense.
#include "decide/port_words.h"
#include "decide/record.h"
#include "decide/tree.h"

#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr node_id OWN_ID = 0x0001020000000020;
constexpr uint32_t FIRST_PORT = 10;
constexpr uint32_t PORTS = 5;
constexpr size_t MOST_FRAMES = 200;
constexpr uint32_t MEMORY = 20;     // intervals: short, for an input to outlive it
constexpr unsigned MOST_BEATS = 30; // of an input

void require(bool holds) {
    if (!holds)
        abort();
}

// The tree's own time may be behind.
uint64_t clock_of(const tree &self) {
    return self.now_ms + self.slept_ms;
}

// The node under test, and what its neighbours last said to each port.
struct scene {
    tree node;
    neighbour_frame said[PORTS];
    unsigned beats = 0;
};

// Reads the input piece by piece; it may end anywhere.
struct input {
    const uint8_t *data;
    size_t size;

    uint8_t byte() {
        if (size == 0)
            return 0;
        size--;
        return *data++;
    }
};

void check_words(const tree &self) {
    port_settings all;
    port_words(self, &all);
    int up[BCAST_CLASSES] = {};
    int floods_up = 0;
    for (size_t slot = 0; slot < TREE_PORTS; slot++) {
        const port_setting &one = all[slot];
        const port_role role = self.ports[slot].role;
        const bool open = (one.word.flags & PORT_OPEN) != 0;
        require(open || (one.word.accepts | one.word.admits) == 0);
        require(one.word.accepts != 0 || !(one.flooding.flood || one.flooding.bcast_flood || one.flooding.mcast_flood));
        require(!open || (self.ports[slot].carrier && role != ROLE_CLOSED));
        require(!open || (one.word.group == GROUP_UP) == (role == ROLE_UPLINK || role == ROLE_OUTSIDE));
        require(!open || (one.word.group == GROUP_NONE) == (role == ROLE_ACCESS));
        require(role != ROLE_UPLINK || self.parent != 0);
        require(role != ROLE_OUTSIDE || self.parent == 0);
        for (unsigned c = 0; c < BCAST_CLASSES && one.word.group == GROUP_UP; c++)
            up[c] += carries_class(one, c) ? 1 : 0;
        floods_up += one.word.group == GROUP_UP && one.flooding.flood ? 1 : 0;
    }
    require(up[0] <= 1 && up[1] <= 1 && floods_up <= 1);
}

void check_state(const tree &self) {
    require((self.parent == 0) == (self.root == self.id));
    require(self.parent == 0 || !same_node(self.parent, self.id));
    require(self.parent == 0 || self.pending.token == 0);
    require(self.hops < TREE_MAX_HOPS + 1);
}

// Saving and resuming touch every slot of the record, used or not, and take a hundred times what a frame takes: so that
// is done once an input, at its end, which may come anywhere.
void check_record(const tree &self) {
    const auto record = std::make_unique<tree_record>();
    tree_save(self, record.get());
    const auto next = std::make_unique<tree>();
    require(tree_take_over(next.get(), *record, 99, clock_of(self)));
    require(next->parent == self.parent || next->parent == 0);
    check_state(*next);
    check_words(*next);
}

void drain(tree *self) {
    tree_send due;
    for (size_t count = 0; tree_take_frame(self, &due); count++) {
        uint8_t bytes[FRAME_MAX_SIZE];
        const uint8_t mac[6] = {2};
        neighbour_frame read;
        const size_t size = frame_encode(due.frame, mac, bytes);
        require(size != 0 && frame_decode({bytes, size}, &read) && read == due.frame);
        require(count < 1000);
    }
}

// An echo of what was just asked, as the kernel behind the port would send it.
void echo(tree *self, uint32_t ifindex, node_id by) {
    const int slot = tree_slot(*self, ifindex);
    neighbour_frame frame;
    frame.kind = FRAME_ECHO;
    frame.node = self->id;
    frame.port = ifindex;
    frame.sequence = self->ports[static_cast<size_t>(slot)].sequence;
    frame.echoed_by = by;
    tree_receive(self, ifindex, frame, clock_of(*self));
}

// Bytes straight from the input: whole frames, which a fuzzer hardly ever hits upon, and the fields of a hello.
void receive(tree *self, uint32_t ifindex, input *in) {
    const size_t size = in->size < FRAME_MAX_SIZE ? in->size : FRAME_MAX_SIZE;
    const std::unique_ptr<uint8_t[]> copy(new uint8_t[size]); // a byte behind it is out of bounds
    if (size > 0)
        memcpy(copy.get(), in->data, size);
    neighbour_frame frame;
    if (!frame_decode({copy.get(), size}, &frame))
        return;
    in->data += FRAME_MIN_SIZE;
    in->size -= FRAME_MIN_SIZE;
    tree_receive(self, ifindex, frame, clock_of(*self));
}

node_id some_node(input *in) {
    const uint8_t byte = in->byte();
    return 0x020000000000 | (node_id{byte} & 0x3f) | (byte & 0x40 ? node_id{1} << NODE_RANK_SHIFT : 0);
}

void hello(scene *all, uint32_t ifindex, input *in) {
    tree *self = &all->node;
    neighbour_frame frame;
    frame.node = some_node(in);
    frame.port = in->byte();
    frame.incarnation = in->byte() & 3;
    frame.version = in->byte();
    frame.root = some_node(in);
    frame.parent = in->byte() & 1 ? node_mac(OWN_ID) : node_mac(some_node(in));
    frame.taking = {in->byte(), in->byte()};
    frame.hops = in->byte() & 63;
    frame.link_flags = in->byte();
    frame.node_flags = in->byte() & 1;
    frame.join_count = in->byte() % (FRAME_JOINS + 1);
    for (uint8_t i = 0; i < frame.join_count; i++) {
        const bool grant = (in->byte() & 1) != 0;
        const bool pending = (in->byte() & 1) != 0; // the token that a fuzzer cannot guess
        frame.joins[i] = {.kind = grant ? JOIN_GRANT : JOIN_REQUEST,
                          .origin = grant && pending ? self->id : some_node(in),
                          .token = pending ? self->pending.token : in->byte()};
    }
    tree_receive(self, ifindex, frame, clock_of(*self));
    frame.join_count = 0;
    all->said[ifindex - FIRST_PORT] = frame;
}

void start(tree *self) {
    self->timing.memory = MEMORY;
    tree_start(self, OWN_ID, 1, 1000, 1000);
    for (uint32_t i = 0; i < PORTS; i++) {
        const port_wish wish = {.type = static_cast<uint8_t>(i),
                                .class_ = static_cast<uint8_t>(i / 4),
                                .group = i < 2 ? PORT_RELAY : PORT_NONRELAY,
                                .permit = i == 4};
        require(tree_port_add(self, FIRST_PORT + i, wish, true, 1000));
    }
}

// Up to two seconds, in steps that are short or too long for the tree.
void pass(tree *self, uint8_t how) {
    for (unsigned step = 0; step <= how / 16U; step++)
        tree_tick(self, clock_of(*self) + how % 16U * uint64_t{8});
}

// So many beats in which every neighbour says what it said last, and its kernel answers.
void live(scene *all, unsigned beats) {
    tree *self = &all->node;
    for (; beats > 0 && all->beats < MOST_BEATS; beats--, all->beats++) {
        tree_tick(self, clock_of(*self) + self->timing.interval_ms);
        drain(self);
        for (uint32_t i = 0; i < PORTS; i++) {
            if (all->said[i].node == 0)
                continue;
            echo(self, FIRST_PORT + i, all->said[i].node);
            tree_receive(self, FIRST_PORT + i, all->said[i], clock_of(*self));
        }
    }
}

void act(scene *all, input *in) {
    tree *self = &all->node;
    const uint8_t what = in->byte();
    const uint32_t ifindex = FIRST_PORT + (what >> 4) % PORTS;
    switch (what & 7) {
    case 0:
        receive(self, ifindex, in);
        break;
    case 1:
        pass(self, in->byte());
        break;
    case 2:
        tree_port_carrier(self, ifindex, (in->byte() & 1) != 0, clock_of(*self));
        break;
    case 3:
        tree_port_foreign(self, ifindex, in->byte(), clock_of(*self) + in->byte());
        break;
    case 4:
        echo(self, ifindex, some_node(in));
        break;
    case 6:
        tree_port_heard(self, ifindex, clock_of(*self) + in->byte());
        break;
    case 7:
        live(all, in->byte());
        break;
    default:
        hello(all, ifindex, in);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto all = std::make_unique<scene>();
    tree *self = &all->node;
    start(self);
    input in{.data = data, .size = size};
    for (size_t i = 0; i < MOST_FRAMES && in.size > 0; i++) {
        act(all.get(), &in);
        drain(self);
        check_words(*self);
        check_state(*self);
    }
    check_record(*self);
    return 0;
}
