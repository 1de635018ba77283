// Keys redraw at once; the node is read when its time comes, or when asked.
#include "live.h"

#include "frame.h"

#include "core/handle.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

using memory = kolt_handle<char, free>;

int64_t now_ms() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail with this clock
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

void draw(const top_node &node, top_view *view) {
    view->size = top_terminal_size();
    size_t size = 0;
    const memory frame(top_make_frame(node, view, &size));
    if (frame)
        top_terminal_draw(frame.get(), size);
}

// Moves the choice by so many clients; without one it stands before the first.
void choose(top_view *view, int64_t by) {
    if (view->listed_count == 0)
        return;
    const top_listed *end = view->listed + view->listed_count;
    const top_listed *found = std::find_if(view->listed, view->listed + view->listed_count, [view](const auto &one) {
        return view->has_chosen && kolt_mac_equal(one.client->mac, view->chosen) == 1;
    });
    const int64_t from = found != end ? found - view->listed : -1;
    const auto at = std::clamp<int64_t>(from + by, 0, static_cast<int64_t>(view->listed_count) - 1);
    view->has_chosen = true;
    memcpy(view->chosen, view->listed[at].client->mac, sizeof view->chosen);
}

void scroll(top_view *view, int64_t by) {
    view->first = static_cast<uint32_t>(std::clamp<int64_t>(view->first + by, 0, INT_MAX)); // drawing corrects it
}

void move(top_view *view, int64_t by) {
    if (view->why)
        scroll(view, by);
    else
        choose(view, by);
}

void explain(top_view *view, bool why) {
    if (why && !view->has_chosen)
        choose(view, 0);
    view->why = why && view->has_chosen;
    view->first = 0;
}

void act(top_key key, top_view *view) {
    const int64_t page = std::max<int64_t>(int64_t{view->size.rows} / 2, 1);
    switch (key) {
    case top_key::UP:
        return move(view, -1);
    case top_key::DOWN:
        return move(view, 1);
    case top_key::PAGE_UP:
        return move(view, -page);
    case top_key::PAGE_DOWN:
        return move(view, page);
    case top_key::HOME:
        return move(view, INT_MIN);
    case top_key::END:
        return move(view, INT_MAX);
    case top_key::ENTER:
        return view->why ? void() : explain(view, true);
    case top_key::BACK:
        return explain(view, false);
    case top_key::SUSPEND:
        return top_terminal_suspend();
    default:
        return;
    }
}

// Serves keys until the next reading is due; false when the program is to end.
bool serve_until(int64_t due, const top_node &node, top_view *view) {
    for (;;) {
        const int64_t left = due - now_ms();
        if (left <= 0)
            return true;
        const top_key key = top_terminal_wait(static_cast<int>(std::min<int64_t>(left, INT_MAX)));
        if (key == top_key::QUIT)
            return false;
        if (key == top_key::REFRESH)
            return true;
        if (key == top_key::NONE)
            continue;
        act(key, view);
        draw(node, view);
    }
}

} // namespace

int top_run_live(const top_options &options, top_reader *reader) {
    top_view view;
    view.colours = top_terminal_has_colours();
    view.interval_ms = options.interval_ms;
    view.has_chosen = view.why = options.has_client;
    memcpy(view.chosen, options.client, sizeof view.chosen);
    top_terminal_open();
    for (uint32_t readings = 1;; readings++) {
        top_list_clients(reader->node, &view);
        draw(reader->node, &view);
        if (!serve_until(now_ms() + options.interval_ms, reader->node, &view) || readings == options.count)
            break;
        top_read(reader);
    }
    top_terminal_close();
    return EXIT_SUCCESS;
}
