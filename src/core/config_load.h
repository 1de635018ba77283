// Reading the configuration file.
#pragma once

#include "core/config.h"

#include <cstdint>
#include <json-c/json.h>

// Fills the configuration part of `config` from the JSON file at `path`. Ends the process with status 1 when the file
// cannot be parsed or an interface has no valid type.
void config_load(config *config, const char *path);

// The same from a file that was parsed already; `file` stays the caller's. An interface has to have a valid type here
// too.
void config_load_tree(config *config, json_object *file);

// The measuring period in whole seconds.
uint32_t config_get_timer_interval();

uint8_t config_get_util_compensation();
