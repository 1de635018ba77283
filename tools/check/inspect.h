// Reads a configuration's text as the daemon does and says what comes of it.
#pragma once

#include "check/report.h"

#include <memory>
#include <string_view>

// Never null. A text that the daemon cannot parse gives a report of one finding, "not-json", and starts nothing.
[[nodiscard]] std::unique_ptr<check_report> check_inspect(std::string_view text);

// Whether the text could be read at all.
[[nodiscard]] bool check_is_read(const check_report &report);
