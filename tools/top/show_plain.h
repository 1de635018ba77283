// A reading as lines of text that each tell all by themselves, for logs and for grep.
#pragma once

#include "records.h"

#include <cstdio>

void top_show_plain(FILE *out, const top_node &node);
