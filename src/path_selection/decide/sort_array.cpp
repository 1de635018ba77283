// A sort that moves no equal values, for arrays of at most a few dozen.
#include "path_selection/decide/sort_array.h"

#include <utility>

uint8_t kolt_sort_array(uint16_t *values, uint32_t length) {
    if (values == nullptr || length == 0)
        return 0;
    for (uint32_t end = length; end > 1; end--) {
        for (uint32_t i = 1; i < end; i++) {
            if (values[i - 1] < values[i])
                std::swap(values[i - 1], values[i]);
        }
    }
    uint8_t count = 0;
    for (uint32_t i = 0; i < length && values[i] != 0; i++)
        count++;
    return count;
}
