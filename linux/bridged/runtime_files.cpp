// The runtime files under /tmp and the Ethernet options of the node's settings.
#include "bridged/runtime_files.h"

#include "bridged/replace_file.h"
#include "core/log.h"

#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char *LINK_FILES[KOLT_LINK_COUNT] = {"/tmp/eth_runtime_info", "/tmp/plc_runtime_info",
                                                     "/tmp/wifi_runtime_info.2g", "/tmp/wifi_runtime_info.5g",
                                                     "/tmp/wifi_runtime_info.5g2"};
constexpr const char *WORK_MODE_FILE = "/tmp/work_mode";

// The options are state, not settings: they go where changes are kept until the next start. Only the section that they
// belong to has to be there.
constexpr const char *SETTINGS_FILE = "/etc/config/tolmux";
constexpr const char *SETTINGS_STATE = "/var/state/tolmux";
constexpr char SETTINGS_SECTION[] = "config tolmux 'tolmux'\n";

constexpr size_t TEXT_SIZE = 512;

constexpr const char *mode_name(kolt_work_mode mode) {
    return mode == KOLT_MODE_RE ? "RE" : mode == KOLT_MODE_HAP ? "HAP" : "FAP";
}

// kolt tells a link to the root by its access point's MAC: the root's own with a number added that depends on the link.
void access_point_mac(const node_report &now, kolt_link_type type, uint8_t *mac) {
    const link_report &link = now.links[type];
    memcpy(mac, link.to_root ? now.root : link.neighbour, KOLT_MAC_SIZE);
    if (!link.to_root)
        return;
    if (type == KOLT_LINK_2G || type == KOLT_LINK_5G)
        kolt_mac_add(mac, type == KOLT_LINK_2G ? 2 : 3);
    else if (type == KOLT_LINK_5G_2)
        mac[0] = 0; // here the first octet itself is what is added
}

bool write_link(const node_report &now, kolt_link_type type) {
    char text[TEXT_SIZE];
    uint8_t mac[KOLT_MAC_SIZE];
    access_point_mac(now, type, mac);
    char plc[24] = "";
    if (type == KOLT_LINK_PLC)
        (void)snprintf(plc, sizeof(plc), ", \"cap_has_plc\": %d", now.root_has_plc ? 1 : 0);
    const int length =
        snprintf(text, sizeof(text), "{ \"status\": %d, \"rootap_mac\": \"%02X:%02X:%02X:%02X:%02X:%02X\"%s }\n",
                 now.links[type].up ? 1 : 0, KOLT_MAC_OCTETS(mac), plc);
    return replace_file(LINK_FILES[type], text, static_cast<size_t>(length));
}

bool write_work_mode(const node_report &now) {
    char text[TEXT_SIZE];
    const int length = snprintf(text, sizeof(text),
                                "{ \"work_mode\": \"%s\", \"cap_mac\": \"%02X:%02X:%02X:%02X:%02X:%02X\", "
                                "\"parent_mac\": \"%02X:%02X:%02X:%02X:%02X:%02X\" }\n",
                                mode_name(now.mode), KOLT_MAC_OCTETS(now.root), KOLT_MAC_OCTETS(now.parent));
    return replace_file(WORK_MODE_FILE, text, static_cast<size_t>(length));
}

bool make_settings_section() {
    if (access(SETTINGS_FILE, F_OK) == 0)
        return true;
    (void)mkdir("/etc/config", 0755); // one that is there already is what we want
    return replace_file(SETTINGS_FILE, SETTINGS_SECTION, sizeof(SETTINGS_SECTION) - 1);
}

bool write_settings(const node_report &now) {
    if (!make_settings_section())
        return false;
    (void)mkdir("/var/state", 0755);
    char text[TEXT_SIZE];
    const int length = snprintf(text, sizeof(text),
                                "tolmux.tolmux.TrafficEthActive='%d'\n"
                                "tolmux.tolmux.TrafficEthInterface='%s'\n"
                                "tolmux.tolmux.eth_HasNeigh='%u'\n",
                                now.ethernet_uplink[0] != '\0' ? 1 : 0, kolt_name_text(now.ethernet_uplink).text,
                                now.ethernet_neighbours);
    return replace_file(SETTINGS_STATE, text, static_cast<size_t>(length));
}

bool same_role(const node_report &a, const node_report &b) {
    return a.mode == b.mode && kolt_mac_equal(a.root, b.root) == 1 && kolt_mac_equal(a.parent, b.parent) == 1;
}

bool same_link(const node_report &a, const node_report &b, kolt_link_type type) {
    const link_report &x = a.links[type];
    const link_report &y = b.links[type];
    return x.up == y.up && x.to_root == y.to_root && kolt_mac_equal(x.neighbour, y.neighbour) == 1 &&
           (!x.to_root || kolt_mac_equal(a.root, b.root) == 1) &&
           (type != KOLT_LINK_PLC || a.root_has_plc == b.root_has_plc);
}

bool same_settings(const node_report &a, const node_report &b) {
    return kolt_name_equal(a.ethernet_uplink, b.ethernet_uplink) && a.ethernet_neighbours == b.ethernet_neighbours;
}

} // namespace

void runtime_files_write(const node_report &now, node_report *written, bool all) {
    bool complete = true;
    // The role comes first: whoever is told of a link looks at it at once.
    if (all || !same_role(now, *written))
        complete &= write_work_mode(now);
    for (kolt_link_type type : KOLT_LINKS) {
        if (all || !same_link(now, *written, type))
            complete &= write_link(now, type);
    }
    if (all || !same_settings(now, *written))
        complete &= write_settings(now);
    if (complete)
        *written = now;
}
