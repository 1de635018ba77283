// The order of a bridge's period, from measuring to the last client.
#include "path_selection/uplink.h"

#include "adaptors/wlan.h"
#include "core/log.h"
#include "path_selection/context.h"
#include "path_selection/decide/score.h"
#include "path_selection/ha_balancing.h"
#include "path_selection/hd_placement.h"
#include "path_selection/interface_cache.h"
#include "path_selection/measurement.h"
#include "path_selection/statistics.h"
#include "probes/addresses.h"
#include "probes/ap_clients.h"
#include "probes/stream_list.h"

namespace {

constexpr char OPERATION[] = "path_selection_update_uplink_paths";

// What a bridge's period has decided before it comes to the clients.
struct uplink_period {
    uplink_period(int link_fd, kolt_wait_budget *answers) : interfaces(link_fd), budget(answers) {}

    uint8_t bridge_mac[KOLT_MAC_SIZE] = {};
    uint8_t reference_mac[KOLT_MAC_SIZE] = {}; // none
    ps_path_table paths;
    interface_cache interfaces; // filled only once everything is measured
    kolt_wait_budget *budget;
    kolt_link_type backhaul = PATH_NONE;
    int is_prefered = 0;
    uint8_t adjust = 0;
};

// No access point clients count as this bridge's own.
constexpr kolt_ap_client_list NO_AP_CLIENTS;

void measure_paths(const config *config, const char *bridge, const kolt_interface_list *path_ports,
                   uplink_period *period) {
    if (config->param.wlan_enable != 0)
        path_selection_get_wlan_path_info(bridge, path_ports, &period->paths, config);
    const int overload = path_selection_check_paths_overload(config, period->paths);
    const int full = path_selection_check_paths_full_load(config, period->paths);
    path_selection_init_path_quota(config, &period->paths);
    // Balancing makes sense only when some path is hot and another has room.
    period->adjust = overload == 1 && full != 1 ? 1 : 0;
}

void read_streams(const config *config, const char *bridge, const kolt_interface_list *nonrelay_ports,
                  const uplink_period &period, kolt_client_list *clients, kolt_stream_ranking *ranking) {
    (void)kolt_get_client_list_ha_entries(bridge, clients, nonrelay_ports,
                                          ranking); // it logs its failure; no streams then
    if (config->param.estimate_ack_enable == 0)
        return;
    ps_history_table &histories = path_selection_ctx.histories;
    if (path_selection_update_uplink_path_stats(bridge, &period.paths, &histories) == 1)
        path_selection_estimate_ack_streams(&histories, clients);
}

void judge_preferred_backhaul(const config_param &param, uplink_period *period) {
    if (param.backhual_prefered != 0) {
        period->backhaul = static_cast<kolt_link_type>(param.backhual_prefered + 1U);
        period->is_prefered = path_selection_is_prefered_path(period->paths, period->backhaul, param.rate_threshold);
    }
    KOLT_DEBUG_AS(OPERATION, "backhual: %d, prefered: %d, is_prefered: %d", static_cast<int>(period->backhaul),
                  param.backhual_prefered, period->is_prefered);
}

ps_path *choose_hd_path(const config_param &param, uplink_period *period, ps_path *best, bool first_client) {
    if (param.cpu_limit != 0) {
        const ps_path &candidate = period->is_prefered == 1 ? period->paths[KOLT_LINK_5G] : *best;
        return path_selection_find_hd_port(&period->paths, candidate.path, first_client);
    }
    return period->is_prefered == 1 ? &period->paths[period->backhaul] : best;
}

void place_client(const config *config, const char *bridge, uplink_period *period, const kolt_client &client,
                  bool first_client) {
    const char *ifname = period->interfaces.name_of(client.port);
    if (ifname == nullptr) {
        KOLT_ERROR_AS(OPERATION, "error ifname");
        return;
    }
    if (path_selection_is_norelay_client(client) != 1)
        return;
    KOLT_DEBUG_AS(OPERATION, "client: %02X:%02X:%02X:%02X:%02X:%02X, ifname:%s, relay:%s", KOLT_MAC_OCTETS(client.mac),
                  ifname, client.is_nonrelay() ? "norelay" : "relay");
    ps_path *best = path_selection_get_best_path(client, &period->paths);
    if (best == nullptr)
        return;
    const ps_path *hd = choose_hd_path(config->param, period, best, first_client);
    KOLT_DEBUG_AS(OPERATION, "hd_path %.16s, best path %.16s", hd->name, best->name);
    const int placed = path_selection_update_uplink_hd_table(&period->interfaces, bridge, period->bridge_mac, client,
                                                             hd->name, period->reference_mac, &NO_AP_CLIENTS);
    // One overloaded period alone moves no streams.
    if (placed == 1 && period->adjust == 1 && path_selection_ctx.last_adjust_status == 1)
        path_selection_update_uplink_ha_table({.configuration = config,
                                               .bridge = bridge,
                                               .interfaces = &period->interfaces,
                                               .paths = &period->paths,
                                               .best = best,
                                               .budget = period->budget},
                                              client);
}

} // namespace

ps_path *path_selection_get_best_path(const kolt_client &client, ps_path_table *paths) {
    return ps_find_best_path(paths, client.is_relay());
}

int path_selection_is_prefered_path(const ps_path_table &paths, kolt_link_type backhaul, uint16_t rate_threshold) {
    if (backhaul >= paths.size() || !paths[backhaul].is_usable())
        return 0;
    const ps_path &row = paths[backhaul];
    if (wlan_is_5g_low_noise(row.rate, row.util, reinterpret_cast<uintptr_t>(path_selection_ctx.configuration)) == 0)
        return 0;
    return row.rate > rate_threshold ? 1 : 0;
}

int path_selection_is_norelay_client(const kolt_client &client) {
    return client.is_relay() ? 0 : 1;
}

void path_selection_update_uplink_paths(config *config, const char *bridge, const kolt_interface_list *path_ports,
                                        const kolt_interface_list *nonrelay_ports, kolt_client_list *clients,
                                        kolt_stream_ranking *ranking, kolt_wait_budget *budget) {
    uplink_period period(config->ev.wifi_fd.fd, budget);
    if (kolt_get_bridge_mac(bridge, period.bridge_mac) != 1) {
        KOLT_ERROR("get br mac");
        return;
    }
    measure_paths(config, bridge, path_ports, &period);
    if (period.adjust == 1)
        read_streams(config, bridge, nonrelay_ports, period, clients, ranking);
    judge_preferred_backhaul(config->param, &period);
    for (const kolt_client &client : clients->span())
        place_client(config, bridge, &period, client, &client == clients->clients);
    path_selection_ctx.last_adjust_status = period.adjust;
}
