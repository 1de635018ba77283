// Questions to the kernel bridge, through the message buffers of its library.
#include "probes/ports.h"

#include "core/log.h"
#include "core/names.h"
#include "probes/table_buffer.h"

#include <algorithm>
#include <cstring>

#include <eth_encap.h>

namespace {

constexpr size_t HEADER_SIZE = 52;          // of the message, before its payload
constexpr size_t REPLY_LENGTH_DISTANCE = 8; // of the reply's payload length, before the payload
constexpr uint32_t PORT_RECORD_SIZE = 36;   // begins with the port's interface index
constexpr uint32_t PORTS_SIZE = 4608;       // room for 128 port records
constexpr uint32_t CHECK_SIZE = 8;
constexpr int QUERY_BRIDGE = 0;
constexpr int QUERY_PORTS = 256;

bool query(const table_buffer &payload, int type, uint32_t size) {
    return netlink_msg(type, static_cast<uint8_t *>(payload.get()) - HEADER_SIZE, size, KOLT_BRIDGE_PROTOCOL) == 0;
}

// The number of port records in a reply, never more than the buffer holds.
uint32_t record_count(const uint8_t *payload) {
    uint32_t length;
    memcpy(&length, payload - REPLY_LENGTH_DISTANCE, sizeof length);
    return std::min(length, PORTS_SIZE) / PORT_RECORD_SIZE;
}

} // namespace

int kolt_check_active_bridge(const char *bridge) {
    if (bridge == nullptr || bridge[0] == '\0')
        return 0;
    const table_buffer payload(bridgeAllocTableBuf(CHECK_SIZE, bridge));
    if (!payload) {
        KOLT_ERROR("bridgeAllocTableBuf");
        return 0;
    }
    return query(payload, QUERY_BRIDGE, CHECK_SIZE) ? 1 : 0;
}

bool kolt_is_loop_avoiding(const config_bridge &bridge) {
    return kolt_check_active_bridge(kolt_name_text(bridge.name).text) == 1 &&
           (bridge.flags & CONFIG_LOOP_AVOIDANCE) != 0;
}

uint32_t kolt_get_active_ports(config *config, const char *bridge, kolt_port_list *ports) {
    ports->count = 0;
    const table_buffer payload(bridgeAllocTableBuf(PORTS_SIZE, bridge));
    if (!payload) {
        KOLT_ERROR("bridgeAllocTableBuf");
        return 0;
    }
    if (!query(payload, QUERY_PORTS, PORTS_SIZE)) {
        KOLT_ERROR("netlink_msg");
        return 0;
    }
    const auto *records = static_cast<const uint8_t *>(payload.get());
    for (uint32_t i = 0; i < record_count(records) && ports->count < CONFIG_MAX_INTERFACES; i++) {
        uint32_t ifindex;
        memcpy(&ifindex, records + size_t{i} * PORT_RECORD_SIZE, sizeof ifindex);
        config_interface *port = config_find_interface_by_index(config, ifindex);
        if (port == nullptr) {
            KOLT_ERROR("No such interface %u", ifindex);
            continue;
        }
        port->ifindex = ifindex;
        ports->add(port);
    }
    return ports->count;
}

uint32_t kolt_get_path_ports(config *config, const char *bridge, kolt_port_list *ports) {
    (void)kolt_get_active_ports(config, bridge, ports); // none after a failure, which it logs
    auto **end = std::remove_if(ports->ports, ports->ports + ports->count,
                                [](const config_interface *port) { return port->path == 0; });
    ports->count = static_cast<uint8_t>(end - ports->ports);
    return ports->count;
}
