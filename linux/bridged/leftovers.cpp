// Where programs were put on is told by the tables that are pinned, whatever an interface is called by now; how it was
// found, by its file.
#include "bridged/leftovers.h"

#include "bridged/guard.h"
#include "bridged/saved_state.h"
#include "core/log.h"
#include "kernel/net/link_list.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

namespace {

const node_port *find_port(bridged *self, uint32_t ifindex) {
    const node_port *port = nullptr;
    for (uint32_t i = 0; i < self->bridge_count && port == nullptr; i++)
        port = node_find_port_index(&self->bridges[i], ifindex);
    return port;
}

bool is_refused(const bridged *self, uint32_t bridge) {
    const std::span<const bridge_node> nodes(self->bridges.data(), self->bridge_count);
    return bridge != 0 && std::any_of(nodes.begin(), nodes.end(),
                                      [bridge](const bridge_node &node) { return node.refused == bridge; });
}

bool is_left(bridged *self, const link_info &link, leftovers_of which) {
    const node_port *port = find_port(self, link.index);
    if ((port != nullptr && (port->guarded || port->shut)) ||
        (which == LEFTOVERS_OF_KEPT && is_refused(self, link.master)))
        return false;
    node_port file;
    kolt_copy_name(file.name, link.name.data());
    return self->programs.identified(link.index) || saved_port_read(self, &file);
}

// Clients that were placed there stay nowhere: whoever speaks is found where it is.
void unpin(bridged *self, const link_info &link) {
    std::array<fdb_place, MAX_CLIENTS> places;
    size_t count = 0;
    const bool is_port = find_port(self, link.index) != nullptr;
    const auto look = [&](const fdb_record &entry) {
        const uint32_t placed = self->programs.hd_find(entry.mac.data());
        if (!entry.sticky || entry.port != link.index || count == places.size() || (is_port && placed == link.index))
            return;
        places[count++] = {entry.mac, entry.port};
        if (placed == link.index)
            (void)self->programs.hd_remove(entry.mac.data());
    };
    (void)fdb_dump(self->rtnl, link.master, look);        // what is above it need not be a bridge
    (void)fdb_remove(self->rtnl, {places.data(), count}); // one that is not there any more is fine
}

bool give_back(bridged *self, const link_info &link) {
    node_port port;
    port.ifindex = link.index;
    kolt_copy_name(port.name, link.name.data());
    (void)saved_port_read(self, &port); // without a file it is put back as ports are by themselves
    port.guarded = self->programs.identified(link.index);
    bridge_port described;
    if ((!port.guarded && !port.shut) || bridge_port_get(self->rtnl, link.index, &described) != 0)
        return guard_take_off(self, port);
    unpin(self, link);
    return guard_put_back(self, &port);
}

} // namespace

bool leftovers_give_back(bridged *self, leftovers_of which) {
    link_list found;
    const int error = found.read(self->rtnl, [&](const link_info &link) { return is_left(self, link, which); });
    if (error != 0)
        KOLT_ERROR("cannot list the interfaces: %s", strerror(error));
    bool complete = error == 0;
    for (const link_info &link : found.all()) {
        KOLT_INFO("%s: is no link any more, and is given back", link.name.data());
        const bool done = give_back(self, link);
        complete &= done;
        if (done && find_port(self, link.index) == nullptr)
            (void)self->programs.set_port(link.index, {});
    }
    return complete;
}
