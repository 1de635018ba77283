// Flushing a table of all bridges.
#pragma once

#include "core/config.h"

// Who flushes, in which line, and what the log says there when the library refuses.
struct flush_report {
    const char *operation;
    int line;
    const char *error;
};

// Has `flush`, a call of the bridge library, flush its table on every active loop-avoiding bridge. A refusal is logged
// and does not stop the walk.
void kolt_flush_tables(const config &config, int (*flush)(const char *bridge), const flush_report &report);
