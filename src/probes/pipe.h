// Reading a kernel or driver file through a child process, as drivers that misbehave on short reads want it.
#pragma once

#include "core/handle.h"

#include <cstddef>
#include <cstdio>

using pipe_ptr = kolt_handle<FILE, pclose>;

// Starts a shell command for reading; null when it cannot be started. No descriptor of this process goes with it. The
// caller sees to it that nothing in the command means more to a shell than it should.
inline pipe_ptr kolt_open_pipe(const char *command) {
    return pipe_ptr(popen(command, "re")); // NOLINT(cert-env33-c): commands are constants and checked names
}

// Reads the next line, or as much of it as fits with its terminator, and goes on after a signal. How many bytes that
// were; 0 at the end.
size_t kolt_read_line(FILE *lines, char *line, size_t size);
