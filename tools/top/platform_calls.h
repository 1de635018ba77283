// The platform libraries, of which this program can make the reading calls alone. They are opened when it runs: without
// them it says so itself, and a call that writes cannot be linked into it.
#pragma once

#include <cstddef>

// Opens both libraries; false with the reason in `why`.
bool top_open_platform(char *why, size_t size);
