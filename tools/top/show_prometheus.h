// A reading as a Prometheus text exposition.
#pragma once

#include "records.h"

#include <cstdio>

void top_show_prometheus(FILE *out, const top_node &node);
