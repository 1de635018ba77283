// Whether frames could circle or be doubled in a mesh as it stands at one moment, by the words of its ports alone.
#pragma once

#include "model_mesh/mesh.h"

#include <string>
#include <vector>

enum class flooded { BROADCAST_CLASS_0, BROADCAST_CLASS_1, UNKNOWN_UNICAST };
constexpr flooded ALL_FLOODED[] = {flooded::BROADCAST_CLASS_0, flooded::BROADCAST_CLASS_1, flooded::UNKNOWN_UNICAST};

// How often each node's host receives what the host of `from` sends; a number over 1 ends the search.
std::vector<int> copies(const mesh &all, int from, flooded kind);

// A sentence about what is wrong at this moment, empty when nothing is: no frame, wherever entries of the bridges and
// streams may send it, can come back to where it was, and no flooded frame reaches a host twice.
std::string what_goes_wrong(const mesh &all);

// A sentence about who cannot be reached although there is a way, once nothing changes any more. Nodes whose
// kolt-bridged is dead, and those whose way to the root leads through one, are left out when `frozen_may_be_lost`. A
// link that loses every echo is no way: nobody can tell it from a dead one.
std::string who_is_lost(const mesh &all, bool frozen_may_be_lost);

// A sentence about who takes a link for alive that does not carry frames both ways, once nothing changes any more.
std::string who_is_deceived(const mesh &all);
