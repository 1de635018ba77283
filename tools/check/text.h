// Bytes from a file, and how they are shown.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

constexpr size_t CHECK_LARGEST_FILE = size_t{64} << 20; // no configuration comes near; a device never ends

// Reads the whole file at `path`, standard input for "-"; false with the reason in `error`.
[[nodiscard]] bool check_read_file(const char *path, std::string *text, std::string *error);

// The length of the UTF-8 character that `text` begins with; 0 when it begins with none.
[[nodiscard]] size_t check_utf8_length(std::string_view text);

// `text` for a terminal or a JSON text: control characters and what is no UTF-8 are written as \xNN.
[[nodiscard]] std::string check_printable(std::string_view text);

// The same between double quotes.
[[nodiscard]] std::string check_quoted(std::string_view text);
