// The log of a fuzz target: every line is formatted, so that its arguments are read, and dropped.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <syslog.h>

extern "C" void syslog(int /*priority*/, const char *format, ...) {
    char line[4096];
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
}
