// Which links a stream may be moved to: those of the group that it leaves by, which all lead to the same node.
#pragma once

#include "bridged/node.h"

// The group of links that the port is one of; GROUP_NONE when it is closed, or no link of this bridge.
[[nodiscard]] uint32_t steering_group(const bridge_node *node, uint32_t ifindex);

// Whether a stream that leaves by the interface `now` may leave by the links of a group of this bridge. Where that is
// no open link of any bridge, nobody can tell any more whom it led to, and it may.
[[nodiscard]] bool steering_allowed(const bridge_node *node, uint32_t now, uint32_t group);
