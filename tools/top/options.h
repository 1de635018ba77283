// The command line.
#pragma once

#include "core/names.h"

#include <cstdint>

enum class top_mode {
    AUTOMATIC, // live on a terminal, else plain
    LIVE,
    PLAIN,
    JSON,
    PROMETHEUS,
};

enum class top_request { RUN, HELP, VERSION, REFUSED };

struct top_options {
    top_request request = top_request::RUN;
    top_mode mode = top_mode::AUTOMATIC;
    const char *config = "/etc/kolt.json";
    uint32_t interval_ms = 2000;
    uint32_t count = 0; // readings; 0: until it is ended
    bool has_client = false;
    bool streams = true; // the table of streams is read
    uint8_t client[KOLT_MAC_SIZE] = {};
    char problem[96] = {}; // why the line was refused
};

// Reads the options; texts in the result are the arguments' own.
top_options top_parse_options(int argc, char *const *argv);

// Reads "aa:bb:cc:dd:ee:ff", in either case and also with dashes; false for anything else.
bool top_parse_mac(const char *text, uint8_t *mac);

// Reads seconds with at most three decimals, from a tenth to a day, as milliseconds; false for anything else.
bool top_parse_interval(const char *text, uint32_t *milliseconds);

extern const char TOP_USAGE[];
extern const char TOP_HELP[]; // what follows the usage when it is asked for
