// The Realtek driver's text files.
#pragma once

#include "core/link_type.h"
#include "probes/pipe.h"

#include <cstddef>
#include <cstdint>

constexpr size_t RTK_LINE_SIZE = 256;
constexpr size_t RTK_FILE_LIMIT = size_t{1} << 20; // bytes that are read of a file, however much comes

// A driver file opened for reading, or the command that could not be started.
struct rtk_driver_file {
    char command[128] = {};
    pipe_ptr lines;
    size_t unread = RTK_FILE_LIMIT; // of what may be read
};

// Opens `file` ("stats", say) of the interface `ifname`. The pipe is null when it cannot be started, or when the name
// holds what a shell would take for more than a name.
rtk_driver_file rtk_open_driver_file(const char *ifname, kolt_link_type type, const char *file);

// Reads the next line and returns it without its leading blanks and tabs; null at the end, which the limit is too. The
// line lies in `line`.
const char *rtk_next_line(rtk_driver_file *file, char (&line)[RTK_LINE_SIZE]);
