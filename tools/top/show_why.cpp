// First where it is, then what was compared, then what will happen, then its streams.
#include "show_why.h"

#include "columns.h"
#include "words.h"

#include "path_selection/decide/score.h"

#include <cinttypes>

namespace {

void print_whereabouts(FILE *out, const top_found &found) {
    const kolt_client &client = *found.client;
    (void)fprintf(out, "%s on %s\n", top_mac_text(client.mac).text, top_printable(found.bridge->name).text);
    (void)fprintf(out, "  seen on    %s (%s, %s)\n", top_interface_name(*found.bridge, client.port).text,
                  top_link_name(client.type), client.is_relay() ? "relay" : "nonrelay");
    if (client.hd_port != KOLT_NO_HD_PORT)
        (void)fprintf(out, "  pinned to  %s\n", top_interface_name(*found.bridge, client.hd_port).text);
    else
        (void)fprintf(out, "  pinned to  nothing\n");
}

constexpr top_column PATH_COLUMNS[] = {
    {"PATH", 8, false, 0}, {"PORT", 15, false, 0},   {"UTIL", 5, true, 0},   {"QUOTA", 7, true, 0},
    {"RATE", 5, true, 0},  {"PRIORITY", 8, true, 0}, {"SCORE", 10, true, 0}, {"", 9, false, 0},
};

void print_path(FILE *out, const ps_path &row, const top_path &path, const char *name, const char *remark) {
    char util[8];
    char rate[8];
    char priority[8];
    char score[24];
    (void)snprintf(util, sizeof util, "%d%%", row.util);
    (void)snprintf(rate, sizeof rate, "%d", row.rate);
    (void)snprintf(priority, sizeof priority, "%d", row.priority);
    (void)snprintf(score, sizeof score, "%" PRIu64, row.is_usable() ? ps_score(row) : 0);
    const auto port = top_printable(path.name);
    const auto quota = top_quota_text(row.quota);
    const char *const cells[] = {name, port.text, util, quota.text, rate, priority, score, remark};
    (void)fputs("  ", out);
    top_print_row(out, PATH_COLUMNS, 0, cells);
    (void)fputc('\n', out);
}

void print_unmeasured(FILE *out, const top_path &path, kolt_link_type type) {
    const char *reason = "the driver tells nothing of it";
    if (!path.up)
        reason = "its link is down";
    else if (!kolt_is_wifi_link(type))
        reason = "only Wi-Fi links are compared";
    (void)fprintf(out, "  %-8s  %s: %s\n", top_link_name(type), top_printable(path.name).text, reason);
}

void print_paths(FILE *out, const top_bridge &bridge, const top_why &why) {
    (void)fputs("\n  ", out);
    top_print_titles(out, PATH_COLUMNS, 0);
    (void)fputc('\n', out);
    for (const kolt_link_type type : KOLT_LINKS) {
        const top_path &path = bridge.paths[type];
        const ps_path &row = bridge.rows[type];
        if (!path.configured)
            continue;
        const char *remark = path.abnormal ? "too slow" : type == why.target ? "chosen" : "";
        if (type == why.best && why.best != why.target)
            remark = "best";
        if (row.is_present())
            print_path(out, row, path, top_link_name(type), remark);
        else
            print_unmeasured(out, path, type);
    }
    (void)fputs("  score = (100 + 20 x priority) x (quota in 0.01 % x rate / 100)\n", out);
}

const char *place_sentence(top_place place) {
    switch (place) {
    case top_place::NO_SELECTION:
        return "Its bridge has no path selection: nobody places it.";
    case top_place::OTHER_MODE:
        return "Nothing is placed here: only a node in mode RE does so, and never on br-wan.";
    case top_place::RELAY:
        return "It is behind a relay port, so there is only one way to it: it is not placed.";
    case top_place::NO_PATH:
        return "No path can be used now: it stays where it is.";
    case top_place::POWER_LINE:
        return "It is seen through power line: neither it nor its streams are moved.";
    case top_place::IN_PLACE:
        return "It is where path selection wants it.";
    case top_place::MOVES:
        return "The next period pins it to the chosen path.";
    default:
        return "With \"cpu_limit\" the path is the one that the daemon chose most often in 20 periods, which only the\n"
               "daemon knows.";
    }
}

void print_preference(FILE *out, const top_node &node, const top_why &why) {
    if (why.preferred == PATH_NONE)
        return;
    const bool means_5g = node.configuration->param.cpu_limit != 0;
    if (why.is_prefered)
        (void)fprintf(out, "The configuration prefers %s, which is fast and quiet enough%s.\n",
                      top_link_name(why.preferred), means_5g ? "; with \"cpu_limit\" that means 5g" : "");
    else
        (void)fprintf(out,
                      "The configuration prefers %s, but it is down, noisy or not above the rate of %d: the score "
                      "decides.\n",
                      top_link_name(why.preferred), node.configuration->param.rate_threshold);
}

// The bytes are counted for the estimation of acknowledgements alone.
void print_hold(FILE *out, const config_param &param) {
    if (param.cpu_limit != 0 && param.estimate_ack_enable != 0)
        (void)fputs("Clients stay while one of the last five adjusting periods carried more than 3 MB.\n", out);
}

void print_load(FILE *out, const top_node &node, const top_bridge &bridge) {
    const config_param &param = node.configuration->param;
    if (!bridge.overloaded)
        (void)fprintf(out, "Streams stay: no path is above %d %%.\n", param.high_threshold);
    else if (bridge.full)
        (void)fprintf(out, "Streams stay: every path is above %d %%, none by more than %d less.\n",
                      param.high_threshold, param.delta_threshold);
    else
        (void)fprintf(out,
                      "A path is above %d %% and another has room: in the second such period in a row up to %d of its\n"
                      "streams move.\n",
                      param.high_threshold, param.adjusted_streams);
}

constexpr top_column STREAM_COLUMNS[] = {
    {"FROM", 5, true, 0},  {"TO", 5, true, 0},    {"OTHER END", 17, false, 0}, {"ON", 15, false, 0},
    {"BYTES", 6, true, 0}, {"SHARE", 7, true, 0}, {"", 14, false, 0},
};

void print_stream(FILE *out, const top_node &node, const top_found &found, const ha_entry &stream,
                  const top_why &of_client) {
    char from[8];
    char to[8];
    (void)snprintf(from, sizeof from, "%u", stream.src_port);
    (void)snprintf(to, sizeof to, "%u", stream.dst_port);
    const bool ends_here = kolt_mac_equal(stream.dst_addr, found.client->mac) == 1;
    const auto other = top_mac_text(ends_here ? stream.src_addr : stream.dst_addr);
    const auto on = top_interface_name(*found.bridge, stream.port);
    const auto bytes = top_short_number(stream.num_bytes);
    const top_stream_why why = top_explain_stream(node, *found.bridge, stream, of_client);
    const auto share = top_quota_text(why.share);
    const char *const cells[] = {from,
                                 to,
                                 other.text,
                                 on.text,
                                 bytes.text,
                                 of_client.best != PATH_NONE ? share.text : "-",
                                 top_stream_place_word(why.place)};
    (void)fputs("  ", out);
    top_print_row(out, STREAM_COLUMNS, 0, cells);
    (void)fputc('\n', out);
}

void print_streams(FILE *out, const top_node &node, const top_found &found, const top_why &of_client) {
    if (kolt_check_ha_entry_valid(&found.client->ha[0]) == 0) {
        (void)fputs("It has no stream that could move.\n", out);
        return;
    }
    (void)fputs("\n  ", out);
    top_print_titles(out, STREAM_COLUMNS, 0);
    (void)fputc('\n', out);
    for (const ha_entry &stream : found.client->ha) {
        if (kolt_check_ha_entry_valid(&stream) == 0)
            break;
        print_stream(out, node, found, stream, of_client);
    }
}

} // namespace

void top_show_why(FILE *out, const top_node &node, const top_found &found) {
    const top_bridge &bridge = *found.bridge;
    const top_why why = top_explain(node, bridge, *found.client);
    print_whereabouts(out, found);
    const bool compared = why.place != top_place::NO_SELECTION && why.place != top_place::RELAY;
    if (compared)
        print_paths(out, bridge, why);
    (void)fprintf(out, "\n%s\n", place_sentence(why.place));
    if (!compared || why.place == top_place::OTHER_MODE)
        return;
    if (bridge.cpu_overloaded)
        (void)fprintf(out, "The processor is above %d %%: 2.4g counts as full.\n",
                      node.configuration->param.cpu_threshold);
    print_preference(out, node, why);
    if (top_moves_streams(why.place)) {
        print_hold(out, node.configuration->param);
        print_load(out, node, bridge);
    }
    if (bridge.has_streams)
        print_streams(out, node, found, why);
}
