// Takes the place of syslog.
#include "support/log_capture.h"

#include "core/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

std::vector<log_line> lines;

// Splits "function:line: Level: text". What does not look so is kept whole, for the test to fail on.
[[gnu::format(printf, 2, 0)]] void record(int priority, const char *format, va_list arguments) {
    char buffer[2048];
    vsnprintf(buffer, sizeof buffer, format, arguments);
    fprintf(stderr, "%s\n", buffer); // death tests match on it
    const std::string whole = buffer;
    const size_t first = whole.find(':');
    const size_t second = first == std::string::npos ? first : whole.find(": ", first + 1);
    if (second == std::string::npos) {
        lines.push_back({priority, "", whole});
        return;
    }
    lines.push_back({priority, whole.substr(0, first), whole.substr(second + 2)});
}

} // namespace

// The C library's two entry points, the second one for fortified code.
extern "C" {
[[gnu::format(printf, 2, 3)]] void syslog(int priority, const char *format, ...);
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

std::ostream &operator<<(std::ostream &out, const log_line &line) {
    return out << line.priority << ' ' << line.function << ": " << line.text;
}

const std::vector<log_line> &logged() {
    return lines;
}

void clear_log() {
    lines.clear();
}

std::vector<std::string> logged_texts() {
    std::vector<std::string> texts;
    for (const log_line &line : lines)
        texts.push_back(line.text);
    return texts;
}

std::vector<std::string> logged_texts(const std::string &function) {
    std::vector<std::string> texts;
    for (const log_line &line : lines) {
        if (line.function == function)
            texts.push_back(line.text);
    }
    return texts;
}

at_log_level::at_log_level(int level) : before_(log_level) {
    log_level = level;
}

at_log_level::~at_log_level() {
    log_level = before_;
}
