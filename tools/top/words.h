// How things are called and numbers are written, wherever they are shown.
#pragma once

#include "core/link_type.h"
#include "core/names.h"
#include "core/work_mode.h"

#include <cstddef>
#include <cstdint>

// "ethernet", "plc", "2.4g", "5g", "5g_2" as in the configuration; "none" for anything else.
const char *top_link_name(kolt_link_type type);

// "RE", "FAP", "HAP", "unknown".
const char *top_mode_name(kolt_work_mode mode);

// A text of a bounded size, by value.
template <size_t Size> struct top_text { char text[Size]; };
using top_name = top_text<KOLT_NAME_SIZE + 1>;

// "02:30:00:00:00:01", upper case as in the log.
top_text<18> top_mac_text(const uint8_t *mac);

// At most four digits and a letter: "999", "1.2k", "34M".
top_text<8> top_short_number(uint64_t number);

// Hundredths of a percent: "50.00%", and ">999%" for what is more.
top_text<12> top_quota_text(int64_t hundredths);

// A kernel interface by its name, or by its number when it is gone.
top_name top_kernel_name(uint32_t ifindex);

// A name whose every byte can be shown: anything but printable ASCII is a question mark.
top_name top_printable(const char *name);

// "2026-11-22T11:18:02Z".
top_text<24> top_time_text(int64_t seconds);
