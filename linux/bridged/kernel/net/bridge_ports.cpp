// Reading and setting bridges and their ports.
#include "kernel/net/bridge_ports.h"

#include "kernel/net/attributes.h"

#include <cerrno>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace {

// The highest kinds that are read, of a port and of a bridge.
constexpr uint16_t PORT_KINDS = IFLA_BRPORT_LOCKED;
constexpr uint16_t BRIDGE_KINDS = IFLA_BR_MCAST_SNOOPING;

bool is_on(const nlattr *attribute, bool missing) {
    return attribute_number<uint8_t>(attribute, missing ? 1 : 0) != 0;
}

// A kernel without snooping has no router ports, which nothing sets either.
void read_port(const nlattr *nest, bridge_port *port) {
    const attribute_table<PORT_KINDS> attributes(nest);
    bridge_port_flags &flags = port->flags;
    flags.learning = is_on(attributes[IFLA_BRPORT_LEARNING], true);
    flags.flood = is_on(attributes[IFLA_BRPORT_UNICAST_FLOOD], true);
    flags.mcast_flood = is_on(attributes[IFLA_BRPORT_MCAST_FLOOD], true);
    flags.bcast_flood = is_on(attributes[IFLA_BRPORT_BCAST_FLOOD], true);
    flags.mcast_router = static_cast<bridge_mcast_router>(
        attribute_number<uint8_t>(attributes[IFLA_BRPORT_MULTICAST_ROUTER], MCAST_ROUTER_LEARNT));
    port->number = attribute_number<uint16_t>(attributes[IFLA_BRPORT_NO]);
    port->state = attribute_number<uint8_t>(attributes[IFLA_BRPORT_STATE]);
    port->hairpin = is_on(attributes[IFLA_BRPORT_MODE], false);
    port->isolated = is_on(attributes[IFLA_BRPORT_ISOLATED], false);
    port->locked = is_on(attributes[IFLA_BRPORT_LOCKED], false);
    port->group_fwd_mask = attribute_number<uint16_t>(attributes[IFLA_BRPORT_GROUP_FWD_MASK]);
}

// What the bridge told about its port: it stands in one place of its own messages, and in another of messages about
// interfaces.
const nlattr *port_attributes(uint8_t family, const attribute_table<IFLA_LINKINFO> &attributes) {
    if (family == AF_BRIDGE)
        return attributes[IFLA_PROTINFO];
    const attribute_table<IFLA_INFO_SLAVE_DATA> info(attributes[IFLA_LINKINFO]);
    return attribute_text(info[IFLA_INFO_SLAVE_KIND]) == "bridge" ? info[IFLA_INFO_SLAVE_DATA] : nullptr;
}

// Asks about one interface; `taken` tells whether the answer was what was wanted.
int get(rtnl_socket &rtnl, uint32_t index, callback_ref<void(const nlmsghdr &, bool *)> take) {
    if (index == 0)
        return ENODEV;
    rtnl_message message(RTM_GETLINK, 0);
    message.head<ifinfomsg>()->ifi_index = static_cast<int>(index);
    mnl_attr_put_u32(message.header, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
    bool taken = false;
    const auto take_one = [&](const nlmsghdr &answer) { take(answer, &taken); };
    const int result = rtnl.get(message, take_one);
    return result == 0 && !taken ? EOPNOTSUPP : result;
}

// The beginning of a message that sets a port; what the nest is to hold is added by the caller, who ends it.
nlattr *begin_setting(rtnl_message &message, uint32_t port) {
    auto *head = message.head<ifinfomsg>();
    head->ifi_family = AF_BRIDGE;
    head->ifi_index = static_cast<int>(port);
    return mnl_attr_nest_start(message.header, IFLA_PROTINFO);
}

void put_switch(rtnl_message &message, uint16_t kind, bool on) {
    mnl_attr_put_u8(message.header, kind, on ? 1 : 0);
}

} // namespace

bool bridge_parse(const nlmsghdr &message, bridge_settings *settings) {
    const attribute_table<IFLA_LINKINFO> attributes(message, sizeof(ifinfomsg));
    const attribute_table<IFLA_INFO_DATA> info(attributes[IFLA_LINKINFO]);
    if (attribute_text(info[IFLA_INFO_KIND]) != "bridge")
        return false;
    const attribute_table<BRIDGE_KINDS> bridge(info[IFLA_INFO_DATA]);
    settings->stp = attribute_number<uint32_t>(bridge[IFLA_BR_STP_STATE]);
    settings->ageing_ticks = attribute_number<uint32_t>(bridge[IFLA_BR_AGEING_TIME]);
    settings->group_fwd_mask = attribute_number<uint16_t>(bridge[IFLA_BR_GROUP_FWD_MASK]);
    settings->vlan_filtering = is_on(bridge[IFLA_BR_VLAN_FILTERING], false);
    settings->mcast_snooping = is_on(bridge[IFLA_BR_MCAST_SNOOPING], false);
    return true;
}

int bridge_get(rtnl_socket &rtnl, uint32_t bridge, bridge_settings *settings) {
    *settings = {.index = bridge};
    const auto take = [&](const nlmsghdr &answer, bool *taken) { *taken = bridge_parse(answer, settings); };
    return get(rtnl, bridge, take);
}

bool bridge_port_parse(const nlmsghdr &message, bridge_port *port) {
    if (message.nlmsg_type != RTM_NEWLINK && message.nlmsg_type != RTM_DELLINK)
        return false;
    if (mnl_nlmsg_get_payload_len(&message) < sizeof(ifinfomsg))
        return false;
    const auto *head = static_cast<const ifinfomsg *>(mnl_nlmsg_get_payload(&message));
    *port = {};
    port->index = static_cast<uint32_t>(head->ifi_index);
    if (message.nlmsg_type == RTM_DELLINK)
        return head->ifi_family == AF_BRIDGE;
    const attribute_table<IFLA_LINKINFO> attributes(message, sizeof *head);
    const nlattr *told = port_attributes(head->ifi_family, attributes);
    if (told == nullptr)
        return false;
    port->bridge = attribute_number<uint32_t>(attributes[IFLA_MASTER]);
    read_port(told, port);
    return true;
}

int bridge_ports_dump(rtnl_socket &rtnl, uint32_t bridge, callback_ref<void(const bridge_port &)> each) {
    rtnl_message message(RTM_GETLINK, 0);
    message.head<ifinfomsg>();
    mnl_attr_put_u32(message.header, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
    if (bridge != 0)
        mnl_attr_put_u32(message.header, IFLA_MASTER, bridge);
    const auto take = [&](const nlmsghdr &answer) {
        bridge_port port;
        if (bridge_port_parse(answer, &port))
            each(port);
    };
    return rtnl.dump(message, take);
}

int bridge_port_get(rtnl_socket &rtnl, uint32_t port, bridge_port *described) {
    const auto take = [&](const nlmsghdr &answer, bool *taken) { *taken = bridge_port_parse(answer, described); };
    return get(rtnl, port, take);
}

int bridge_port_set(rtnl_socket &rtnl, uint32_t port, const bridge_port_flags &flags) {
    rtnl_message message(RTM_SETLINK, 0);
    nlattr *nest = begin_setting(message, port);
    put_switch(message, IFLA_BRPORT_LEARNING, flags.learning);
    put_switch(message, IFLA_BRPORT_UNICAST_FLOOD, flags.flood);
    put_switch(message, IFLA_BRPORT_MCAST_FLOOD, flags.mcast_flood);
    put_switch(message, IFLA_BRPORT_BCAST_FLOOD, flags.bcast_flood);
    mnl_attr_put_u8(message.header, IFLA_BRPORT_MULTICAST_ROUTER, flags.mcast_router);
    mnl_attr_nest_end(message.header, nest);
    return rtnl.request(message);
}

int bridge_port_set_forwarding(rtnl_socket &rtnl, uint32_t port, bool forwarding) {
    rtnl_message message(RTM_SETLINK, 0);
    nlattr *nest = begin_setting(message, port);
    mnl_attr_put_u8(message.header, IFLA_BRPORT_STATE, forwarding ? BR_STATE_FORWARDING : BR_STATE_DISABLED);
    mnl_attr_nest_end(message.header, nest);
    return rtnl.request(message);
}

int bridge_port_flush(rtnl_socket &rtnl, uint32_t port) {
    rtnl_message message(RTM_SETLINK, 0);
    nlattr *nest = begin_setting(message, port);
    mnl_attr_put(message.header, IFLA_BRPORT_FLUSH, 0, nullptr);
    mnl_attr_nest_end(message.header, nest);
    return rtnl.request(message);
}
