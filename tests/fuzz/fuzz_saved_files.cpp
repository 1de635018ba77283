// Any bytes as the files that kolt-bridged leaves behind. The first byte says what is there: bit 0 a port's file, which
// comes next, behind 16 bits of length; bit 1 a bridge's tree, which is the rest; bit 2 that the rest is what was
// changed in a whole one, whose sum fits.
#include "bridged/saved_state.h"
#include "support/files.h"
#include "support/tree_sum.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr uint64_t START_MS = 1000;
constexpr node_id OWN_ID = 0x0001020000000001;

enum input_bit : uint8_t { PORT_FILE = 1, TREE_FILE = 2, TREE_CHANGED = 4 };

void serve_or_miss(bool there, const char *path, bytes content) {
    if (there)
        serve_file(path, content);
    else
        miss_file(path);
}

// A whole tree's file, with its sum; each change is an offset (16 bits) and a byte.
tree_record changed_tree(fuzz_input changes) {
    const auto self = std::make_unique<tree>();
    tree_start(self.get(), OWN_ID, 1, START_MS, START_MS);
    tree_record record;
    tree_save(*self, &record);
    while (!changes.left.empty()) {
        const size_t offset = changes.number<uint16_t>() % sizeof record;
        reinterpret_cast<uint8_t *>(&record)[offset] = changes.byte();
    }
    make_sum_fit(&record);
    return record;
}

void serve_tree(uint8_t what, const fuzz_input &input) {
    constexpr const char *PATH = "/run/kolt-bridged/tree.br0";
    if ((what & TREE_CHANGED) == 0)
        return serve_or_miss((what & TREE_FILE) != 0, PATH, input.left);
    const tree_record record = changed_tree(input);
    serve_or_miss((what & TREE_FILE) != 0, PATH, {reinterpret_cast<const uint8_t *>(&record), sizeof record});
}

} // namespace

// What is taken over is what can be put back: a port's settings that the kernel knows, a tree of somebody.
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const auto SELF = std::make_unique<bridged>();
    bridge_node &node = SELF->bridges[0];
    node.owner = SELF.get();
    strcpy(node.name, "br0");

    fuzz_input input{{data, size}};
    const uint8_t what = input.byte();
    const bytes port_file = input.part();
    serve_or_miss((what & PORT_FILE) != 0, "/run/kolt-bridged/port.eth0", port_file);
    node_port &port = node.ports[0];
    strcpy(port.name, "eth0");
    port.found.mcast_router = MCAST_ROUTER_TEMPORARY;
    port.shut = true;
    const bool port_read = saved_port_read(SELF.get(), &port);
    require(!port_read || ((what & PORT_FILE) != 0 && port_file.size() == 12));
    require(port_read || (port.shut && port.found.mcast_router == MCAST_ROUTER_TEMPORARY));
    require(port.found.mcast_router <= MCAST_ROUTER_TEMPORARY);

    serve_tree(what, input);
    if (saved_state_read(&node, 99))
        require((what & TREE_FILE) != 0 && node_mac(node.links.id) != 0);
    return 0;
}
