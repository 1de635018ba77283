// Saying no in one clear line, before anything is touched.
#include "bridged/refusal.h"

#include "core/log.h"
#include "kernel/net/features.h"
#include "kernel/net/offload.h"

#include <cstring>

namespace {

const char *obstacle_of_mask(uint16_t group_fwd_mask) {
    if (group_fwd_mask == 0)
        return nullptr;
    return "forwards frames that are meant for the other end of a link (group_fwd_mask)";
}

bool print_feature(FILE *out, const feature &found) {
    static constexpr const char *WORDS[] = {"no", "yes", "unknown"};
    (void)fprintf(out, "%-8s %s\n", WORDS[found.answer], found.sentence.data());
    return found.answer != FEATURE_NO;
}

bool print_offload(FILE *out, const offload_finding &found) {
    if (found.answer == OFFLOAD_NO)
        return true;
    (void)fprintf(out, "%-8s %s\n", found.answer == OFFLOAD_YES ? "no" : "unknown", found.sentence.data());
    return found.answer != OFFLOAD_YES;
}

bool check_interface(bridged *self, const config_interface &interface, const kolt_own_programs &own, FILE *out) {
    const kolt_name_text name(interface.name);
    link_info link;
    if (link_find(self->rtnl, name.text, &link) != 0)
        return true; // one that is not there yet is looked at when it comes
    const offload_findings found = offload_find(self->rtnl, name.text);
    bool fine = print_offload(out, found.switch_chip);
    fine &= print_offload(out, found.tc_offload);
    fine &= print_offload(out, found.flow_table);
    const bool is_link = interface.path != 0 || !interface.is_relay();
    if (const char *obstacle = obstacle_of_mask(link.group_fwd_mask); is_link && obstacle != nullptr) {
        (void)fprintf(out, "no       %s %s\n", name.text, obstacle);
        fine = false;
    }
    for (const kolt_direction direction : KOLT_DIRECTIONS) {
        kolt_other_program first;
        if (kolt_programs::others(link.index, direction, &first, own) != 0)
            (void)fprintf(out, "unknown  %s: another program stands on it: %s\n", name.text, first.name);
    }
    return fine;
}

const char *bridge_obstacle(bridged *self, uint32_t ifindex) {
    bridge_settings settings;
    return bridge_get(self->rtnl, ifindex, &settings) == 0 ? refusal_of(settings) : "cannot be asked how it is set";
}

bool check_bridge(bridged *self, const config_bridge &bridge, FILE *out) {
    const kolt_name_text name(bridge.name);
    link_info link;
    if (link_find(self->rtnl, name.text, &link) != 0)
        return true;
    const char *obstacle = bridge_obstacle(self, link.index);
    if (obstacle != nullptr)
        (void)fprintf(out, "no       %s %s\n", name.text, obstacle);
    return obstacle == nullptr;
}

} // namespace

const char *refusal_of(const bridge_settings &settings) {
    if (settings.stp != 0)
        return "runs a spanning tree; only one can decide which links carry broadcast (ip link set dev BRIDGE type "
               "bridge stp_state 0)";
    if (settings.vlan_filtering)
        return "tells VLANs apart, which the streams' tables do not";
    return obstacle_of_mask(settings.group_fwd_mask);
}

bool refusal_allows_port(const bridge_node *node, const node_port &port) {
    const offload_findings found = offload_find(node->owner->rtnl, port.name);
    for (const offload_finding *finding : {&found.switch_chip, &found.tc_offload, &found.flow_table}) {
        if (finding->answer == OFFLOAD_UNKNOWN)
            KOLT_INFO("%s", finding->sentence.data());
        if (finding->answer != OFFLOAD_YES)
            continue;
        KOLT_ERROR("%s: refused: %s", port.name, finding->sentence.data());
        return false;
    }
    bridge_port described;
    const bool asked = bridge_port_get(node->owner->rtnl, port.ifindex, &described) == 0;
    const char *obstacle = asked ? obstacle_of_mask(described.group_fwd_mask) : nullptr;
    if (obstacle != nullptr)
        KOLT_ERROR("%s: refused: it %s", port.name, obstacle);
    return obstacle == nullptr;
}

void refusal_watch_port(node_port *port, const link_info &link) {
    const char *obstacle = obstacle_of_mask(link.group_fwd_mask);
    if (obstacle != nullptr && !port->unfit)
        KOLT_ERROR_AS("refusal_watch", "%s: stays guarded, though it now %s", port->name, obstacle);
    port->unfit = obstacle != nullptr;
}

void refusal_watch_bridge(bridge_node *node) {
    const char *obstacle = bridge_obstacle(node->owner, node->ifindex);
    if (obstacle != nullptr && obstacle != node->unfit)
        KOLT_ERROR_AS("refusal_watch", "%s: stays guarded, though it now %s", node->name, obstacle);
    node->unfit = obstacle;
}

bool refusal_allows_bridge(bridge_node *node, uint32_t ifindex) {
    const char *obstacle = bridge_obstacle(node->owner, ifindex);
    if (obstacle != nullptr && node->refused != ifindex)
        KOLT_ERROR("%s: refused: it %s", node->name, obstacle);
    node->refused = obstacle != nullptr ? ifindex : 0;
    return obstacle == nullptr;
}

bool refusal_check(bridged *self, FILE *out) {
    const kernel_features found = features_find(self->settings.pin_folder);
    bool fine = true;
    for (const feature *each : {&found.kernel, &found.cap_net_admin, &found.cap_bpf, &found.cap_net_raw, &found.bridge,
                                &found.clsact, &found.programs, &found.attach, &found.pin_folder})
        fine &= print_feature(out, *each);
    for (uint32_t i = 0; i < self->configured.bridge_num; i++)
        fine &= check_bridge(self, self->configured.bridges[i], out);
    kolt_own_programs own;
    kolt_reason why;
    if (!own.find(self->settings.pin_folder, &why)) {
        (void)fprintf(out, "no       %s\n", why.text);
        fine = false;
    }
    for (uint32_t i = 0; i < self->configured.interface_num; i++)
        fine &= check_interface(self, self->configured.interfaces[i], own, out);
    (void)fprintf(out, "%s\n", fine ? "nothing is missing" : "kolt-bridged cannot keep this node free of loops");
    return fine;
}
