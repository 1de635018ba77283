// Reading and changing the forwarding table.
#include "kernel/net/fdb.h"

#include "kernel/net/attributes.h"

#include <algorithm>
#include <cerrno>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace {

void put_mac(rtnl_message &message, const fdb_mac &mac) {
    mnl_attr_put(message.header, NDA_LLADDR, mac.size(), mac.data());
}

nda_cacheinfo times_of(const nlattr *attribute) {
    const std::span<const uint8_t> bytes = attribute_bytes(attribute);
    nda_cacheinfo times{};
    if (bytes.size() >= sizeof times)
        memcpy(&times, bytes.data(), sizeof times);
    return times;
}

struct change {
    uint16_t type;
    uint16_t flags;
    uint16_t state;
    uint8_t entry_flags;
};

// "Master" is the bridge's table rather than the addresses that the interface itself filters by.
constexpr change PIN = {RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE, NUD_NOARP, NTF_MASTER | NTF_STICKY};
constexpr change REMOVE = {RTM_DELNEIGH, 0, 0, NTF_MASTER};

int apply(rtnl_socket &rtnl, const change &what, std::span<const fdb_place> places, fdb_failure failed) {
    rtnl_batch batch(rtnl, failed);
    for (const fdb_place &place : places) {
        rtnl_message message(what.type, what.flags);
        auto *head = message.head<ndmsg>();
        head->ndm_family = AF_BRIDGE;
        head->ndm_ifindex = static_cast<int>(place.port);
        head->ndm_state = what.state;
        head->ndm_flags = what.entry_flags;
        put_mac(message, place.mac);
        (void)batch.add(message); // told by finish
    }
    return batch.finish();
}

} // namespace

bool fdb_parse(const nlmsghdr &message, fdb_record *record) {
    if (message.nlmsg_type != RTM_NEWNEIGH && message.nlmsg_type != RTM_DELNEIGH)
        return false;
    if (mnl_nlmsg_get_payload_len(&message) < sizeof(ndmsg))
        return false;
    const auto *head = static_cast<const ndmsg *>(mnl_nlmsg_get_payload(&message));
    const attribute_table<NDA_MASTER> attributes(message, sizeof *head);
    const std::span<const uint8_t> mac = attribute_bytes(attributes[NDA_LLADDR]);
    const auto bridge = attribute_number<uint32_t>(attributes[NDA_MASTER]);
    if (head->ndm_family != AF_BRIDGE || bridge == 0 || (head->ndm_flags & NTF_SELF) != 0 ||
        mac.size() != KOLT_MAC_SIZE)
        return false;
    *record = {};
    std::copy(mac.begin(), mac.end(), record->mac.begin());
    record->vlan = attribute_number<uint16_t>(attributes[NDA_VLAN]);
    record->port = static_cast<uint32_t>(head->ndm_ifindex);
    record->bridge = bridge;
    record->is_local = (head->ndm_state & NUD_PERMANENT) != 0;
    record->is_static = (head->ndm_state & (NUD_PERMANENT | NUD_NOARP)) != 0;
    record->sticky = (head->ndm_flags & NTF_STICKY) != 0;
    record->external = (head->ndm_flags & NTF_EXT_LEARNED) != 0;
    record->removed = message.nlmsg_type == RTM_DELNEIGH;
    const nda_cacheinfo times = times_of(attributes[NDA_CACHEINFO]);
    record->age_ticks = record->is_static ? 0 : times.ndm_updated;
    record->idle_ticks = std::min(times.ndm_updated, times.ndm_used);
    return true;
}

// The kernel tells the addresses that the ports themselves filter by as well, which are no entries.
int fdb_dump(rtnl_socket &rtnl, uint32_t bridge, callback_ref<void(const fdb_record &)> each) {
    rtnl_message message(RTM_GETNEIGH, 0);
    message.head<ndmsg>()->ndm_family = AF_BRIDGE;
    mnl_attr_put_u32(message.header, NDA_MASTER, bridge);
    const auto take = [&](const nlmsghdr &answer) {
        fdb_record record;
        if (fdb_parse(answer, &record))
            each(record);
    };
    return rtnl.dump(message, take);
}

int fdb_find(rtnl_socket &rtnl, uint32_t bridge, const fdb_mac &mac, fdb_record *found) {
    rtnl_message message(RTM_GETNEIGH, 0);
    message.head<ndmsg>()->ndm_family = AF_BRIDGE;
    put_mac(message, mac);
    mnl_attr_put_u32(message.header, NDA_MASTER, bridge);
    bool read = false;
    const auto take = [&](const nlmsghdr &answer) { read = fdb_parse(answer, found); };
    const int result = rtnl.get(message, take);
    return result == 0 && !read ? ENOENT : result;
}

int fdb_pin(rtnl_socket &rtnl, std::span<const fdb_place> places, fdb_failure failed) {
    return apply(rtnl, PIN, places, failed);
}

int fdb_remove(rtnl_socket &rtnl, std::span<const fdb_place> places, fdb_failure failed) {
    return apply(rtnl, REMOVE, places, failed);
}
