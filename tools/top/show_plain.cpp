// Each line: when, what it is about, then "key=value"; "-" is what is not known.
#include "show_plain.h"

#include "why.h"
#include "words.h"

#include "path_selection/decide/score.h"

#include <cinttypes>

namespace {

void begin_line(FILE *out, const top_node &node, const char *about) {
    (void)fprintf(out, "%s %s", top_time_text(node.seconds).text, about);
}

void print_number(FILE *out, const char *key, bool known, uint64_t number, const char *unit = "") {
    if (known)
        (void)fprintf(out, " %s=%" PRIu64 "%s", key, number, unit);
    else
        (void)fprintf(out, " %s=-", key);
}

void print_streams(FILE *out, bool known, const top_streams &streams) {
    print_number(out, "streams", known, streams.count);
    print_number(out, "bytes", known, streams.bytes);
}

void print_measured(FILE *out, const ps_path &row) {
    const bool known = row.is_present();
    print_number(out, "util", known, row.util, "%");
    print_number(out, "rate", known, row.rate);
    (void)fprintf(out, " quota=%s", known ? top_quota_text(row.quota).text : "-");
    print_number(out, "score", row.is_usable(), row.is_usable() ? ps_score(row) : 0);
}

void print_path(FILE *out, const top_node &node, const top_bridge &bridge, kolt_link_type type) {
    const top_path &path = bridge.paths[type];
    begin_line(out, node, "path");
    (void)fprintf(out, " bridge=%s link=%s port=%s state=%s", top_printable(bridge.name).text, top_link_name(type),
                  top_printable(path.name).text, top_path_state(node, bridge, type).text);
    print_measured(out, bridge.rows[type]);
    print_number(out, "pinned", bridge.has_clients, path.pinned);
    print_streams(out, bridge.has_streams, path.streams);
    print_number(out, "rx_bits_per_s", path.traffic.timed, path.traffic.rx_bit_rate);
    print_number(out, "tx_bits_per_s", path.traffic.timed, path.traffic.tx_bit_rate);
    (void)fputc('\n', out);
}

void print_client(FILE *out, const top_node &node, const top_bridge &bridge, const kolt_client &client) {
    const top_why why = top_explain(node, bridge, client);
    const bool pinned = client.hd_port != KOLT_NO_HD_PORT;
    begin_line(out, node, "client");
    (void)fprintf(out, " bridge=%s mac=%s port=%s link=%s pinned=%s best=%s", top_printable(bridge.name).text,
                  top_mac_text(client.mac).text, top_interface_name(bridge, client.port).text,
                  top_link_name(client.type), pinned ? top_interface_name(bridge, client.hd_port).text : "-",
                  why.best != PATH_NONE ? top_link_name(why.best) : "-");
    print_streams(out, bridge.has_streams, bridge.loads[bridge.client_numbers.number_of(client.mac)]);
    (void)fprintf(out, " placement=%s\n", top_place_word(why.place));
}

void print_bridge(FILE *out, const top_node &node, const top_bridge &bridge) {
    begin_line(out, node, "bridge");
    (void)fprintf(out, " name=%s state=%s", top_printable(bridge.name).text, top_bridge_state(bridge));
    print_number(out, "ports", bridge.active, bridge.ports.count);
    print_number(out, "clients", bridge.active, bridge.clients.count);
    print_number(out, "pinned", bridge.has_clients, bridge.pinned_entries);
    print_number(out, "streams", bridge.has_streams, bridge.stream_entries);
    (void)fputc('\n', out);
    for (const kolt_link_type type : KOLT_LINKS) {
        if (bridge.paths[type].configured)
            print_path(out, node, bridge, type);
    }
    for (const kolt_client &client : bridge.clients.span())
        print_client(out, node, bridge, client);
}

} // namespace

void top_show_plain(FILE *out, const top_node &node) {
    begin_line(out, node, "node");
    (void)fprintf(out, " mode=%s enable=%d period_s=%" PRIu32 " read_us=%" PRIu32 "\n", top_mode_name(node.mode),
                  node.configuration->enable, node.configuration->param.period / 1000, node.read_us);
    for (const top_bridge &bridge : node.all_bridges())
        print_bridge(out, node, bridge);
    for (uint8_t i = 0; i < node.notes.count; i++) {
        begin_line(out, node, "note");
        (void)fprintf(out, " %s\n", node.notes.texts[i]);
    }
}
