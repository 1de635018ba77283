// One table of metrics over the paths and one over the bridges, each metric with all its samples behind its help.
#include "show_prometheus.h"

#include "why.h"
#include "words.h"

#include "path_selection/decide/score.h"

#include <cinttypes>
#include <cstring>

namespace {

// A path or a bridge of the node, as a metric sees it; `type` counts for paths alone.
struct sample {
    const top_node &node;
    const top_bridge &bridge;
    kolt_link_type type;

    [[nodiscard]] const top_path &path() const {
        return bridge.paths[type];
    }
    [[nodiscard]] const ps_path &row() const {
        return bridge.rows[type];
    }
};

// A value that may be missing; it is written as a number of `scale`-th parts.
struct value {
    bool known;
    uint64_t number;
    uint64_t scale = 1;
};

struct metric {
    const char *name;
    const char *kind;
    const char *help;
    value (*read)(const sample &of);
};

constexpr uint64_t PARTS_OF_PERCENT = 100;
constexpr uint64_t PARTS_OF_QUOTA = 10000;

constexpr metric PATH_METRICS[] = {
    {"kolt_path_up", "gauge", "Whether the link is up.",
     [](const sample &of) {
         return value{true, of.path().up ? 1U : 0U};
     }},
    {"kolt_path_measured", "gauge", "Whether path selection could measure the link.",
     [](const sample &of) {
         return value{true, of.row().is_present() ? 1U : 0U};
     }},
    {"kolt_path_utilisation_ratio", "gauge", "How busy the link's channel is, 0 to 1.",
     [](const sample &of) {
         return value{of.row().is_present(), of.row().util, PARTS_OF_PERCENT};
     }},
    {"kolt_path_rate", "gauge", "Processed PHY rate in the driver's unit, Mbit/s; 0 is unusable.",
     [](const sample &of) {
         return value{of.row().is_present(), of.row().rate};
     }},
    {"kolt_path_quota_ratio", "gauge", "What is left of the link's capacity, 0 to 1.",
     [](const sample &of) {
         const int quota = of.row().quota;
         return value{of.row().is_present(), quota > 0 ? static_cast<uint64_t>(quota) : 0, PARTS_OF_QUOTA};
     }},
    {"kolt_path_score", "gauge", "What the paths are compared by; the highest is the best.",
     [](const sample &of) {
         return value{of.row().is_usable(), of.row().is_usable() ? ps_score(of.row()) : 0};
     }},
    {"kolt_path_pinned_clients", "gauge", "Entries of the HD table that point at the link.",
     [](const sample &of) {
         return value{of.bridge.has_clients, of.path().pinned};
     }},
    {"kolt_path_streams", "gauge", "Entries of the HA table that point at the link.",
     [](const sample &of) {
         return value{of.bridge.has_streams, of.path().streams.count};
     }},
    {"kolt_path_stream_bytes", "gauge", "Bytes that the bridge counts for these entries now.",
     [](const sample &of) {
         return value{of.bridge.has_streams, of.path().streams.bytes};
     }},
    {"kolt_path_receive_bytes_total", "counter", "Bytes received on the link's interface.",
     [](const sample &of) {
         return value{of.path().traffic.counted, of.path().traffic.rx_bytes};
     }},
    {"kolt_path_transmit_bytes_total", "counter", "Bytes sent on the link's interface.",
     [](const sample &of) {
         return value{of.path().traffic.counted, of.path().traffic.tx_bytes};
     }},
};

uint64_t count_placed(const sample &of, top_place place) {
    uint64_t count = 0;
    for (const kolt_client &client : of.bridge.clients.span()) {
        if (top_explain(of.node, of.bridge, client).place == place)
            count++;
    }
    return count;
}

constexpr metric BRIDGE_METRICS[] = {
    {"kolt_bridge_active", "gauge", "Whether the platform knows the bridge.",
     [](const sample &of) {
         return value{true, of.bridge.active ? 1U : 0U};
     }},
    {"kolt_bridge_ports", "gauge", "Configured ports that the bridge has now.",
     [](const sample &of) {
         return value{of.bridge.active, of.bridge.ports.count};
     }},
    {"kolt_bridge_clients", "gauge", "Clients of the bridge, at most 255.",
     [](const sample &of) {
         return value{of.bridge.active, of.bridge.clients.count};
     }},
    {"kolt_bridge_clients_in_place", "gauge", "Clients that are pinned to the path that would be chosen now.",
     [](const sample &of) {
         return value{of.bridge.has_clients, count_placed(of, top_place::IN_PLACE)};
     }},
    {"kolt_bridge_clients_to_move", "gauge", "Clients that the next period pins to another path.",
     [](const sample &of) {
         return value{of.bridge.has_clients, count_placed(of, top_place::MOVES)};
     }},
    {"kolt_bridge_hd_entries", "gauge", "Entries of the HD table.",
     [](const sample &of) {
         return value{of.bridge.has_clients, of.bridge.pinned_entries};
     }},
    {"kolt_bridge_ha_entries", "gauge", "Entries of the HA table.",
     [](const sample &of) {
         return value{of.bridge.has_streams, of.bridge.stream_entries};
     }},
    {"kolt_bridge_overloaded", "gauge", "Whether some path is above the high threshold.",
     [](const sample &of) {
         return value{of.bridge.selects_paths, of.bridge.overloaded ? 1U : 0U};
     }},
    {"kolt_bridge_full", "gauge", "Whether all paths are, and none has room.",
     [](const sample &of) {
         return value{of.bridge.selects_paths, of.bridge.full ? 1U : 0U};
     }},
};

void print_label(FILE *out, const char *text) {
    const auto shown = top_printable(text);
    for (const char *at = shown.text; *at != '\0'; at++) {
        if (*at == '"' || *at == '\\')
            (void)fputc('\\', out);
        (void)fputc(*at, out);
    }
}

void print_value(FILE *out, const value &value) {
    if (value.scale == 1)
        (void)fprintf(out, "} %" PRIu64 "\n", value.number);
    else
        (void)fprintf(out, "} %.4f\n", static_cast<double>(value.number) / static_cast<double>(value.scale));
}

void print_sample(FILE *out, const metric &metric, const sample &of, bool is_path) {
    const value value = metric.read(of);
    if (!value.known)
        return;
    (void)fprintf(out, "%s{bridge=\"", metric.name);
    print_label(out, of.bridge.name);
    if (is_path) {
        (void)fprintf(out, "\",link=\"%s\",port=\"", top_link_name(of.type));
        print_label(out, of.path().name);
    }
    (void)fputc('"', out);
    print_value(out, value);
}

void print_head(FILE *out, const metric &metric) {
    (void)fprintf(out, "# HELP %s %s\n# TYPE %s %s\n", metric.name, metric.help, metric.name, metric.kind);
}

void print_paths(FILE *out, const metric &metric, const top_node &node) {
    print_head(out, metric);
    for (const top_bridge &bridge : node.all_bridges()) {
        for (const kolt_link_type type : KOLT_LINKS) {
            if (bridge.paths[type].configured)
                print_sample(out, metric, {node, bridge, type}, true);
        }
    }
}

} // namespace

void top_show_prometheus(FILE *out, const top_node &node) {
    (void)fprintf(out,
                  "# HELP kolt_node_info The node's work mode.\n# TYPE kolt_node_info gauge\n"
                  "kolt_node_info{mode=\"%s\"} 1\n",
                  top_mode_name(node.mode));
    (void)fprintf(out,
                  "# HELP kolt_read_seconds What reading the node took.\n# TYPE kolt_read_seconds gauge\n"
                  "kolt_read_seconds %.6f\n",
                  static_cast<double>(node.read_us) / 1e6);
    (void)fprintf(out,
                  "# HELP kolt_read_notes What reading the node had to complain of, at most 8 things.\n"
                  "# TYPE kolt_read_notes gauge\nkolt_read_notes %d\n",
                  node.notes.count);
    for (const metric &metric : BRIDGE_METRICS) {
        print_head(out, metric);
        for (const top_bridge &bridge : node.all_bridges())
            print_sample(out, metric, {node, bridge, PATH_NONE}, false);
    }
    for (const metric &metric : PATH_METRICS)
        print_paths(out, metric, node);
}
