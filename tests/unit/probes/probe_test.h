// What every test of the probes stands on.
#pragma once

#include "mac_address.h"

#include "support/fixture.h"
#include "support/rows.h"

#include <cstdint>
#include <cstdio>
#include <string>

using probe = fixture;

constexpr char WORK_MODE[] = "/tmp/work_mode";

// A fixture for the rows of a table.
template <class Row, class Fixture = probe> using probe_rows = table_test<Row, Fixture>;

// One JSON file's text and what is made of it.
struct file_row {
    const char *name;
    const char *text;
    uint32_t expected;
};

// A JSON object with some 40000 bytes of another key before `members`.
inline std::string long_object(const std::string &members) {
    return "{\"padding\": \"" + std::string(40000, 'x') + "\", " + members + "}";
}
