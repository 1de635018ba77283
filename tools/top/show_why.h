// Why a client is where it is, in sentences and a small table or two.
#pragma once

#include "why.h"

#include <cstdio>

// Writes lines of at most some 80 characters; `found` is a client of the node.
void top_show_why(FILE *out, const top_node &node, const top_found &found);
