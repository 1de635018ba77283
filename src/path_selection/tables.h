// What becomes of the HD and HA tables when links come and go.
#pragma once

#include "core/config.h"
#include "probes/bridge_tables.h"

#include <array>
#include <cstdint>

// Flushes a table of every active loop-avoiding bridge; TABLE_HA or TABLE_HD.
void path_selection_flush_table(config *config, kolt_table_kind table);

// Points the HD entries of every active loop-avoiding bridge at the link `link`; only TABLE_HD is supported.
// `link_states` has one state a link type.
void path_selection_update_table(config *config, kolt_table_kind table,
                                 const std::array<uint32_t, KOLT_LINK_COUNT> &link_states, kolt_link_type link);
