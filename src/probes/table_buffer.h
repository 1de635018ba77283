// Buffers of the bridge library.
#pragma once

#include "core/handle.h"

#include <duon_bridge.h>

using table_buffer = kolt_handle<void, bridgeFreeTableBuf>;
