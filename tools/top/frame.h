// One picture of the live table, as text for the terminal.
#pragma once

#include "records.h"
#include "terminal.h"

#include <cstddef>
#include <cstdint>

// A client in the order of the table: the one with the most bytes first.
struct top_listed {
    const top_bridge *bridge;
    const kolt_client *client;
    uint64_t bytes;
};

constexpr size_t TOP_MOST_LISTED = static_cast<size_t>(CONFIG_MAX_BRIDGES) * KOLT_MAX_LISTED_CLIENTS;

// What is to be seen, besides the reading.
struct top_view {
    top_size size;
    bool colours = true;
    uint32_t interval_ms = 0;
    bool has_chosen = false; // a client is chosen
    uint8_t chosen[KOLT_MAC_SIZE] = {};
    bool why = false;   // it is explained, instead of the table
    uint32_t first = 0; // the first client, or line, that is shown; drawing corrects it
    size_t listed_count = 0;
    top_listed listed[TOP_MOST_LISTED];
};

// Lists the clients of the bridges that select paths.
void top_list_clients(const top_node &node, top_view *view);

// Makes the picture; memory for free(), null without any. Corrects what the view cannot show.
char *top_make_frame(const top_node &node, top_view *view, size_t *size);
