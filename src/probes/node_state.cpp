// Every answer is read afresh: the files belong to the node's other daemons.
#include "probes/node_state.h"

#include "core/json_file.h"
#include "core/log.h"
#include "core/names.h"

#include <cstring>

namespace {

constexpr char WORK_MODE_FILE[] = "/tmp/work_mode";
constexpr char DHCP_FILE[] = "/tmp/lanwatch_recv_dhcp_if";
constexpr char MESH_FILE[] = "/tmp/sync-server/mesh_dev_list";
constexpr char LAN_FILE[] = "/tmp/runtime_ip_info_lan";
constexpr const char *LINK_FILES[KOLT_LINK_COUNT] = {
    "/tmp/eth_runtime_info",     "/tmp/plc_runtime_info",      "/tmp/wifi_runtime_info.2g",
    "/tmp/wifi_runtime_info.5g", "/tmp/wifi_runtime_info.5g2",
};

constexpr size_t MAC_TEXT_LENGTH = 17;

// What a node's MAC lacks to the MAC of its access point on a link. There is none for the second 5 GHz link.
constexpr uint8_t ROOTAP_OFFSETS[] = {0, 0, 2, 3};

bool is_up(json_object *file, const char *key) {
    json_object *value = json_member(file, key);
    return value != nullptr && json_object_get_int(value) != 0;
}

int get_mac(const char *path, const char *key, uint8_t *mac) {
    const json_ptr file = kolt_read_state_file(path);
    return kolt_str_to_mac(json_member_text(file.get(), key), mac, 1);
}

// Copies the text of a key into a 16-byte field.
int get_field(json_object *file, const char *key, char *field) {
    const char *text = json_member_text(file, key);
    if (text == nullptr)
        return 0;
    kolt_copy_name(field, text);
    return 1;
}

} // namespace

kolt_work_mode kolt_work_mode_from_string(const char *text) {
    if (text == nullptr)
        return KOLT_MODE_UNKNOWN;
    if (strcmp(text, "RE") == 0)
        return KOLT_MODE_RE;
    if (strcmp(text, "FAP") == 0 || strcmp(text, "AP") == 0)
        return KOLT_MODE_FAP;
    return strcmp(text, "HAP") == 0 ? KOLT_MODE_HAP : KOLT_MODE_UNKNOWN;
}

kolt_work_mode kolt_get_work_mode() {
    const json_ptr file = kolt_read_state_file(WORK_MODE_FILE);
    if (!file) {
        KOLT_ERROR("parse work_mode");
        return KOLT_MODE_UNKNOWN;
    }
    return kolt_work_mode_from_string(json_member_text(file.get(), "work_mode"));
}

int kolt_get_dhcp_ifname(char *name) {
    const json_ptr file = kolt_read_state_file(DHCP_FILE);
    return name != nullptr ? get_field(file.get(), "recv_dhcp_if", name) : 0;
}

int kolt_get_cap_mac(uint8_t *mac) {
    return get_mac(WORK_MODE_FILE, "cap_mac", mac);
}

int kolt_get_parent_mac(uint8_t *mac) {
    return get_mac(WORK_MODE_FILE, "parent_mac", mac);
}

int kolt_check_link_state(kolt_link_type link) {
    if (link >= KOLT_LINK_COUNT)
        return 0;
    const json_ptr file = kolt_read_state_file(LINK_FILES[link]);
    if (!file) {
        KOLT_DEBUG("parse link state %s", LINK_FILES[link]);
        return 0;
    }
    return is_up(file.get(), "status") ? 1 : 0;
}

int kolt_check_cap_has_plc() {
    const json_ptr file = kolt_read_state_file(LINK_FILES[KOLT_LINK_PLC]);
    return is_up(file.get(), "cap_has_plc") ? 1 : 0;
}

int kolt_is_plc_bcast_capable() {
    return 0;
}

int kolt_check_rootap_is_cap(kolt_link_type link, const uint8_t *cap_mac) {
    if (link >= KOLT_LINK_COUNT || cap_mac == nullptr)
        return 0;
    uint8_t rootap[KOLT_MAC_SIZE] = {};
    if (get_mac(LINK_FILES[link], "rootap_mac", rootap) == 0)
        return 0;
    uint8_t expected[KOLT_MAC_SIZE];
    memcpy(expected, cap_mac, sizeof expected);
    // The offset table ends one short: the second 5 GHz link is judged by the access point's own first octet instead,
    // and has to go on being so.
    kolt_mac_add(expected, link < sizeof ROOTAP_OFFSETS ? ROOTAP_OFFSETS[link] : rootap[0]);
    return memcmp(rootap + 1, expected + 1, KOLT_MAC_SIZE - 1) == 0 ? 1 : 0;
}

int kolt_check_direct_connect_cap() {
    uint8_t cap[KOLT_MAC_SIZE] = {};
    if (kolt_get_cap_mac(cap) == 0)
        return 0;
    for (const kolt_link_type link : KOLT_WIFI_LINKS) {
        if (kolt_check_rootap_is_cap(link, cap) == 1)
            return 1;
    }
    return 0;
}

int kolt_is_direct_connect_ap() {
    const json_ptr file = kolt_read_state_file(WORK_MODE_FILE);
    if (!file)
        return 1; // a node that cannot tell is treated as directly attached
    char texts[2][MAC_TEXT_LENGTH + 3] = {};
    const char *keys[] = {"cap_mac", "parent_mac"};
    for (size_t i = 0; i < 2; i++) {
        if (const char *text = json_member_text(file.get(), keys[i]))
            memcpy(texts[i], text, strnlen(text, MAC_TEXT_LENGTH));
    }
    return memcmp(texts[0], texts[1], MAC_TEXT_LENGTH) == 0 ? 1 : 0;
}

int kolt_get_mesh_dev_num(uint8_t *count) {
    const json_ptr file = kolt_read_state_file(MESH_FILE);
    if (!file)
        return 0;
    uint8_t devices = 0;
    if (json_object_is_type(file.get(), json_type_object)) {
        json_object_object_foreach(file.get(), name, device) {
            (void)name;
            if (json_member_text(device, "mac") != nullptr)
                devices++;
        }
    }
    *count = devices;
    return 1;
}

int kolt_get_lan_gw_ip(char *text) {
    const json_ptr file = kolt_read_state_file(LAN_FILE);
    return get_field(file.get(), "lan_gw", text);
}
