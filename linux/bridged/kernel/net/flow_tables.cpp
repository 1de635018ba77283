// Asking the packet filter.
#include "kernel/net/flow_tables.h"

#include "kernel/net/attributes.h"
#include "kernel/net/text.h"

#include <arpa/inet.h>
#include <cerrno>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

namespace {

constexpr uint16_t message_type(uint8_t kind) {
    return static_cast<uint16_t>(NFNL_SUBSYS_NFTABLES << 8 | kind);
}

struct device_search {
    std::string_view wanted;
    bool found = false;
};

// Some kernels let a name end in '*', for all interfaces that begin so.
bool names_device(std::string_view text, std::string_view device) {
    if (!text.ends_with('*'))
        return text == device;
    text.remove_suffix(1);
    return device.starts_with(text);
}

int take_device(const nlattr *attribute, void *context) {
    auto *search = static_cast<device_search *>(context);
    search->found = search->found || names_device(attribute_text(attribute), search->wanted);
    return MNL_CB_OK;
}

bool names_device(const nlattr *hook, std::string_view device) {
    const attribute_table<NFTA_FLOWTABLE_HOOK_DEVS> attributes(hook);
    const nlattr *devices = attributes[NFTA_FLOWTABLE_HOOK_DEVS];
    device_search search{.wanted = device};
    if (devices != nullptr)
        (void)mnl_attr_parse_nested(devices, take_device, &search);
    return search.found;
}

// Without flow tables the kernel knows no such request, and without the packet filter no such protocol.
bool is_unknown_to_kernel(int code) {
    return code == EOPNOTSUPP || code == EINVAL || code == EPROTONOSUPPORT;
}

} // namespace

bool flow_table_parse(const nlmsghdr &message, std::string_view ifname, flow_table_use *use) {
    if (message.nlmsg_type != message_type(NFT_MSG_NEWFLOWTABLE))
        return false;
    const attribute_table<NFTA_FLOWTABLE_FLAGS> attributes(message, sizeof(nfgenmsg));
    if (!names_device(attributes[NFTA_FLOWTABLE_HOOK], ifname))
        return false;
    use->found = true;
    use->hardware =
        (ntohl(attribute_number<uint32_t>(attributes[NFTA_FLOWTABLE_FLAGS])) & NFT_FLOWTABLE_HW_OFFLOAD) != 0;
    copy_text(&use->name, attribute_text(attributes[NFTA_FLOWTABLE_NAME]));
    return true;
}

int flow_table_find(const char *ifname, flow_table_use *use) {
    *use = {};
    rtnl_socket filter;
    int result = filter.open(NETLINK_NETFILTER);
    rtnl_message message(message_type(NFT_MSG_GETFLOWTABLE), 0);
    message.head<nfgenmsg>()->nfgen_family = NFPROTO_UNSPEC;
    const auto take = [&](const nlmsghdr &answer) {
        flow_table_use one;
        if (flow_table_parse(answer, ifname, &one) && !use->hardware)
            *use = one;
    };
    if (result == 0)
        result = filter.dump(message, take);
    return is_unknown_to_kernel(result) ? 0 : result;
}
