#include "columns.h"

#include <algorithm>
#include <cstring>

namespace {

unsigned int width_of(std::span<const top_column> columns, uint8_t importance) {
    unsigned int width = 0;
    for (const top_column &column : columns) {
        if (column.importance <= importance)
            width += column.width + (width > 0 ? TOP_COLUMN_GAP : 0);
    }
    return width;
}

} // namespace

uint8_t top_importance_that_fits(std::span<const top_column> columns, unsigned int width) {
    uint8_t importance = 0;
    for (const top_column &column : columns)
        importance = std::max(importance, column.importance);
    while (importance > 0 && width_of(columns, importance) > width)
        importance--;
    return importance;
}

void top_print_row(FILE *out, std::span<const top_column> columns, uint8_t importance, const char *const *cells) {
    unsigned int owed = 0; // blanks are written before the next cell, so that none end a line
    bool first = true;
    for (const top_column &column : columns) {
        const char *cell = *cells++;
        if (column.importance > importance)
            continue;
        owed += first ? 0 : TOP_COLUMN_GAP;
        first = false;
        const unsigned int width = column.width;
        const auto length = static_cast<unsigned int>(cell != nullptr ? strnlen(cell, width) : 0);
        if (length > 0) {
            const unsigned int before = owed + (column.right ? width - length : 0);
            (void)fprintf(out, "%*s%.*s", static_cast<int>(before), "", static_cast<int>(length), cell);
            owed = 0;
        }
        owed += column.right && length > 0 ? 0 : width - length;
    }
}

void top_print_titles(FILE *out, std::span<const top_column> columns, uint8_t importance) {
    constexpr size_t MOST_COLUMNS = 16;
    const char *titles[MOST_COLUMNS] = {};
    std::transform(columns.begin(), columns.end(), titles, [](const top_column &column) { return column.title; });
    top_print_row(out, columns, importance, titles);
}
