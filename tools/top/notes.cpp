// Takes the place of the C library's syslog in this program.
#include "notes.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <syslog.h>
#include <utility>

namespace {

constexpr size_t LINE_SIZE = 256;

top_notes notes;
const char *blamed = "";

// "function:line: Error: text" without the line and the level.
void keep_error(const char *line) {
    const char *colon = strchr(line, ':');
    const char *text = strstr(line, "Error: ");
    if (colon == nullptr || text == nullptr)
        return notes.add(line);
    char note[LINE_SIZE];
    (void)snprintf(note, sizeof note, "%.*s: %s", static_cast<int>(colon - line), line, text + strlen("Error: "));
    notes.add(note);
}

void tell_end(const char *line) {
    const char *text = strstr(line, "Fatal: ");
    (void)fprintf(stderr, "kolt-top: %s: %s\n", blamed, text != nullptr ? text + strlen("Fatal: ") : line);
}

[[gnu::format(printf, 2, 0)]] void record(int priority, const char *format, va_list arguments) {
    char line[LINE_SIZE];
    (void)vsnprintf(line, sizeof line, format, arguments); // a cut line tells enough
    if (LOG_PRI(priority) == LOG_EMERG)
        tell_end(line);
    else if (LOG_PRI(priority) == LOG_ERR)
        keep_error(line);
}

} // namespace

// The library's two entry points, the second one for fortified code.
extern "C" {
// The header declares it where it is fortified alone.
// NOLINTNEXTLINE(readability-redundant-declaration)
[[gnu::format(printf, 3, 4)]] void __syslog_chk(int priority, int flag, const char *format, ...);

void syslog(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    record(priority, format, arguments);
    va_end(arguments);
}

void __syslog_chk(int priority, int /*flag*/, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    record(priority, format, arguments);
    va_end(arguments);
}
}

// A note may hold a name of somebody's choice, and is shown on terminals.
void top_notes::add(const char *text) {
    char note[TOP_NOTE_SIZE] = {};
    for (size_t i = 0; i < TOP_NOTE_SIZE - 1 && text[i] != '\0'; i++)
        note[i] = text[i] >= ' ' && text[i] <= '~' ? text[i] : '?';
    for (uint8_t i = 0; i < count; i++) {
        if (strcmp(texts[i], note) == 0)
            return;
    }
    if (count < TOP_MAX_NOTES)
        memcpy(texts[count++], note, TOP_NOTE_SIZE);
}

top_notes top_take_notes() {
    return std::exchange(notes, {});
}

void top_blame(const char *what) {
    blamed = what;
}
