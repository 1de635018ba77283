// Puts a reason into words.
#include "kernel/reason.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

bool kolt_reason::say(int number, const char *format, ...) {
    error = number;
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (number != 0 && length >= 0 && static_cast<size_t>(length) < sizeof text)
        (void)snprintf(text + length, sizeof text - static_cast<size_t>(length), ": %s", strerror(number));
    return false;
}
