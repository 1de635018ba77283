// One setting: what the file says, what the daemon makes of it, and what is to be said about the difference.
#pragma once

#include "check/report.h"
#include "check/scan.h"

#include <json-c/json.h>
#include <string_view>

// An object of the file with what the loader made of it.
struct check_section {
    std::string_view text;               // of the whole file
    json_object *object = nullptr;       // null when it is missing
    const check_value *places = nullptr; // null when it is missing or no object
    size_t at = 0;                       // where to point when a key is missing
    const void *record = nullptr;        // of the kind that the rows' places are in
    std::vector<check_finding> *findings = nullptr;
};

// What the daemon runs with for a setting that has a value, and where it comes from. Adds findings about what the file
// says.
[[nodiscard]] check_setting check_read_setting(const check_section &section, const config_setting &row);

// Adds findings about a setting without a value of its own: a text, a type's name, a number that selects.
void check_other_setting(const check_section &section, const config_setting &row);

// Whether the daemon decides itself whether the port relays, as it does of wired ports when it programs their bridge.
[[nodiscard]] bool check_is_relay_overwritten(const config &record, const config_interface &port);

// A setting's value in words: "on", "70".
[[nodiscard]] std::string check_value_text(const check_setting &setting);
