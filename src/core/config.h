// The configuration record: read from one JSON file at start, handed to everything.
#pragma once

#include "core/event.h"
#include "core/interface.h"
#include "core/list.h"
#include "core/names.h"

#include <cstdint>

constexpr uint32_t CONFIG_MAX_BRIDGES = 8;
constexpr uint32_t CONFIG_MAX_COUPLES = 16;

enum config_bridge_flag : uint32_t { CONFIG_LOOP_AVOIDANCE = 1U << 0, CONFIG_PATH_SELECTION = 1U << 1 };

struct config_bridge {
    char name[KOLT_NAME_SIZE] = {};
    uint32_t flags = 0;
};

struct config_couple {
    char lan[KOLT_NAME_SIZE] = {};
    char guest[KOLT_NAME_SIZE] = {};
};

struct config_param {
    uint32_t period = 0; // milliseconds
    uint8_t low_threshold = 0;
    uint8_t high_threshold = 0;  // percent
    uint8_t delta_threshold = 0; // percent
    uint8_t reserved_ratio = 0;  // percent
    uint16_t idle_threshold = 0;
    uint16_t activate_pkts = 0; // packets
    uint8_t wlan_enable = 0;
    uint8_t plc_enable = 0;
    uint8_t bcast_port_plc = 0; // written by loop avoidance: the class-0 broadcast port is a power-line port
    uint8_t plc_rate_ratio = 0; // percent
    uint8_t adjusted_streams = 0;
    uint8_t adjusted_ratio = 0; // percent
    uint8_t estimate_ack_enable = 0;
    uint8_t cpu_threshold = 0; // percent, 0: never overloaded
    uint8_t abn_threshold = 0;
    int32_t eth_vlan_id = 0; // VLAN ids: 0 is none
    int32_t iptv_vlan_id = 0;
    int32_t iptv_vlan_backhaul_id = 0;
    uint8_t cpu_limit = 0;
    uint8_t backhual_prefered = 0; // 0: none, else link type minus 1
    uint16_t rate_threshold = 0;
    uint8_t wifi_rate_check = 0;
    uint16_t rate_abnormal_threshold = 0;
    int32_t plc_vlan_backhaul_id = 0;
    int32_t plc_vlan_guest_id = 0;
    int32_t plc_vlan_iptv_id = 0;
};

struct config {
    uint8_t enable = 0;
    uint32_t bridge_num = 0;
    config_bridge bridges[CONFIG_MAX_BRIDGES];
    uint32_t interface_num = 0;
    config_interface interfaces[CONFIG_MAX_INTERFACES];
    config_param param;
    config_couple couples[CONFIG_MAX_COUPLES];
    uint32_t couple_num = 0;
    kolt_event_ctx ev;
    kolt_list modules;
};

// Empties the bridges and the interfaces. The loader keeps no memory that would have to be released.
void config_free(config *config);

// Writes the configuration to the log at debug level.
void config_dump(const config *config);

// The interface whose name equals `name` as a whole, or null. It belongs to `config`.
config_interface *config_find_interface_by_name(config *config, const char *name);

// The interface with this kernel index, or null; an index that the kernel does not know is logged.
config_interface *config_find_interface_by_index(config *config, uint32_t ifindex);

// Writes the name of a kernel interface index to `name` (at least 16 bytes); 1, or 0 when the kernel does not know it.
int config_index_to_name(uint32_t ifindex, char *name);
