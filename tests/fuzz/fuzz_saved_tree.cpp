// Any bytes over the record of a node's place in the tree, as a damaged file might have them with a sum that fits: each
// change is an offset (16 bits), a length and bytes. What is taken over must hold up to what comes after it.
#include "decide/port_words.h"
#include "decide/record.h"
#include "decide/tree.h"
#include "support/input.h"
#include "support/tree_sum.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr node_id OWN_ID = 0x0001020000000020;
constexpr uint32_t PORTS = 4;
constexpr uint64_t START_MS = 1000;

// A node that has heard a neighbour on each of its ports.
tree_record whole_record() {
    const auto self = std::make_unique<tree>();
    tree_start(self.get(), OWN_ID, 1, START_MS, START_MS);
    for (uint32_t i = 0; i < PORTS; i++) {
        const port_wish wish = {.type = static_cast<uint8_t>(i), .class_ = 0, .group = PORT_NONRELAY, .permit = i == 3};
        require(tree_port_add(self.get(), 10 + i, wish, true, START_MS));
        neighbour_frame hello;
        hello.node = hello.root = 0x020000000000 + i;
        hello.port = 1;
        hello.incarnation = hello.version = 1;
        tree_receive(self.get(), 10 + i, hello, START_MS);
    }
    tree_record record;
    tree_save(*self, &record);
    return record;
}

void change(tree_record *record, fuzz_input *input) {
    const size_t offset = input->number<uint16_t>() % sizeof *record;
    const bytes content = input->take(input->byte());
    memcpy(reinterpret_cast<uint8_t *>(record) + offset, content.data(),
           std::min(content.size(), sizeof *record - offset));
}

void live_on(tree *self) {
    port_settings before{};
    for (uint64_t now = START_MS; now < START_MS + 3000; now += 500) {
        tree_tick(self, now);
        tree_send due;
        for (int i = 0; tree_take_frame(self, &due); i++)
            require(i < 1000);
        port_settings after;
        port_words(*self, &after);
        port_plan plan;
        port_plan_make(before, after, &plan);
        require(plan.closing_count <= plan.closing.size() && plan.opening_count <= plan.opening.size());
        before = after;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const tree_record WHOLE = whole_record();
    fuzz_input input{{data, size}};
    const auto record = std::make_unique<tree_record>(WHOLE);
    while (!input.left.empty())
        change(record.get(), &input);
    make_sum_fit(record.get());
    const auto self = std::make_unique<tree>();
    if (!tree_take_over(self.get(), *record, 99, START_MS))
        return 0;
    live_on(self.get());
    tree_port_carrier(self.get(), 10, false, START_MS + 3000);
    tree_port_remove(self.get(), 11, START_MS + 3000);
    live_on(self.get());
    return 0;
}
