// A link message and its wireless records are walked with every length checked against what was received.
#include "core/hub/link_notification.h"

#include "core/config.h"
#include "core/hub/dispatch.h"
#include "core/log.h"
#include "core/names.h"
#include "probes/ports.h"
#include "probes/table_flush.h"

#include <cstring>
#include <duon_bridge.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <span>

namespace {

constexpr char HANDLER[] = "nl_wifi_newlink_handle";

constexpr size_t RECORD_HEAD_SIZE = 4; // of a wireless event record: length and command
constexpr uint16_t WIRELESS_STATION_EXPIRED = 0x8C04;
constexpr size_t HIGHEST_ATTRIBUTE = 39;
constexpr size_t LONGEST_BASE_NAME = 13; // with ".1" behind it, it still fits an interface name

using bytes = std::span<const uint8_t>;

uint16_t read_u16(bytes at, size_t offset) {
    uint16_t value;
    memcpy(&value, at.data() + offset, sizeof value);
    return value;
}

// Whether the wireless event records in `records` tell of an expired station.
bool station_expired(bytes records) {
    bool expired = false;
    while (records.size() >= RECORD_HEAD_SIZE) {
        const size_t length = read_u16(records, 0);
        if (length <= RECORD_HEAD_SIZE || length > records.size()) {
            KOLT_ERROR_AS(HANDLER, "Event len is not available");
            return expired;
        }
        if (read_u16(records, sizeof(uint16_t)) == WIRELESS_STATION_EXPIRED)
            expired = true;
        records = records.subspan(length);
    }
    return expired;
}

// Walks the attributes of a link message; the last wireless one counts.
bool attributes_tell_expiry(bytes attributes) {
    bool expired = false;
    while (attributes.size() >= sizeof(rtattr)) {
        const size_t length = read_u16(attributes, offsetof(rtattr, rta_len));
        const size_t type = read_u16(attributes, offsetof(rtattr, rta_type));
        if (length < sizeof(rtattr) || length > attributes.size())
            break;
        if (type <= HIGHEST_ATTRIBUTE && type == IFLA_WIRELESS)
            expired = station_expired(attributes.subspan(sizeof(rtattr), length - sizeof(rtattr)));
        const size_t padded = RTA_ALIGN(length);
        if (padded >= attributes.size())
            break;
        attributes = attributes.subspan(padded);
    }
    return expired;
}

using vlan_name = char[KOLT_NAME_SIZE];

// The configured interface that `name`, or else its first VLAN, names. Fills both VLAN names in the second case.
config_interface *find_interface(config *config, const char *name, vlan_name (&vlans)[2]) {
    config_interface *port = config_find_interface_by_name(config, name);
    if (port != nullptr || strlen(name) > LONGEST_BASE_NAME)
        return port;
    (void)kolt_get_vlan_name(vlans[0], name, 1, 1);
    (void)kolt_get_vlan_name(vlans[1], name, 2, 1);
    return config_find_interface_by_name(config, vlans[0]);
}

// Makes every active bridge forget what it learnt behind the ports called `name`.
void forget_port(config *config, const char *name) {
    for (uint32_t i = 0; i < config->bridge_num; i++) {
        const kolt_name_text bridge(config->bridges[i].name);
        if (kolt_check_active_bridge(bridge.text) == 0)
            continue;
        kolt_port_list ports;
        (void)kolt_get_active_ports(config, bridge.text, &ports); // none after a failure, which it logs
        for (const config_interface *port : ports.span()) {
            if (kolt_name_equal(port->name, name))
                (void)bridgeDelFdbByName(bridge.text, name);
        }
    }
}

} // namespace

void wifi_flush_ha_table(config *config) {
    kolt_flush_tables(*config, bridgeFlushHATable, {__func__, __LINE__, "bridgeFlushHATable fail"});
}

void nl_wifi_newlink_handle(const nlmsghdr *message) {
    if (message->nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg)))
        return;
    const bytes body(reinterpret_cast<const uint8_t *>(message) + NLMSG_HDRLEN, message->nlmsg_len - NLMSG_HDRLEN);
    ifinfomsg info;
    memcpy(&info, body.data(), sizeof info);

    char name[IF_NAMESIZE] = {};
    if (config_index_to_name(static_cast<uint32_t>(info.ifi_index), name) == 0) {
        KOLT_ERROR("config_index_to_name fail");
        return; // no name, no interface
    }
    config *config = event_config(l_ev);
    vlan_name vlans[2] = {};
    const config_interface *port = find_interface(config, name, vlans);
    if (port == nullptr || port->path == 0 || port->is_nonrelay())
        return;
    if (!attributes_tell_expiry(body.subspan(sizeof info)))
        return;
    KOLT_DEBUG("wifi flush table");
    wifi_flush_ha_table(config);
    for (const vlan_name &vlan : vlans)
        forget_port(config, vlan);
}
