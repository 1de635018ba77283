// The table is the kernel's own and read directly: a child for each interface would cost more than everything else.
#include "counters.h"

#include "core/file.h"

#include <cinttypes>
#include <cstring>

namespace {

// The line that begins with blanks, the name and a colon; null at the end. Returns what stands behind the colon.
const char *find_line(const char *text, const char *name) {
    const size_t length = strlen(name);
    while (text != nullptr && *text != '\0') {
        text += strspn(text, " ");
        if (strncmp(text, name, length) == 0 && text[length] == ':')
            return text + length + 1;
        text = strchr(text, '\n');
        if (text != nullptr)
            text++;
    }
    return nullptr;
}

} // namespace

void top_counter_table::read() {
    text[0] = '\0';
    const file_ptr file(fopen("/proc/net/dev", "re"));
    if (file)
        text[fread(text, 1, ROOM - 1, file.get())] = '\0';
}

bool top_counter_table::find(const char *name, top_counters *counters) const {
    const char *line = find_line(text, name);
    return line != nullptr &&
           sscanf(line, "%" SCNu64 "%" SCNu64 "%*u%*u%*u%*u%*u%*u%" SCNu64 "%" SCNu64, &counters->rx_bytes,
                  &counters->rx_packets, &counters->tx_bytes, &counters->tx_packets) == 4;
}
