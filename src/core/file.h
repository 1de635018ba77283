// Owned files of the C library.
#pragma once

#include "core/handle.h"

#include <cstdio>

using file_ptr = kolt_handle<FILE, fclose>;
