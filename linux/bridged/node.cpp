// Finding one's way in the state.
#include "bridged/node.h"

#include <ctime>

uint64_t node_now() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

bridge_node *node_find(bridged *self, const char *name) {
    for (uint32_t i = 0; i < self->bridge_count; i++) {
        if (kolt_name_equal(self->bridges[i].name, name))
            return &self->bridges[i];
    }
    return nullptr;
}

bridge_node *node_find_index(bridged *self, uint32_t ifindex) {
    for (uint32_t i = 0; i < self->bridge_count && ifindex != 0; i++) {
        if (self->bridges[i].ifindex == ifindex)
            return &self->bridges[i];
    }
    return nullptr;
}

const config_interface *node_configured(const bridged *self, const char *name) {
    for (uint32_t i = 0; i < self->configured.interface_num; i++) {
        if (kolt_name_equal(self->configured.interfaces[i].name, name))
            return &self->configured.interfaces[i];
    }
    return nullptr;
}

uint8_t node_class_of(const config_interface *interface) {
    return interface != nullptr && interface->class_ < BCAST_CLASSES ? interface->class_ : KOLT_BCAST_CLASS_0;
}

node_port *node_free_place(bridge_node *node) {
    for (node_port &port : node->ports) {
        if (port.ifindex == 0)
            return &port;
    }
    return nullptr;
}

node_port *node_find_port(bridge_node *node, const char *name) {
    for (node_port &port : node->ports) {
        if (port.ifindex != 0 && kolt_name_equal(port.name, name))
            return &port;
    }
    return nullptr;
}

node_port *node_find_port_index(bridge_node *node, uint32_t ifindex) {
    for (node_port &port : node->ports) {
        if (ifindex != 0 && port.ifindex == ifindex)
            return &port;
    }
    return nullptr;
}
