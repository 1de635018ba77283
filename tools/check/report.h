// What a file comes to: the record that the daemon would run with, where its parts come from, and what there is to say.
#pragma once

#include "check/finding.h"
#include "core/config.h"
#include "core/config_setting.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Where the value that the daemon runs with comes from.
enum check_origin : uint8_t {
    CHECK_FROM_FILE = 0,
    CHECK_DEFAULT = 1,    // the key is missing
    CHECK_CHANGED = 2,    // the file says something else
    CHECK_NO_SECTION = 3, // there is no "param" at all, so that not even the defaults are taken
};

// A setting as the daemon has it.
struct check_setting {
    const config_setting *row = nullptr;
    uint32_t value = 0;
    check_origin origin = CHECK_FROM_FILE;
    std::string given; // what the file says, as it stands there; empty when the key is missing
};

// An entry of "bridges", "interfaces" or "backhual" that is kept, in the order of the record.
struct check_entry {
    std::string key;
    size_t at = 0;
    std::vector<check_setting> settings; // of an interface
};

struct check_left_out {
    const char *section = "";
    std::string key;
    size_t at = 0;
    std::string reason;
};

struct check_report {
    bool starts = true; // false when the daemon ends with an error
    config record;
    std::vector<check_setting> param;
    std::vector<check_entry> bridges;
    std::vector<check_entry> interfaces;
    std::vector<check_entry> couples;
    std::vector<check_left_out> left_out;
    uint32_t exchanges = 0; // a bit for each "exchange" that some name is built with
    std::vector<check_finding> findings;
};
