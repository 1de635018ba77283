// The event loop with C linkage, of which its header declares none.
#pragma once

// What the header includes itself comes first: it belongs outside the block.
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <sys/time.h>
#include <sys/types.h>

extern "C" {
#include <libubox/uloop.h>
}
