// Reading the parts of a configuration into records: one setting, one bridge, interface or couple. Nothing is logged
// and nothing ends the process, so that a program that judges a file reads it as the daemon does.
#pragma once

#include "core/config.h"

#include <cstdint>
#include <json-c/json.h>

// The settings of "param" that have getters of their own instead of a place in the record.
struct config_kept {
    uint32_t timer_interval = 0; // seconds
    uint8_t util_compensation = 0;
};

// Why an interface or a couple is left out.
enum config_entry : uint8_t {
    CONFIG_ENTRY_KEPT = 0,
    CONFIG_ENTRY_NO_VLAN_ID = 1,      // the VLAN that its name needs is not configured
    CONFIG_ENTRY_NO_LINK_TYPE = 2,    // an interface: the daemon does not start
    CONFIG_ENTRY_NO_COUPLE = 3,       // a couple without the partner's name
    CONFIG_ENTRY_NO_KEY_EXCHANGE = 4, // a couple whose "key_exchange" is not the one there is
};

// Whether the daemon is to run.
[[nodiscard]] uint8_t config_read_enable(json_object *file);

void config_read_bridge(config_bridge *bridge, const char *name, json_object *value);

// Reads all of "param" anew.
void config_read_param(config_param *param, config_kept *kept, json_object *section);

// Fills the interface keyed `key`, which is to be used only when it is kept; the names need the VLAN ids of `param`.
[[nodiscard]] config_entry config_read_interface(const config_param &param, config_interface *port, const char *key,
                                                 json_object *value);

// Fills the couple keyed `key`, which is to be used only when it is kept.
[[nodiscard]] config_entry config_read_couple(const config_param &param, config_couple *couple, const char *key,
                                              json_object *value);
