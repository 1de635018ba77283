// What there is to say about a file, each with its place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

enum check_level : uint8_t {
    CHECK_ERROR = 0,   // the daemon does not start
    CHECK_WARNING = 1, // it runs, but not as the file reads
    CHECK_NOTE = 2,    // something in the file is of no use
};

struct check_finding {
    size_t at = 0; // in bytes from the file's begin
    check_level level = CHECK_WARNING;
    const char *code = ""; // what kind of finding, for programs that read it
    std::string text;
    size_t line = 0; // from 1, as is the column, which counts characters
    size_t column = 0;
};

// The word that a level is written as.
[[nodiscard]] const char *check_level_name(check_level level);

// Puts the findings in the order of the text and fills in their lines and columns.
void check_place_findings(std::string_view text, std::vector<check_finding> *findings);
