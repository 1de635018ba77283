// The node's state in files, as kolt reads it: the role, each link, and the Ethernet settings of the mesh.
#pragma once

#include "bridged/node_report.h"

// Writes what differs from `*written`, or everything when `all` is set, and remembers it there. Each file is replaced
// as a whole. A file that cannot be written is logged and tried again at the next call.
void runtime_files_write(const node_report &now, node_report *written, bool all);
