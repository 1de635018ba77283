#include "canvas.h"

#include <cstring>

namespace {

constexpr char CLEAR_LINE[] = "\033[K";
constexpr const char *STYLES[] = {"", "\033[1m", "\033[7m", "\033[31m", "\033[32m", "\033[33m"};
constexpr char PLAIN_AGAIN[] = "\033[0m";

} // namespace

unsigned int top_canvas::room() const {
    const unsigned int lines = view.size.rows > 1 ? view.size.rows - 1 : 0;
    return lines > used ? lines - used : 0;
}

void top_canvas::line(top_style style, const char *text) {
    if (!begin(style))
        return;
    (void)fprintf(out, "%.*s", static_cast<int>(view.size.columns), text);
    end();
}

void top_canvas::row(top_style style, const char *before, std::span<const top_column> columns,
                     const char *const *cells) {
    if (!begin(style))
        return;
    const auto indent = static_cast<unsigned int>(strlen(before));
    const unsigned int width = view.size.columns > indent ? view.size.columns - indent : 0;
    (void)fputs(before, out);
    top_print_row(out, columns, top_importance_that_fits(columns, width), cells);
    end();
}

void top_canvas::last_line(const char *text) const {
    start(top_style::REVERSE);
    (void)fprintf(out, "%.*s%s%s", static_cast<int>(view.size.columns), text, view.colours ? PLAIN_AGAIN : "",
                  CLEAR_LINE);
}

bool top_canvas::begin(top_style style) {
    if (room() == 0)
        return false;
    start(style);
    used++;
    return true;
}

void top_canvas::start(top_style style) const {
    if (view.colours)
        (void)fputs(STYLES[static_cast<size_t>(style)], out);
}

void top_canvas::end() const {
    (void)fprintf(out, "%s%s\r\n", view.colours ? PLAIN_AGAIN : "", CLEAR_LINE);
}
