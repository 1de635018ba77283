// What kolt-bridged answers, read strictly.
#pragma once

#include "lib/requests.h"

// The records that a sound reply brings with it: the smaller one of what there is and what was asked for.
uint32_t carried_records(const call_request &request, const call_reply &reply);

// Reads the reply to a request; false when it is no such thing, a memory file that is missing or too much included.
bool read_reply(const void *message, size_t size, bool has_table, const call_request &request, call_reply *reply);

// Copies `size` bytes, which is what the memory file must hold, into `buffer`.
bool read_table(int file, void *buffer, size_t size);
