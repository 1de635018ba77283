// What a misspelt word was meant to be.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

// How many letters have to be changed, added, left out, or swapped with the next to make one word the other. Capitals
// count as small letters.
[[nodiscard]] size_t check_distance(std::string_view a, std::string_view b);

// The nearest of `words`, when it is near enough to be meant; null otherwise.
[[nodiscard]] const char *check_suggestion(std::string_view word, std::span<const char *const> words);
