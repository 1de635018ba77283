// One loop for every array that is printed.
#include "path_selection/number_list.h"

#include <cstdio>

void ps_print_numbers(std::span<char> text, std::span<const int> numbers) {
    size_t length = 0;
    text[0] = '\0';
    for (const int number : numbers) {
        const int written =
            snprintf(text.data() + length, text.size() - length, "%s%d", length == 0 ? "" : ", ", number);
        length = std::min(length + static_cast<size_t>(written), text.size() - 1);
    }
}
