// Any bytes as a link notification, for a node with Wi-Fi paths of each kind.
#include "core/config.h"
#include "core/hub/hub.h"
#include "core/hub/link_notification.h"
#include "core/log.h"
#include "core_log.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <duon_bridge.h>
#include <eth_encap.h>
#include <linux/netlink.h>
#include <memory>
#include <net/if.h>

extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
char *__wrap_if_indextoname(unsigned int index, char *name);
}

namespace {

// By kernel index, from 1. Names of 13 characters still have VLANs, names of 14 have none.
constexpr std::array<const char *, 8> NAMES = {"wlan0",         "wlan0.1",        "wlan0.2",         "wlan1",
                                               "abcdefghijklm", "abcdefghijklmn", "abcdefghijklm.1", "eth0"};
constexpr size_t HEADER = 52; // of a table buffer
constexpr uint32_t PORT_RECORD = 36;

int flushes;

void require(bool condition) {
    if (!condition)
        abort();
}

void add_interface(config *record, const char *name, uint8_t path, uint8_t relay) {
    config_interface *port = &record->interfaces[record->interface_num++];
    strncpy(port->name, name, sizeof port->name);
    port->path = path;
    port->relay = relay;
}

void add_bridge(config *record, const char *name, uint32_t flags) {
    strncpy(record->bridges[record->bridge_num].name, name, KOLT_NAME_SIZE);
    record->bridges[record->bridge_num++].flags = flags;
}

config *node() {
    static config record;
    if (record.bridge_num != 0)
        return &record;
    add_bridge(&record, "br-lan", CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION);
    add_bridge(&record, "br-off", CONFIG_LOOP_AVOIDANCE);
    add_bridge(&record, "br-guest", 0);
    add_interface(&record, "wlan0.1", 1, 1);
    add_interface(&record, "wlan0.2", 1, 0);
    add_interface(&record, "wlan1", 1, 1);
    add_interface(&record, "abcdefghijklm.1", 1, 1);
    add_interface(&record, "eth0", 0, 1);
    return &record;
}

bool is_active(const char *bridge) {
    return strcmp(bridge, "br-off") != 0;
}

} // namespace

char *__wrap_if_indextoname(unsigned int index, char *name) {
    return index >= 1 && index <= NAMES.size() ? strcpy(name, NAMES[index - 1]) : nullptr;
}

void *bridgeAllocTableBuf(uint32_t size, const char *bridge) {
    auto *message = static_cast<char *>(calloc(1, HEADER + size));
    strcpy(message + 16, bridge);
    return message + HEADER;
}

void bridgeFreeTableBuf(void *buf) {
    free(static_cast<char *>(buf) - HEADER);
}

// Each active bridge has every interface as a port.
int netlink_msg(int type, void *message, uint32_t payload_size, int /*protocol*/) {
    auto *bytes = static_cast<char *>(message);
    if (!is_active(bytes + 16))
        return -1;
    const auto length = static_cast<uint32_t>(NAMES.size()) * PORT_RECORD;
    for (uint32_t i = 0; type == 256 && i < NAMES.size(); i++) {
        const uint32_t index = i + 1;
        memcpy(bytes + HEADER + i * PORT_RECORD, &index, sizeof index);
    }
    memcpy(bytes + HEADER - 8, &length, sizeof length);
    return payload_size == 0 ? -1 : 0;
}

int bridgeFlushHATable(const char *bridge) {
    require(strcmp(bridge, "br-lan") == 0);
    return flushes++ & 1;
}

int bridgeDelFdbByName(const char *bridge, const char *ifname) {
    require(is_active(bridge) && flushes == 1);
    require(strcmp(ifname, "wlan0.1") == 0 || strcmp(ifname, "wlan0.2") == 0 || strcmp(ifname, "abcdefghijklm.1") == 0);
    return 0;
}

int bridgeSetEventInfo(const char * /*bridge*/, int /*pid*/, int /*events*/, int /*protocol*/) {
    abort(); // belongs to the hub's sockets, which a message alone does not open
}

// The datagram goes where the socket's handler would let it go, in a buffer that ends with the message.
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    nlmsghdr header;
    if (size < sizeof header)
        return 0;
    memcpy(&header, data, sizeof header);
    if (header.nlmsg_len < sizeof header || header.nlmsg_len > size)
        return 0;
    const std::unique_ptr<uint8_t[]> message(new uint8_t[header.nlmsg_len]);
    memcpy(message.get(), data, header.nlmsg_len);

    log_level = KOLT_LOG_DUMP;
    flushes = 0;
    l_ev = &node()->ev;
    nl_wifi_newlink_handle(reinterpret_cast<const nlmsghdr *>(message.get()));
    require(flushes <= 1);
    return 0;
}
