// Lines of a picture: as many as there is room for but the last one, which tells the keys.
#pragma once

#include "columns.h"
#include "frame.h"

#include <cstdint>
#include <cstdio>
#include <span>

enum class top_style : uint8_t { PLAIN, BOLD, REVERSE, RED, GREEN, YELLOW };

struct top_canvas {
    FILE *out;
    const top_view &view;
    unsigned int used = 0;

    // The lines that are left.
    [[nodiscard]] unsigned int room() const;

    // Writes a line, or nothing where there is no room; what is too long is cut.
    void line(top_style style, const char *text);

    // The same for a row of a table behind `before`.
    void row(top_style style, const char *before, std::span<const top_column> columns, const char *const *cells);

    // Writes the last line.
    void last_line(const char *text) const;

private:
    bool begin(top_style style);
    void start(top_style style) const;
    void end() const;
};
