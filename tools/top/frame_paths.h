// The table of a bridge's links in a picture.
#pragma once

#include "canvas.h"

#include <algorithm>
#include <cstring>

void top_draw_paths(top_canvas *canvas, const top_node &node, const top_bridge &bridge);

// The widest of the names that a column holds.
template <class Each> uint8_t top_widest(size_t least, const Each &each) {
    size_t width = least;
    each([&width](const char *name) { width = std::max(width, strnlen(name, KOLT_NAME_SIZE)); });
    return static_cast<uint8_t>(width);
}
