// Replacing a small file so that whoever reads it finds the old text or the new one, and never a part.
#pragma once

#include <cstddef>

// Puts `size` bytes into a file of mode 0644 at `path`, over what stands there, without following a link. False, with
// errno and a line in the log, when that failed; what stood there is then untouched.
[[nodiscard]] bool replace_file(const char *path, const char *text, size_t size);
