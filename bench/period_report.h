// What the measurement of a period has found, and the report on it.
#pragma once

#include "period_parts.h"

#include <cstdint>
#include <map>
#include <utility>

constexpr int64_t PERIOD_CLIENTS[] = {1, 16, 64, 256}; // the daemon lists at most 255
constexpr int64_t PERIOD_STREAMS[] = {100, 1000, 5000, 20000};

// What one size took, medians in seconds.
struct findings_of_size {
    period_times parts;
    double own = 0;
    double children = 0;
    double indexed = 0;
    double plain = 0;
};

using period_findings = std::map<std::pair<int64_t, int64_t>, findings_of_size>; // by clients and streams

// Prints tables, parts, growth and limits on the standard error; whether the limits were kept.
bool report_period(const period_findings &found);
