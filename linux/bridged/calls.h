// What the platform libraries ask for, done.
#pragma once

#include "bridged/node.h"
#include "bridged/requests/handlers.h"

// The handlers of every call, with `self` as their context.
[[nodiscard]] request_handlers calls_of(bridged *self);
