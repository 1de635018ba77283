// The order of the questions is that of a period.
#include "why.h"

#include "path_selection/decide/load.h"
#include "path_selection/decide/score.h"
#include "path_selection/decide/stream_share.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr char WAN_BRIDGE[] = "br-wan"; // never steered while the node extends another's network

kolt_link_type type_of(const ps_path_table &rows, const ps_path *row) {
    return row != nullptr ? static_cast<kolt_link_type>(row - rows.data()) : PATH_NONE;
}

kolt_link_type find_best(const top_bridge &bridge, const kolt_client &client) {
    ps_path_table rows = bridge.rows; // the decision hands out rows to be changed
    return type_of(rows, ps_find_best_path(&rows, client.is_relay()));
}

top_place judge_place(const config_param &param, const top_bridge &bridge, const kolt_client &client,
                      kolt_link_type target) {
    if (target == PATH_NONE)
        return top_place::NO_PATH;
    if (param.cpu_limit != 0)
        return top_place::REMEMBERED;
    if (client.hd_port == bridge.paths[target].ifindex)
        return top_place::IN_PLACE;
    return client.type == KOLT_LINK_PLC ? top_place::POWER_LINE : top_place::MOVES;
}

} // namespace

top_why top_explain(const top_node &node, const top_bridge &bridge, const kolt_client &client) {
    const config_param &param = node.configuration->param;
    top_why why;
    if (!bridge.selects_paths)
        return why;
    if (client.is_relay()) {
        why.place = top_place::RELAY;
        return why;
    }
    why.best = find_best(bridge, client);
    why.target = why.best;
    if (param.backhual_prefered != 0) {
        why.preferred = static_cast<kolt_link_type>(param.backhual_prefered + 1U);
        why.is_prefered = bridge.prefers_backhaul;
    }
    if (why.is_prefered && why.best != PATH_NONE)
        why.target = why.preferred;
    if (node.mode != KOLT_MODE_RE || strcmp(bridge.name, WAN_BRIDGE) == 0)
        why.place = top_place::OTHER_MODE;
    else
        why.place = judge_place(param, bridge, client, why.target);
    if (param.cpu_limit != 0)
        why.target = PATH_NONE; // the daemon's memory decides
    return why;
}

top_stream_why top_explain_stream(const top_node &node, const top_bridge &bridge, const ha_entry &stream,
                                  const top_why &of_client) {
    const config_param &param = node.configuration->param;
    const kolt_link_type best = of_client.best;
    top_stream_why why{.place = top_stream_place::STAYS};
    if (best == PATH_NONE)
        return why;
    const ps_path &best_row = bridge.rows[best];
    why.share = ps_stream_quota(stream.num_bytes, param.period, best_row.rate).quota;
    if (!top_moves_streams(of_client.place))
        return why;
    const top_path *path = top_path_of(bridge, stream.port);
    const auto type = path != nullptr ? static_cast<kolt_link_type>(path - bridge.paths) : PATH_NONE;
    if (type == best)
        why.place = top_stream_place::ON_BEST;
    else if (type == PATH_NONE ||
             !ps_is_overloaded_beside(bridge.rows[type], best_row, param.high_threshold, param.delta_threshold))
        why.place = top_stream_place::CALM;
    else if (why.share == 0)
        why.place = top_stream_place::WEIGHS_NOTHING;
    else if (best_row.quota <= 0 || why.share >= static_cast<uint32_t>(best_row.quota))
        why.place = top_stream_place::TOO_BIG;
    else
        why.place = top_stream_place::MAY_MOVE;
    return why;
}

const char *top_place_word(top_place place) {
    constexpr const char *WORDS[] = {"not-steered", "other-mode", "relay", "no-path",
                                     "power-line",  "in-place",   "moves", "remembered"};
    return WORDS[static_cast<size_t>(place)];
}

const char *top_stream_place_word(top_stream_place place) {
    constexpr const char *WORDS[] = {"on-best", "calm", "too-big", "weighs-nothing", "may-move", "stays"};
    return WORDS[static_cast<size_t>(place)];
}

top_path_text top_path_state(const top_node &node, const top_bridge &bridge, kolt_link_type type) {
    const top_path &path = bridge.paths[type];
    const ps_path &row = bridge.rows[type];
    if (!path.up)
        return {"down"};
    if (path.abnormal)
        return {"slow"};
    if (!row.is_present())
        return kolt_is_wifi_link(type) ? top_path_text{"unread"} : top_path_text{"up"};
    const bool hot = row.adjusted_util() > node.configuration->param.high_threshold;
    const bool best = find_best(bridge, kolt_client{}) == type;
    top_path_text state;
    (void)snprintf(state.text, sizeof state.text, "%s%s%s", hot ? "hot" : "", hot && best ? "," : "",
                   best ? "best" : (hot ? "" : "up"));
    return state;
}

const char *top_bridge_state(const top_bridge &bridge) {
    if (!bridge.active)
        return "away";
    if (!bridge.selects_paths)
        return "not-steered";
    if (!bridge.overloaded)
        return "calm";
    return bridge.full ? "full" : "adjusting";
}
