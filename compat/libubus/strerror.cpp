// Texts for status codes.

#include "c_headers.h"

#include <array>
#include <cstdio>

const char *ubus_strerror(int error) {
    static constexpr std::array<const char *, __UBUS_STATUS_LAST> TEXTS = {
        "Success",
        "Invalid command",
        "Invalid argument",
        "Method not found",
        "Not found",
        "No response",
        "Permission denied",
        "Request timed out",
        "Operation not supported",
        "Unknown error",
        "Connection failed",
        "Out of memory",
        "Parsing message data failed",
        "System error",
    };
    static char unknown[32];
    if (error >= 0 && static_cast<size_t>(error) < TEXTS.size())
        return TEXTS[static_cast<size_t>(error)];
    (void)snprintf(unknown, sizeof(unknown), "Unknown error: %d", error); // always fits
    return unknown;
}
