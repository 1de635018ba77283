// What path selection knows of the backhaul paths, as records. A path is identified by its link type; every table of
// paths has one row a type.
#pragma once

#include "core/link_type.h"
#include "core/names.h"
#include "probes/counters.h"

#include <array>
#include <cstddef>
#include <cstdint>

constexpr kolt_link_type PATH_NONE = KOLT_LINK_NONE;
constexpr size_t PS_SAMPLES = 15;    // PHY-rate samples a path
constexpr size_t PS_HD_SAMPLES = 20; // HD path choices
constexpr size_t PS_DATA_RATES = 5;

struct ps_rate_sample {
    uint16_t tx_rate = 0;
    uint16_t rx_rate = 0;
    uint16_t rate = 0; // of the direction that counts; 0 is an empty slot
};

// What is kept of a path from period to period.
struct ps_path_history {
    uint32_t ifindex = 0;
    kolt_if_stat prev_stat;
    kolt_if_stat cur_stat;
    uint8_t rx_tx_factor = 0; // received packets per sent one, at least 1 once measured
    uint32_t rx_pkt_size = 0; // mean, bytes
    uint8_t rx_selected = 0;  // more bytes came than went: the receiving direction's rate counts
    ps_rate_sample samples[PS_SAMPLES];
    uint8_t sample_index = 0;               // of the newest sample
    uint32_t data_rate[PS_DATA_RATES] = {}; // bytes a period
    uint16_t history_mark = 0;              // set to 1 when the module is built; nothing reads it
};

// One row of the path table of a period.
struct ps_path {
    char name[KOLT_NAME_SIZE] = {};           // empty: the path is absent this period
    kolt_link_type path = KOLT_LINK_ETHERNET; // its own type, written for present rows
    uint8_t priority = 0;                     // 0..10
    uint8_t util = 0;                         // percent
    uint8_t util_aux = 0;                     // the driver's RSSI figure, carried along
    uint16_t rate = 0;                        // processed PHY rate, 0: unusable this period
    int16_t quota = 0;                        // capacity left, hundredths of a percent
    int8_t util_adjustment = 0;

    [[nodiscard]] bool is_present() const {
        return name[0] != '\0';
    }
    [[nodiscard]] bool is_usable() const {
        return is_present() && rate != 0;
    }
    // The utilisation with its correction, in percent.
    [[nodiscard]] int adjusted_util() const {
        return util + util_adjustment;
    }
};

using ps_path_table = std::array<ps_path, KOLT_LINK_COUNT>;
using ps_history_table = std::array<ps_path_history, KOLT_LINK_COUNT>;
using ps_hd_ring = std::array<int32_t, PS_HD_SAMPLES>; // path types, PATH_NONE is an empty slot
