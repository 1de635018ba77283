// Where the values of a JSON text stand. The daemon's parser decides what is valid and keeps no places; this follows it
// through a text that it took.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What the daemon's parser takes although it is not JSON, so that other programs may not.
enum check_oddity : uint8_t {
    CHECK_COMMENT = 0,
    CHECK_TRAILING_COMMA = 1,
    CHECK_SINGLE_QUOTES = 2,
    CHECK_CONTROL_CHARACTER = 3,
    CHECK_BAD_UTF8 = 4,
    CHECK_WORD = 5,
    CHECK_NUMBER = 6,
    CHECK_MORE_TEXT = 7,
};
constexpr size_t CHECK_ODDITIES = 8;

struct check_member;

struct check_value {
    size_t begin = 0;
    size_t end = 0;
    std::vector<check_member> members; // of an object, in the order of the text
    std::vector<uint32_t> by_key;      // their indexes in the order of the keys; equal keys in the order of the text
    size_t count = 0;                  // of an array's elements, which are not kept

    // The member that counts for `key`, the last of several; null without one.
    [[nodiscard]] const check_member *find(std::string_view key) const;
};

struct check_member {
    std::string key; // as the parser reads it: decoded, and ended by a zero byte
    size_t at = 0;   // of its opening quote
    check_value value;
};

struct check_scan {
    check_value root;
    std::array<std::optional<size_t>, CHECK_ODDITIES> oddities; // the first of each kind
};

// Follows a text whose first value is an object; none when it is no object, or not what the parser takes.
[[nodiscard]] std::optional<check_scan> check_scan_object(std::string_view text);
