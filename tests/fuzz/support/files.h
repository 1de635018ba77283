// Files of the node with content from an input. A target that links this names the calls to be replaced
// (KoltFuzz.cmake).
#pragma once

#include "support/input.h"

// Has `path`, a literal, hold `content` from now on. It is there for the daemon's code alone. Without a
// folder it is a driver's file of that name, of whichever interface.
void serve_file(const char *path, bytes content);

// Takes the file away: whoever opens it is told that there is none. Every path that the code opens must be served or
// be missing, or it would reach for the machine's own file.
void miss_file(const char *path);

// How often anything was opened.
extern int files_opened;
// Pipes that were started and not closed.
extern int open_pipes;
