// A report for people, for programs, and the list of all settings.
#pragma once

#include "check/report.h"

#include <cstdio>
#include <string_view>

// One line a finding, as compilers write them: "file:line:column: warning: text [code]".
void check_print_findings(FILE *out, std::string_view file, const check_report &report);

// What the daemon would run with.
void check_print_values(FILE *out, const check_report &report);

// Findings and values as one JSON object.
void check_print_json(FILE *out, std::string_view file, const check_report &report);

// The table of all settings as JSON.
void check_print_settings(FILE *out);
