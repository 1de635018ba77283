// Reading what the kernel says about interfaces.
#include "kernel/net/links.h"

#include "kernel/net/attributes.h"
#include "kernel/net/text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if_arp.h>
#include <sys/socket.h>

namespace {

bool is_bridge(const nlattr *link_info) {
    const attribute_table<IFLA_INFO_KIND> info(link_info);
    return attribute_text(info[IFLA_INFO_KIND]) == "bridge";
}

uint16_t group_fwd_mask_of(const nlattr *link_info) {
    const attribute_table<IFLA_INFO_SLAVE_DATA> info(link_info);
    if (attribute_text(info[IFLA_INFO_SLAVE_KIND]) != "bridge")
        return 0;
    const attribute_table<IFLA_BRPORT_GROUP_FWD_MASK> port(info[IFLA_INFO_SLAVE_DATA]);
    return attribute_number<uint16_t>(port[IFLA_BRPORT_GROUP_FWD_MASK]);
}

int get(rtnl_socket &rtnl, rtnl_message &message, link_info *link) {
    bool read = false;
    const auto take = [&](const nlmsghdr &answer) { read = link_parse(answer, link); };
    const int result = rtnl.get(message, take);
    return result == 0 && !read ? ENODEV : result;
}

} // namespace

bool link_works(const link_info &link) {
    const bool let_through = link.operstate == IF_OPER_UP || link.operstate == IF_OPER_UNKNOWN;
    return !link.deleted && link.up && link.carrier && let_through;
}

// Of an address of another length, such as a tunnel's, nothing is taken.
bool link_parse(const nlmsghdr &message, link_info *link) {
    if (message.nlmsg_type != RTM_NEWLINK && message.nlmsg_type != RTM_DELLINK)
        return false;
    if (mnl_nlmsg_get_payload_len(&message) < sizeof(ifinfomsg))
        return false;
    const auto *head = static_cast<const ifinfomsg *>(mnl_nlmsg_get_payload(&message));
    if (head->ifi_family != AF_UNSPEC)
        return false;
    const attribute_table<IFLA_PHYS_SWITCH_ID> attributes(message, sizeof *head);
    *link = {};
    link->index = static_cast<uint32_t>(head->ifi_index);
    link->up = (head->ifi_flags & IFF_UP) != 0;
    link->carrier = (head->ifi_flags & IFF_LOWER_UP) != 0;
    link->deleted = message.nlmsg_type == RTM_DELLINK;
    link->master = attribute_number<uint32_t>(attributes[IFLA_MASTER]);
    link->mtu = attribute_number<uint32_t>(attributes[IFLA_MTU]);
    link->operstate = attribute_number<uint8_t>(attributes[IFLA_OPERSTATE]);
    link->is_bridge = is_bridge(attributes[IFLA_LINKINFO]);
    link->group_fwd_mask = group_fwd_mask_of(attributes[IFLA_LINKINFO]);
    link->switch_port = attributes[IFLA_PHYS_SWITCH_ID] != nullptr;
    copy_text(&link->name, attribute_text(attributes[IFLA_IFNAME]));
    const std::span<const uint8_t> address = attribute_bytes(attributes[IFLA_ADDRESS]);
    link->ethernet = head->ifi_type == ARPHRD_ETHER && address.size() == link->mac.size();
    if (link->ethernet)
        std::copy(address.begin(), address.end(), link->mac.begin());
    return true;
}

int links_dump(rtnl_socket &rtnl, callback_ref<void(const link_info &)> each) {
    rtnl_message message(RTM_GETLINK, 0);
    message.head<ifinfomsg>();
    mnl_attr_put_u32(message.header, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
    const auto take = [&](const nlmsghdr &answer) {
        link_info link;
        if (link_parse(answer, &link))
            each(link);
    };
    return rtnl.dump(message, take);
}

int link_get(rtnl_socket &rtnl, uint32_t index, link_info *link) {
    if (index == 0)
        return ENODEV;
    rtnl_message message(RTM_GETLINK, 0);
    message.head<ifinfomsg>()->ifi_index = static_cast<int>(index);
    mnl_attr_put_u32(message.header, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
    return get(rtnl, message, link);
}

int link_find(rtnl_socket &rtnl, const char *name, link_info *link) {
    const size_t length = strnlen(name, KOLT_NAME_SIZE);
    if (length == 0 || length == KOLT_NAME_SIZE)
        return ENODEV;
    rtnl_message message(RTM_GETLINK, 0);
    message.head<ifinfomsg>();
    mnl_attr_put_strz(message.header, IFLA_IFNAME, name);
    mnl_attr_put_u32(message.header, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
    return get(rtnl, message, link);
}
