// The event loop and the bus client with C linkage. libubox's headers declare none of their own, and libubus.h includes
// them before its own block of C linkage opens, so that C++ has to include all of them inside one.
#pragma once

// What these headers include themselves comes first: it belongs outside the block.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <endian.h>
#include <sys/time.h>
#include <sys/types.h>

extern "C" {
#include <libubox/blobmsg.h>
#include <libubox/uloop.h>
#include <libubus.h>
}
