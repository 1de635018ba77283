// The C library forgets the part of a line that it has when a signal interrupts it.
#include "probes/pipe.h"

#include <cerrno>

size_t kolt_read_line(FILE *lines, char *line, size_t size) {
    size_t length = 0;
    while (length + 1 < size && (length == 0 || line[length - 1] != '\n')) {
        errno = 0;
        const int next = getc_unlocked(lines);
        if (next != EOF) {
            line[length++] = static_cast<char>(next);
        } else if (errno != EINTR) {
            break;
        } else {
            clearerr(lines);
        }
    }
    line[length] = '\0';
    return length;
}
