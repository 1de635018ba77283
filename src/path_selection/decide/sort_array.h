// Sorting of samples.
#pragma once

#include <cstdint>

// Sorts in descending order and returns the number of values before the first 0; 0 for a null or empty array.
uint8_t kolt_sort_array(uint16_t *values, uint32_t length);
