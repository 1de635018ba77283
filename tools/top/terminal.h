// The terminal while the table is live: its own screen, keys as they are pressed, and everything as before afterwards,
// however the program ends.
#pragma once

#include <cstddef>
#include <cstdint>

enum class top_key : uint8_t {
    NONE, // the time is over, or the size has changed
    QUIT, // also a signal that ends the program
    UP,
    DOWN,
    PAGE_UP,
    PAGE_DOWN,
    HOME,
    END,
    ENTER,
    BACK,
    REFRESH,
    SUSPEND,
    RESIZED,
};

struct top_size {
    unsigned int rows = 24;
    unsigned int columns = 80;
};

// Whether a live table can be drawn: standard output is a terminal that moves its cursor.
bool top_terminal_is_able();

// Whether the terminal shall be given colours: not where NO_COLOR says so.
bool top_terminal_has_colours();

// Takes the terminal over; top_terminal_close gives it back.
void top_terminal_open();
void top_terminal_close();

// Stops the program until the shell continues it, with the terminal as it was meanwhile.
void top_terminal_suspend();

top_size top_terminal_size();

// Waits at most `milliseconds` for a key.
top_key top_terminal_wait(int milliseconds);

// Writes a frame at once.
void top_terminal_draw(const char *text, size_t size);

// The first key in `bytes`, and in *used how many of them it took; NONE for what means nothing here.
top_key top_decode_key(const char *bytes, size_t size, size_t *used);
