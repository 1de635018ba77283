#include "frame_paths.h"

#include "why.h"
#include "words.h"

#include "path_selection/decide/score.h"

#include <cinttypes>
#include <iterator>

namespace {

struct path_cells {
    top_name port;
    top_path_text state;
    char util[8] = "-";
    char rate[8] = "-";
    top_text<12> quota = {"-"};
    top_text<8> score = {"-"};
    char pinned[12] = "-";
    top_text<8> streams = {"-"};
    top_text<8> bytes = {"-"};
    top_text<8> rx = {"-"};
    top_text<8> tx = {"-"};
};

void fill_measured(path_cells *cells, const ps_path &row) {
    if (!row.is_present())
        return;
    (void)snprintf(cells->util, sizeof cells->util, "%d%%", row.util);
    (void)snprintf(cells->rate, sizeof cells->rate, "%d", row.rate);
    cells->quota = top_quota_text(row.quota);
    cells->score = top_short_number(row.is_usable() ? ps_score(row) : 0);
}

path_cells cells_of(const top_node &node, const top_bridge &bridge, kolt_link_type type) {
    const top_path &path = bridge.paths[type];
    path_cells cells{.port = top_printable(path.name), .state = top_path_state(node, bridge, type)};
    fill_measured(&cells, bridge.rows[type]);
    if (bridge.has_clients)
        (void)snprintf(cells.pinned, sizeof cells.pinned, "%" PRIu32, path.pinned);
    if (bridge.has_streams) {
        cells.streams = top_short_number(path.streams.count);
        cells.bytes = top_short_number(path.streams.bytes);
    }
    if (path.traffic.timed) {
        cells.rx = top_short_number(path.traffic.rx_bit_rate);
        cells.tx = top_short_number(path.traffic.tx_bit_rate);
    }
    return cells;
}

top_style style_of(const top_path_text &state) {
    if (strncmp(state.text, "hot", 3) == 0)
        return top_style::RED;
    return strcmp(state.text, "best") == 0 ? top_style::GREEN : top_style::PLAIN;
}

} // namespace

void top_draw_paths(top_canvas *canvas, const top_node &node, const top_bridge &bridge) {
    top_column columns[] = {
        {"LINK", 8, false, 0},   {"PORT", 4, false, 1}, {"STATE", 8, false, 0}, {"UTIL", 5, true, 0},
        {"RATE", 5, true, 1},    {"QUOTA", 7, true, 0}, {"SCORE", 5, true, 3},  {"PINNED", 6, true, 1},
        {"STREAMS", 7, true, 1}, {"BYTES", 5, true, 4}, {"RX b/s", 6, true, 2}, {"TX b/s", 6, true, 2},
    };
    columns[0].width = top_widest(4, [&](const auto &note) {
        for (const kolt_link_type type : KOLT_LINKS)
            note(bridge.paths[type].configured ? top_link_name(type) : "");
    });
    columns[1].width = top_widest(4, [&](const auto &note) {
        for (const top_path &path : bridge.paths)
            note(path.name);
    });
    const char *titles[std::size(columns)];
    std::transform(std::begin(columns), std::end(columns), titles, [](const auto &column) { return column.title; });
    canvas->row(top_style::BOLD, "", columns, titles);
    for (const kolt_link_type type : KOLT_LINKS) {
        if (!bridge.paths[type].configured)
            continue;
        const path_cells of = cells_of(node, bridge, type);
        const char *const cells[] = {top_link_name(type), of.port.text,  of.state.text, of.util,         of.rate,
                                     of.quota.text,       of.score.text, of.pinned,     of.streams.text, of.bytes.text,
                                     of.rx.text,          of.tx.text};
        canvas->row(style_of(of.state), "", columns, cells);
    }
}
