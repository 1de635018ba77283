// Texts in fields of a fixed size: cut to fit, always with a terminator.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>
#include <string_view>

template <size_t Size> void copy_text(std::array<char, Size> *field, std::string_view text) {
    *field = {};
    std::copy_n(text.data(), std::min(text.size(), Size - 1), field->data());
}

// Writes the parts one behind the other.
template <size_t Size> void join_text(std::array<char, Size> *field, std::initializer_list<std::string_view> parts) {
    *field = {};
    size_t end = 0;
    for (const std::string_view part : parts) {
        const size_t size = std::min(part.size(), Size - 1 - end);
        std::copy_n(part.data(), size, field->data() + end);
        end += size;
    }
}
