// What the module asks of a node and does to it, in the place of the probes, the drivers and the bridge library.
#include "model_ports/node.h"

#include "adaptors/flow_cache.h"
#include "adaptors/wlan.h"
#include "probes/node_state.h"
#include "probes/ports.h"
#include "probes/table_flush.h"
#include "probes/uci_options.h"

#include <cstdlib>
#include <ctime>
#include <duon_bridge.h>

model_node node;

namespace {

// A port's name is its place: one letter.
told_port *told(const char *name) {
    const auto place = static_cast<size_t>(name[0] - 'a');
    if (place >= node.ports || name[1] != '\0')
        abort();
    node.calls++;
    return &node.told[place];
}

} // namespace

bool kolt_is_loop_avoiding(const config_bridge & /*bridge*/) {
    return true;
}

uint32_t kolt_get_active_ports(config *config, const char * /*bridge*/, kolt_port_list *ports) {
    for (uint8_t i = 0; i < node.ports; i++)
        ports->add(&config->interfaces[i]);
    return ports->count;
}

kolt_work_mode kolt_get_work_mode() {
    return node.role.mode;
}

int kolt_check_link_state(kolt_link_type link) {
    return node.links_up >> link & 1;
}

int kolt_is_plc_bcast_capable() {
    return 0;
}

int plc_is_root() {
    return node.role.plc_root ? 1 : 0;
}

int eth_traffic_is_active() {
    return node.role.traffic ? 1 : 0;
}

int update_eth_traffic_ports(port_span ports) {
    for (config_interface *port : ports) {
        if (port->type != KOLT_LINK_ETHERNET)
            continue;
        port->relay = 0;
        if (node.role.traffic_on_first)
            break;
    }
    return 1;
}

int kolt_check_eth_has_neigh(const char * /*name*/) {
    return 0;
}

void kolt_flush_tables(const config & /*config*/, int (* /*flush*/)(const char *), const flush_report & /*report*/) {}

int kolt_configure_fc_mode(kolt_work_mode /*mode*/) {
    return 0;
}

int kolt_flush_all_fcache_flow() {
    return 0;
}

int kolt_flush_fc_flow_by_mac(const uint8_t * /*mac*/, uintptr_t /*word*/) {
    return 0;
}

void wlan_delete_wds_entry(const char * /*ifname*/, const uint8_t * /*mac*/) {}

extern "C" {

// The second for which the bridge settles is not waited for.
int nanosleep(const timespec * /*time*/, timespec * /*left*/) {
    return 0;
}

int bridgeSetIFBroadcast(const char * /*bridge*/, const char *ifname, int allow) {
    told(ifname)->broadcast = static_cast<uint8_t>(allow);
    return 0;
}

int bridgeSetIFGroup(const char * /*bridge*/, const char *ifname, int group, int /*group_again*/) {
    told(ifname)->group = static_cast<uint8_t>(group);
    return 0;
}

int bridgeSetBridgeMode(const char * /*bridge*/, int /*mode*/) {
    return 0;
}

int bridgeSetTcpSP(const char * /*bridge*/, int /*value*/) {
    return 0;
}

int bridgeSetFollowRE(const char * /*bridge*/, int /*value*/) {
    return 0;
}

int bridgeSetIFType(const char * /*bridge*/, const char * /*ifname*/, int /*type*/) {
    return 0;
}

int bridgeSetIFClass(const char * /*bridge*/, const char * /*ifname*/, int /*bcast_class*/) {
    return 0;
}

int bridgeSetIFPath(const char * /*bridge*/, const char * /*ifname*/, int /*path*/) {
    return 0;
}

int bridgeSetIFCompat(const char * /*bridge*/, const char * /*ifname*/, int /*compat_group*/) {
    return 0;
}

int bridgeSetNeedha(const char * /*bridge*/, const char * /*ifname*/, int /*needha*/) {
    return 0;
}

int bridgeSetCouple(const char * /*bridge*/, const char * /*ifname*/, const char * /*couple*/, int /*first*/) {
    return 0;
}

int bridgeFlushHATable(const char * /*bridge*/) {
    return 0;
}
}
