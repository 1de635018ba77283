// Arrays of numbers as the log prints them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>

// Writes "1, 2, 3" into `text`, as far as it fits its size, terminated.
void ps_print_numbers(std::span<char> text, std::span<const int> numbers);

// The text of `Count` numbers of at most 11 characters each.
template <size_t Count> struct ps_number_list {
    char text[Count * sizeof "-2147483648, "];

    template <class Number> explicit ps_number_list(std::span<const Number, Count> numbers) {
        int list[Count];
        std::copy(numbers.begin(), numbers.end(), list);
        ps_print_numbers(text, list);
    }
};
