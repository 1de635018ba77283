// The headers of compat/include for its own C++ sources, their tools and tests. As on any system, libubox's declare no
// C linkage of their own, and libubus.h includes them before its own block of C linkage opens; so they are included
// inside one here, and nowhere else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <endian.h>
#include <sys/time.h>

extern "C" {
#include <libubox/blob.h>
#include <libubox/blobmsg.h>
#include <libubox/list.h>
#include <libubox/uloop.h>
#include <libubus.h>
#include <ubusmsg.h>
}
