// A reading as one line of JSON.
#pragma once

#include "records.h"

#include <cstdio>

// `client` is the MAC that is asked about; null for none.
void top_show_json(FILE *out, const top_node &node, const uint8_t *client);
