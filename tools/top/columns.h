// Tables of text: which columns fit a line, and a row of them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>

struct top_column {
    const char *title;
    uint8_t width;
    bool right;         // aligned, as numbers are
    uint8_t importance; // 0: always shown; the highest goes first where the line is short
};

constexpr unsigned int TOP_COLUMN_GAP = 2;

// The highest importance whose columns, with all of a lower one, fit `width` characters.
uint8_t top_importance_that_fits(std::span<const top_column> columns, unsigned int width);

// Writes the shown cells of a row, each cut to its column, without a line's end. A null cell is empty.
void top_print_row(FILE *out, std::span<const top_column> columns, uint8_t importance, const char *const *cells);

// The same for the columns' titles.
void top_print_titles(FILE *out, std::span<const top_column> columns, uint8_t importance);
