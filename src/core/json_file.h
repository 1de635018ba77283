// JSON files: the configuration, and those in which the node's other daemons tell its state. The latter lie where
// anyone may put something in their place, so none is waited on, and none is taken that is not like them.
#pragma once

#include "core/handle.h"
#include "core/json.h"

#include <cstddef>

#include <sys/types.h>

constexpr size_t KOLT_STATE_FILE_LIMIT = size_t{1} << 20; // bytes; many times what a node has to tell

// Opens a file for reading, without waiting; none, and errno tells why, when it is missing, no regular file, or larger
// than the limit.
unique_fd kolt_open_state_file(const char *path);

// Reads until `size` bytes are there or nothing more comes; how many there are, or -1 when reading fails: what came
// before that is no whole text, even where it looks like one.
ssize_t kolt_read_up_to(int fd, char *bytes, size_t size);

// The JSON value that a state file begins with; null when there is none, or no such file.
json_ptr kolt_read_state_file(const char *path);

// The JSON value that a file of any kind and size begins with, and all of it; null when there is none, or when memory
// did not suffice.
json_ptr kolt_read_configuration(const char *path);
