// The one place where the log keeps something.
#include "core/log.h"

int32_t log_level = KOLT_LOG_INFO;
