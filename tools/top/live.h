// The live table.
#pragma once

#include "options.h"
#include "reader.h"

// Reads and draws until it is ended by a key, a signal or the number of readings; the program's exit status.
int top_run_live(const top_options &options, top_reader *reader);
