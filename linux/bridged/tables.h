// The tables that kolt reads, made from what the kernel and the programs hold.
#pragma once

#include "bridged/node.h"
#include "bridged/requests/handlers.h"

// Each adds its records to `table`; 0, or an errno.
[[nodiscard]] int tables_write(bridge_node *node, bridge_table code, table_writer *table);
[[nodiscard]] int tables_write_ports(bridge_node *node, table_writer *table);
[[nodiscard]] int tables_write_ethernets(const bridged *self, table_writer *table);

// One entry of the forwarding table as kolt reads it.
[[nodiscard]] bridge_fdb_record table_record_of(const fdb_record &entry);
