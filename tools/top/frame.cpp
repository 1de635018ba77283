// Lines go from the top down; what does not fit is left out, and the last line always tells the keys.
#include "frame.h"

#include "canvas.h"
#include "frame_paths.h"
#include "show_why.h"
#include "words.h"

#include "core/handle.h"

#include <algorithm>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <tuple>

namespace {

constexpr char HOME[] = "\033[H";
constexpr char CLEAR_BELOW[] = "\033[J";

using memory = kolt_handle<char, free>;

constexpr size_t TEXT_SIZE = 200;

void draw_head(top_canvas *canvas, const top_node &node) {
    char text[TEXT_SIZE];
    (void)snprintf(text, sizeof text,
                   "kolt-top  mode %s  %s  read in %" PRIu32 ".%" PRIu32 " ms  every %" PRIu32 ".%" PRIu32 " s%s",
                   top_mode_name(node.mode), top_time_text(node.seconds).text, node.read_us / 1000,
                   node.read_us / 100 % 10, canvas->view.interval_ms / 1000, canvas->view.interval_ms / 100 % 10,
                   node.configuration->enable == 1 ? "" : "  kolt is disabled");
    canvas->line(top_style::BOLD, text);
}

const char *state_sentence(const top_bridge &bridge) {
    if (!bridge.active)
        return "is not there";
    if (!bridge.selects_paths)
        return "no path selection";
    if (!bridge.overloaded)
        return "no path is hot";
    return bridge.full ? "every path is hot" : "a path is hot, another has room";
}

void draw_bridge(top_canvas *canvas, const top_bridge &bridge) {
    char text[TEXT_SIZE];
    const auto name = top_printable(bridge.name);
    if (!bridge.selects_paths || !bridge.active)
        (void)snprintf(text, sizeof text, "%s  %u clients  %s", name.text, bridge.clients.count,
                       state_sentence(bridge));
    else
        (void)snprintf(text, sizeof text, "%s  %u clients, %" PRIu32 " pinned, %" PRIu32 " streams  %s", name.text,
                       bridge.clients.count, bridge.pinned_entries, bridge.stream_entries, state_sentence(bridge));
    const bool busy = bridge.overloaded || !bridge.active;
    canvas->line(busy ? top_style::YELLOW : top_style::PLAIN, text);
}

void draw_client(top_canvas *canvas, const top_node &node, const top_listed &listed,
                 std::span<const top_column> columns) {
    const kolt_client &client = *listed.client;
    const top_why why = top_explain(node, *listed.bridge, client);
    const top_streams &load = listed.bridge->loads[listed.bridge->client_numbers.number_of(client.mac)];
    const bool pinned = client.hd_port != KOLT_NO_HD_PORT;
    const bool known = listed.bridge->has_streams;
    const auto mac = top_mac_text(client.mac);
    const auto port = top_interface_name(*listed.bridge, client.port);
    const auto hd = top_interface_name(*listed.bridge, client.hd_port);
    const auto streams = top_short_number(load.count);
    const auto bytes = top_short_number(load.bytes);
    const char *const cells[] = {mac.text,
                                 port.text,
                                 top_link_name(client.type),
                                 pinned ? hd.text : "-",
                                 why.best != PATH_NONE ? top_link_name(why.best) : "-",
                                 known ? streams.text : "-",
                                 known ? bytes.text : "-",
                                 top_place_word(why.place)};
    const bool chosen = canvas->view.has_chosen && kolt_mac_equal(canvas->view.chosen, client.mac) == 1;
    const bool moves = why.place == top_place::MOVES;
    canvas->row(chosen  ? top_style::REVERSE
                : moves ? top_style::YELLOW
                        : top_style::PLAIN,
                chosen ? "> " : "  ", columns, cells);
}

// Which client is the first one that is shown, so that the chosen one is among them.
uint32_t first_shown(const top_view &view, std::span<const top_listed> list, unsigned int room) {
    const auto count = static_cast<uint32_t>(list.size());
    uint32_t first = std::min(view.first, count > room ? count - room : 0);
    if (!view.has_chosen || room == 0)
        return first;
    const auto *found = std::find_if(list.data(), list.data() + list.size(), [&view](const top_listed &one) {
        return kolt_mac_equal(one.client->mac, view.chosen) == 1;
    });
    const auto at = static_cast<uint32_t>(found - list.data());
    if (at == count)
        return first;
    if (at < first)
        first = at;
    return at >= first + room ? at - room + 1 : first;
}

void draw_clients(top_canvas *canvas, const top_node &node, std::span<const top_listed> list, top_view *view) {
    top_column columns[] = {
        {"CLIENT", 17, false, 0}, {"PORT", 4, false, 1},   {"LINK", 8, false, 3}, {"PINNED", 6, false, 0},
        {"BEST", 8, false, 1},    {"STREAMS", 7, true, 2}, {"BYTES", 5, true, 2}, {"STATE", 11, false, 0},
    };
    columns[1].width = top_widest(4, [&](const auto &note) {
        for (const top_listed &one : list)
            note(top_interface_name(*one.bridge, one.client->port).text);
    });
    columns[3].width = top_widest(6, [&](const auto &note) {
        for (const top_listed &one : list)
            note(one.client->hd_port != KOLT_NO_HD_PORT ? top_interface_name(*one.bridge, one.client->hd_port).text
                                                        : "-");
    });
    const char *titles[std::size(columns)];
    std::transform(std::begin(columns), std::end(columns), titles, [](const auto &column) { return column.title; });
    canvas->row(top_style::BOLD, "  ", columns, titles);
    view->first = first_shown(*view, list, canvas->room());
    for (const top_listed &one : list.subspan(view->first))
        draw_client(canvas, node, one, columns);
}

void draw_table(top_canvas *canvas, const top_node &node, top_view *view) {
    draw_head(canvas, node);
    for (const top_bridge &bridge : node.all_bridges()) {
        draw_bridge(canvas, bridge);
        if (bridge.selects_paths && bridge.active)
            top_draw_paths(canvas, node, bridge);
    }
    for (uint8_t i = 0; i < node.notes.count; i++)
        canvas->line(top_style::YELLOW, node.notes.texts[i]);
    draw_clients(canvas, node, std::span(view->listed, view->listed_count), view);
}

void draw_why(top_canvas *canvas, const top_node &node, top_view *view) {
    draw_head(canvas, node);
    const top_found found = top_find_client(node, view->chosen);
    if (found.client == nullptr)
        return canvas->line(top_style::YELLOW, "This client is not there any more.");
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    if (out == nullptr)
        return;
    top_show_why(out, node, found);
    (void)fclose(out); // which makes the text
    const memory owner(text);
    const auto lines = static_cast<uint32_t>(std::count(text, text + size, '\n'));
    const unsigned int room = canvas->room();
    view->first = std::min(view->first, lines > room ? lines - room : 0);
    uint32_t number = 0;
    for (char *line = text; line != nullptr && *line != '\0';) {
        char *end = strchr(line, '\n');
        if (end != nullptr)
            *end++ = '\0';
        if (number++ >= view->first)
            canvas->line(top_style::PLAIN, line);
        line = end;
    }
}

void draw_keys(const top_canvas &canvas) {
    const char *keys = canvas.view.why ? "q quit  arrows scroll  Esc back  Space now"
                                       : "q quit  arrows choose  Enter why is it here  Space now";
    canvas.last_line(keys);
}

} // namespace

void top_list_clients(const top_node &node, top_view *view) {
    size_t count = 0;
    for (const top_bridge &bridge : node.all_bridges()) {
        for (const kolt_client &client : bridge.clients.span()) {
            if (!bridge.selects_paths)
                break;
            const uint64_t bytes = bridge.loads[bridge.client_numbers.number_of(client.mac)].bytes;
            view->listed[count++] = {.bridge = &bridge, .client = &client, .bytes = bytes};
        }
    }
    view->listed_count = count;
    // Those that can be placed come first. Clients with as much as each other keep their order: the table does not
    // jump.
    std::sort(view->listed, view->listed + count, [](const top_listed &a, const top_listed &b) {
        return std::tuple(a.client->is_relay(), b.bytes, a.bridge, a.client) <
               std::tuple(b.client->is_relay(), a.bytes, b.bridge, b.client);
    });
}

char *top_make_frame(const top_node &node, top_view *view, size_t *size) {
    char *text = nullptr;
    FILE *out = open_memstream(&text, size);
    if (out == nullptr)
        return nullptr;
    (void)fputs(HOME, out);
    top_canvas canvas{.out = out, .view = *view};
    if (view->why)
        draw_why(&canvas, node, view);
    else
        draw_table(&canvas, node, view);
    (void)fputs(CLEAR_BELOW, out);
    draw_keys(canvas);
    (void)fclose(out); // which makes the text
    return text;
}
