// The full programming of a bridge. The operation that the log names is loop_avoidance_configure_bridge_with_mode,
// whichever step is at work.
#include "loop_avoidance/configure.h"

#include "adaptors/flow_cache.h"
#include "core/log.h"
#include "core/names.h"
#include "loop_avoidance/broadcast.h"
#include "loop_avoidance/relay_flags.h"
#include "probes/node_state.h"
#include "probes/ports.h"
#include "probes/uci_options.h"

#include <cstdio>
#include <cstring>
#include <duon_bridge.h>
#include <iterator>

namespace {

constexpr char OPERATION[] = "loop_avoidance_configure_bridge_with_mode";
constexpr char NO_PORT[] = "(null)"; // how the C library prints a missing string

// Makes a library call; a refusal is logged by the call's name, and the programming goes on.
#define PROGRAM(call, ...)                                                                                             \
    do {                                                                                                               \
        if (call(__VA_ARGS__) != 0)                                                                                    \
            KOLT_ERROR_AS(OPERATION, #call);                                                                           \
    } while (0)

void program_bridge(const char *bridge, uint32_t flags, kolt_work_mode mode) {
    PROGRAM(bridgeSetTcpSP, bridge, 0);
    PROGRAM(bridgeSetBridgeMode, bridge, mode != KOLT_MODE_RE ? 1 : 0);
    if ((flags & CONFIG_PATH_SELECTION) != 0)
        PROGRAM(bridgeSetFollowRE, bridge, 1);
}

bcast_ports choose_bcast_ports(config *config, port_span ports) {
    const bcast_ports chosen = pick_bcast_ports(ports);
    KOLT_DEBUG_AS(OPERATION, "bcast_port_0 is %.16s", chosen.class_0 ? chosen.class_0->name : NO_PORT);
    KOLT_DEBUG_AS(OPERATION, "bcast_port_1 is %.16s", chosen.class_1 ? chosen.class_1->name : NO_PORT);
    if (chosen.class_0 != nullptr)
        config->param.bcast_port_plc = chosen.class_0->type == KOLT_LINK_PLC ? 1 : 0;
    return chosen;
}

void program_port(const char *bridge, const config_interface *port, int broadcast) {
    const kolt_name_text name(port->name);
    PROGRAM(bridgeSetIFCompat, bridge, name.text, port->compat_group);
    PROGRAM(bridgeSetIFGroup, bridge, name.text, port->relay, port->relay);
    PROGRAM(bridgeSetIFBroadcast, bridge, name.text, broadcast);
    PROGRAM(bridgeSetIFClass, bridge, name.text, port->class_);
    PROGRAM(bridgeSetIFPath, bridge, name.text, port->path);
    PROGRAM(bridgeSetNeedha, bridge, name.text, port->needha);
    PROGRAM(bridgeSetIFType, bridge, name.text, static_cast<int>(port->type));
}

// Wired couples count only where there is a neighbour, or on the power-line backhaul VLAN.
bool couple_qualifies(const char *lan, const char *vlan_text, int32_t vlan_id) {
    return strncmp(lan, "eth", 3) != 0 || kolt_check_eth_has_neigh(lan) == 1 ||
           (strstr(lan, vlan_text) != nullptr && vlan_id != 0);
}

void program_couples(const char *bridge, const config &config) {
    const int32_t vlan_id = config.param.plc_vlan_backhaul_id;
    char vlan_text[16];
    (void)snprintf(vlan_text, sizeof vlan_text, "%d", vlan_id);
    int first = 1;
    for (uint32_t i = 0; i < config.couple_num; i++) {
        const kolt_name_text lan(config.couples[i].lan);
        if (!couple_qualifies(lan.text, vlan_text, vlan_id))
            continue;
        const kolt_name_text guest(config.couples[i].guest);
        PROGRAM(bridgeSetCouple, bridge, lan.text, guest.text, first);
        first = 0;
    }
}

void configure_bridge(config *config, const char *bridge, uint32_t flags, kolt_work_mode mode) {
    program_bridge(bridge, flags, mode);
    kolt_port_list ports;
    (void)kolt_get_active_ports(config, bridge, &ports); // none after a failure, which it logs
    loop_avoidance_set_relay_flags(ports.span(), mode);
    const bcast_ports chosen = choose_bcast_ports(config, ports.span());
    for (const config_interface *port : ports.span())
        program_port(bridge, port, chosen.allow(port) ? 1 : 0);
    program_couples(bridge, *config);
}

} // namespace

const char *kolt_work_mode_name(kolt_work_mode mode) {
    constexpr const char *NAMES[] = {"RE", "FAP", "HAP"};
    return mode < std::size(NAMES) ? NAMES[mode] : "Invalid";
}

void loop_avoidance_configure_bridge_with_mode(config *config, kolt_work_mode mode) {
    KOLT_DEBUG("configure duon bridge with mode %s", kolt_work_mode_name(mode));
    (void)kolt_configure_fc_mode(mode); // without a flow cache there is nothing to configure
    for (uint32_t i = 0; i < config->bridge_num; i++) {
        const config_bridge &bridge = config->bridges[i];
        if (kolt_is_loop_avoiding(bridge))
            configure_bridge(config, kolt_name_text(bridge.name).text, bridge.flags, mode);
    }
}

void loop_avoidance_reconfigure(config *config) {
    loop_avoidance_configure_bridge_with_mode(config, kolt_get_work_mode());
}
