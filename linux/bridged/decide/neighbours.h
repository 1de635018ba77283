// Who is heard on which port, whether the link to them is alive, and what they last said of themselves.
#pragma once

#include "decide/tree.h"

#include <span>

// A time span of so many intervals.
[[nodiscard]] uint64_t span_ms(const tree &self, uint32_t intervals);

// The slots of ports and the places of nodes up to the last that was ever used; free ones are among them.
[[nodiscard]] std::span<tree_port> used_ports(tree *self);
[[nodiscard]] std::span<const tree_port> used_ports(const tree &self);
[[nodiscard]] std::span<tree_node> used_nodes(tree *self);
[[nodiscard]] std::span<const tree_node> used_nodes(const tree &self);

// The neighbour node of this MAC; null when it is not known.
[[nodiscard]] tree_node *find_node(tree *self, uint64_t mac);
[[nodiscard]] const tree_node *find_node(const tree &self, uint64_t mac);

// Its kolt-bridged has not been heard for as long as makes a link dead: what it last said holds, but it decides
// nothing.
[[nodiscard]] bool is_frozen(const tree &self, const tree_node &node);

// The only one that is heard on the port; null when there are none or several.
[[nodiscard]] const port_neighbour *sole_neighbour(const tree_port &port);

// Whether frames of others may be trusted to the link: one neighbour, both ends see it alive and use it.
[[nodiscard]] bool is_usable(const tree &self, const tree_port &port);

// Usable, and to the node of this MAC.
[[nodiscard]] bool leads_to(const tree &self, const tree_port &port, uint64_t mac);

// Nobody has been heard on the port for long enough to believe that there are hosts.
[[nodiscard]] bool is_without_nodes(const tree_port &port);

// What is to be said of the link to its other end.
[[nodiscard]] uint8_t link_flags_of(const tree &self, const tree_port &port);

// Takes note of a frame's sender. False when nothing else in the frame may be used.
[[nodiscard]] bool hear_frame(tree *self, tree_port *port, const neighbour_frame &frame);

// Takes note of how many frames there were that no node sends. False when that changes nothing.
[[nodiscard]] bool count_foreign(const tree &self, tree_port *port, uint32_t count);

// What the passing of time alone changes on a port.
void age_port(const tree &self, tree_port *port);

// The carrier came or went: nothing that was known of the other end holds any more.
void reset_port(const tree &self, tree_port *port, bool carrier);

// What was still to be sent on the port will not be; it comes again, on another one.
void outbox_forget(tree *self, size_t slot);

// Frees the places of nodes that are no longer heard on any port.
void forget_nodes(tree *self);
