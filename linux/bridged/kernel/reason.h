// Why something was refused.
#pragma once

// A whole sentence for the log, and the system's error number (0 where there is none).
struct kolt_reason {
    int error = 0;
    char text[240] = "";

    // Sets both; false, so that a refusal is one line.
    bool say(int number, const char *format, ...) __attribute__((format(printf, 3, 4)));
};
