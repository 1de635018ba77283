// kolt-top: watches a live node, and disturbs it by nothing.
#include "live.h"
#include "options.h"
#include "platform_calls.h"
#include "reader.h"
#include "show_json.h"
#include "show_plain.h"
#include "show_prometheus.h"
#include "show_why.h"
#include "terminal.h"
#include "words.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <net/if.h>
#include <unistd.h>

namespace {

constexpr int UNREADABLE = 1; // the node or its configuration
constexpr int MISUSED = 2;    // the command line

template <class... Texts> int fail(int status, const Texts *...texts) {
    (void)fputs("kolt-top: ", stderr);
    ((void)fputs(texts, stderr), ...);
    (void)fputc('\n', stderr);
    return status;
}

// Why not one bridge can be read.
int fail_without_bridge(const top_node &node, const char *path) {
    if (node.bridge_count == 0)
        return fail(UNREADABLE, path, " names no bridge");
    for (const top_bridge &bridge : node.all_bridges()) {
        if (if_nametoindex(bridge.name) == 0)
            continue;
        return fail(UNREADABLE, "the platform tells nothing of ", top_printable(bridge.name).text,
                    geteuid() != 0 ? ": run kolt-top as root" : ": is it running, on the open platform kolt-bridged?");
    }
    return fail(UNREADABLE, "none of the bridges that ", path, " names is there, such as ",
                top_printable(node.bridges[0].name).text);
}

bool has_active_bridge(const top_node &node) {
    for (const top_bridge &bridge : node.all_bridges()) {
        if (bridge.active)
            return true;
    }
    return false;
}

// Shows one reading; false when the client that is asked about is not there.
bool show(const top_options &options, const top_node &node) {
    const uint8_t *client = options.has_client ? options.client : nullptr;
    if (options.mode == top_mode::JSON)
        top_show_json(stdout, node, client);
    else if (options.mode == top_mode::PROMETHEUS)
        top_show_prometheus(stdout, node);
    else if (client == nullptr)
        top_show_plain(stdout, node);
    else {
        const top_found found = top_find_client(node, client);
        if (found.client == nullptr)
            return false;
        top_show_why(stdout, node, found);
    }
    return true;
}

int run_lines(const top_options &options, top_reader *reader) {
    const timespec interval{.tv_sec = static_cast<time_t>(options.interval_ms / 1000),
                            .tv_nsec = static_cast<long>(options.interval_ms % 1000) * 1000000};
    for (uint32_t readings = 1;; readings++) {
        if (!show(options, reader->node))
            return fail(UNREADABLE, "no bridge has a client ", top_mac_text(options.client).text);
        if (fflush(stdout) != 0)
            return fail(UNREADABLE, "cannot write: ", strerror(errno));
        if (readings == options.count)
            return EXIT_SUCCESS;
        timespec left = interval;
        while (nanosleep(&left, &left) != 0 && errno == EINTR) {
        }
        top_read(reader);
    }
}

int run(const top_options &options) {
    char why[256] = {};
    if (access(options.config, R_OK) != 0)
        return fail(UNREADABLE, options.config, ": ", strerror(errno));
    if (!top_open_platform(why, sizeof why))
        return fail(UNREADABLE, "no platform library: ", why);
    const top_reader_ptr owner(top_make_reader());
    top_reader *reader = owner.get();
    if (reader == nullptr)
        return fail(UNREADABLE, "no memory");
    reader->wants_streams = options.streams;
    top_load(reader, options.config);
    top_read(reader);
    if (!has_active_bridge(reader->node))
        return fail_without_bridge(reader->node, options.config);
    return options.mode == top_mode::LIVE ? top_run_live(options, reader) : run_lines(options, reader);
}

} // namespace

int main(int argc, char **argv) {
    top_options options = top_parse_options(argc, argv);
    if (options.request == top_request::REFUSED) {
        (void)fail(MISUSED, options.problem);
        (void)fputs(TOP_USAGE, stderr);
        return MISUSED;
    }
    if (options.request == top_request::HELP)
        return printf("%s%s", TOP_USAGE, TOP_HELP) >= 0 ? EXIT_SUCCESS : UNREADABLE;
    if (options.request == top_request::VERSION)
        return puts("kolt-top " KOLT_VERSION) >= 0 ? EXIT_SUCCESS : UNREADABLE;
    if (options.mode == top_mode::AUTOMATIC)
        options.mode = top_terminal_is_able() ? top_mode::LIVE : top_mode::PLAIN;
    if (options.mode == top_mode::LIVE && !top_terminal_is_able())
        return fail(MISUSED, "--live needs a terminal whose cursor can be moved");
    return run(options);
}
