#include "records.h"

top_found top_find_client(const top_node &node, const uint8_t *mac) {
    for (const top_bridge &bridge : node.all_bridges()) {
        for (const kolt_client &client : bridge.clients.span()) {
            if (kolt_mac_equal(client.mac, mac) == 1)
                return {.bridge = &bridge, .client = &client};
        }
    }
    return {};
}

const top_path *top_path_of(const top_bridge &bridge, uint32_t ifindex) {
    for (const top_path &path : bridge.paths) {
        if (path.configured && path.ifindex == ifindex)
            return &path;
    }
    return nullptr;
}

const config_interface *top_port_of(const top_bridge &bridge, uint32_t ifindex) {
    for (const config_interface *port : bridge.ports.span()) {
        if (port->ifindex == ifindex)
            return port;
    }
    return nullptr;
}

// A table of hundreds of clients would otherwise ask the kernel a thousand times.
top_name top_interface_name(const top_bridge &bridge, uint32_t ifindex) {
    if (const config_interface *port = top_port_of(bridge, ifindex))
        return top_printable(port->name);
    if (const top_path *path = top_path_of(bridge, ifindex))
        return top_printable(path->name);
    return top_kernel_name(ifindex);
}
