// What the daemon's own code has to say while it reads the node. It would go to the system's log, which is the
// daemon's; here it is kept, to be shown.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t TOP_MAX_NOTES = 8;
constexpr size_t TOP_NOTE_SIZE = 96;

struct top_notes {
    uint8_t count = 0;
    char texts[TOP_MAX_NOTES][TOP_NOTE_SIZE] = {};

    // Keeps a text that is not there yet, as long as there is room; what is no printable ASCII as a question mark.
    void add(const char *text);
};

// The errors since the last time.
top_notes top_take_notes();

// Who is to blame when the code ends the process, as the configuration's loader does: stands before the reason.
void top_blame(const char *what);
