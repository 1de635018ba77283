// The one loop by which every part of the daemon flushes.
#include "probes/table_flush.h"

#include "core/names.h"
#include "probes/ports.h"

#include <syslog.h>

void kolt_flush_tables(const config &config, int (*flush)(const char *bridge), const flush_report &report) {
    for (uint32_t i = 0; i < config.bridge_num; i++) {
        const config_bridge &bridge = config.bridges[i];
        if (kolt_is_loop_avoiding(bridge) && flush(kolt_name_text(bridge.name).text) != 0)
            syslog(LOG_ERR, "%s:%d: Error: %s", report.operation, report.line, report.error);
    }
}
