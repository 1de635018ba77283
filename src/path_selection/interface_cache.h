// Kernel interface names and indexes, asked for once in a bridge's period instead of once a client or stream. What the
// kernel does not know is not remembered.
#pragma once

#include <cstdint>

// Forgets everything; when a bridge's period begins.
void ps_forget_interfaces();

// The name of a kernel interface, valid until the next question; null when the kernel does not know the index.
const char *ps_interface_name(uint32_t ifindex);

// The index of a kernel interface, 0 when there is none of this name (at most 16 characters).
uint32_t ps_interface_index(const char *name);
