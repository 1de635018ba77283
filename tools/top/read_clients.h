// The clients of one bridge, and what its tables of clients and streams say of them.
#pragma once

#include "reader.h"

// Lists the clients of the bridge with this number, counts what is pinned to each link and what streams it has, and
// ranks the clients' streams as a period does.
void top_read_clients(top_reader *reader, uint32_t number);
