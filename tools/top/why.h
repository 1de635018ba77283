// Why a client is where it is: what path selection compares for it, by the daemon's own decisions. Records in, records
// out.
#pragma once

#include "records.h"

#include <cstdint>

// What becomes of a client's HD entry in the daemon's next period.
enum class top_place : uint8_t {
    NO_SELECTION, // its bridge has no path selection
    OTHER_MODE,   // the node extends nobody's network
    RELAY,        // it is behind a relay port: there is only one way to it
    NO_PATH,      // no path can be used
    POWER_LINE,   // it is seen through power line, where clients are not placed
    IN_PLACE,     // it is pinned to the path that would be chosen
    MOVES,        // it will be pinned to that path
    REMEMBERED,   // with "cpu_limit" the daemon's earlier choices decide, which nobody else knows
};

struct top_why {
    top_place place = top_place::NO_SELECTION;
    kolt_link_type best = PATH_NONE;   // the path with the highest score
    kolt_link_type target = PATH_NONE; // the one that it is to be pinned to, as far as it is known
    kolt_link_type preferred = PATH_NONE;
    bool is_prefered = false;
};

top_why top_explain(const top_node &node, const top_bridge &bridge, const kolt_client &client);

// Whether the daemon gets to the streams of a client that is placed so.
[[nodiscard]] constexpr bool top_moves_streams(top_place place) {
    return place == top_place::IN_PLACE || place == top_place::MOVES || place == top_place::REMEMBERED;
}

// What becomes of one of a client's ranked streams when streams move.
enum class top_stream_place : uint8_t {
    ON_BEST,        // it is on the best path
    CALM,           // its path is not overloaded, or not by much more than the best one
    TOO_BIG,        // it does not fit into what is left of the best path
    WEIGHS_NOTHING, // its share of the best path is nothing, which ends the daemon's walk
    MAY_MOVE,
    STAYS, // the daemon does not get to this client's streams
};

struct top_stream_why {
    uint32_t share = 0; // of the best path, hundredths of a percent in a period
    top_stream_place place = top_stream_place::CALM;
};

// `of_client` is what was explained of the stream's client.
top_stream_why top_explain_stream(const top_node &node, const top_bridge &bridge, const ha_entry &stream,
                                  const top_why &of_client);

struct top_path_text {
    char text[12];
};

// In few words, for tables and for machines: "in-place", "moves".
const char *top_place_word(top_place place);
const char *top_stream_place_word(top_stream_place place);

// The state of a path: "down", "unread", "slow", "up", "hot", "best", "hot,best".
top_path_text top_path_state(const top_node &node, const top_bridge &bridge, kolt_link_type type);

// "away", "not-steered", "calm", "adjusting", "full".
const char *top_bridge_state(const top_bridge &bridge);
