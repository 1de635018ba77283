// Measures one period of path selection inside a simulated node (bench/period.py makes it), and the ranking of streams
// beside its plain form. Ends with status 1 when a limit is broken, with 2 when the two rankings differ.
#include "period_parts.h"
#include "period_report.h"
#include "period_tables.h"
#include "plain_ranking.h"

#include "core/config_load.h"
#include "core/hub/netlink_sockets.h"
#include "core/log.h"
#include "core/ubus.h"
#include "path_selection/module.h"
#include "path_selection/period.h"
#include "probes/clients.h"
#include "probes/ports.h"
#include "probes/streams/ranking.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <sys/resource.h>
#include <sys/socket.h>

namespace {

constexpr char BRIDGE[] = "br-lan";
constexpr int PERIODS = 15;          // of each size; the median counts
constexpr double REPEATED_FOR = 0.1; // seconds, each ranking

period_findings found;

config configuration;

double children_seconds() {
    rusage usage{};
    (void)getrusage(RUSAGE_CHILDREN, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

period_tables tables_of(const benchmark::State &state) {
    return make_tables(static_cast<uint32_t>(state.range(0)), static_cast<uint32_t>(state.range(1)),
                       if_nametoindex("wlan0.1"), if_nametoindex("wlan2.1"));
}

findings_of_size &findings_of(const benchmark::State &state) {
    return found[{state.range(0), state.range(1)}];
}

// What the daemon's loop does between two periods: a period that finds link notifications waiting trusts no interface's
// name beyond a wait.
void read_link_notifications() {
    char message[KOLT_NETLINK_BUFFER_SIZE];
    while (recv(configuration.ev.wifi_fd.fd, message, sizeof message, MSG_DONTWAIT) > 0) {
    }
}

void run_period(void *workspace) {
    path_selection_run_period(&configuration, static_cast<ps_workspace *>(workspace));
}

// Each part by its own median.
period_times medians(const std::vector<period_times> &periods) {
    period_times result = periods.back();
    for (size_t part = 0; part < PERIOD_PARTS; part++) {
        std::vector<double> cpu;
        std::vector<double> wall;
        for (const period_times &period : periods) {
            cpu.push_back(period.cpu[part]);
            wall.push_back(period.wall[part]);
        }
        result.cpu[part] = median(cpu);
        result.wall[part] = median(wall);
    }
    return result;
}

void measure_period(benchmark::State &state) {
    write_tables(BRIDGE, tables_of(state));
    std::vector<kolt_client> clients(KOLT_MAX_CLIENTS);
    ps_workspace workspace;
    workspace.clients = clients.data();
    run_period(&workspace); // what is kept from period to period takes its size
    std::vector<period_times> periods;
    std::vector<double> own;
    const double children = children_seconds();
    for (auto _ : state) {
        read_link_notifications();
        periods.push_back(measure_parts(run_period, &workspace));
        own.push_back(periods.back().own());
        state.SetIterationTime(own.back());
    }
    findings_of_size &here = findings_of(state);
    here.parts = medians(periods);
    here.own = median(own);
    here.children = (children_seconds() - children) / static_cast<double>(periods.size());
    state.counters["median_us"] = here.own * 1e6;
    state.counters["whole_cpu_us"] = here.parts.whole() * 1e6;
    state.counters["children_us"] = here.children * 1e6;
    state.counters["whole_wall_us"] = here.parts.whole_wall() * 1e6;
}

using ranking_function = decltype(plain_rank_streams);

void indexed_rank_streams(std::span<ha_table_entry> table, std::span<kolt_client> clients,
                          const kolt_interface_list &ports) {
    static kolt_stream_ranking ranking; // its memory is kept, as from period to period
    kolt_rank_streams(&ranking, table, clients, ports);
}

// What a ranking starts from, and a copy that it may work in.
class ranking_scene {
public:
    explicit ranking_scene(const period_tables &tables) : tables_(tables), pristine_(KOLT_MAX_CLIENTS) {
        (void)kolt_get_active_ports(&configuration, BRIDGE, &ports_);
        const kolt_interface_list active = ports_.list();
        write_tables(BRIDGE, tables);
        count_ = kolt_get_client_list(BRIDGE, &active, pristine_.data());
        begin();
    }

    void begin() {
        streams_ = tables_.ha;
        clients_ = pristine_;
    }

    void rank(ranking_function *function) {
        function(streams_, std::span(clients_).first(count_), ports_.list());
    }

    [[nodiscard]] bool equals(const ranking_scene &other) const {
        return count_ == other.count_ &&
               memcmp(streams_.data(), other.streams_.data(), streams_.size() * sizeof streams_[0]) == 0 &&
               memcmp(clients_.data(), other.clients_.data(), clients_.size() * sizeof clients_[0]) == 0;
    }

    // Streams that were ranked, and records that the merging of directions has raised.
    [[nodiscard]] uint32_t ranked() const {
        uint32_t sum = 0;
        for (const kolt_client &client : clients_)
            sum +=
                static_cast<uint32_t>(std::count_if(std::begin(client.ha), std::end(client.ha), [](const auto &entry) {
                    return kolt_check_ha_entry_valid(&entry) != 0 && entry.num_rxbytes != 0;
                }));
        return sum;
    }

private:
    const period_tables &tables_;
    kolt_port_list ports_;
    std::vector<kolt_client> pristine_;
    uint8_t count_ = 0;
    std::vector<kolt_client> clients_;
    std::vector<ha_table_entry> streams_;
};

void measure_ranking(benchmark::State &state, ranking_function *function, double findings_of_size::*where) {
    const period_tables tables = tables_of(state);
    ranking_scene scene(tables);
    std::vector<double> taken;
    for (auto _ : state) {
        scene.begin();
        const double begin = thread_seconds();
        scene.rank(function);
        taken.push_back(thread_seconds() - begin);
        state.SetIterationTime(taken.back());
    }
    findings_of(state).*where = median(taken);
    state.counters["median_us"] = findings_of(state).*where * 1e6;
}

void indexed_ranking(benchmark::State &state) {
    measure_ranking(state, indexed_rank_streams, &findings_of_size::indexed);
}

void plain_ranking(benchmark::State &state) {
    measure_ranking(state, plain_rank_streams, &findings_of_size::plain);
}

// Ends the program unless both rankings give the same records and tables, at every size.
void check_equality() {
    for (const int64_t clients : PERIOD_CLIENTS) {
        for (const int64_t streams : PERIOD_STREAMS) {
            const period_tables tables = make_tables(static_cast<uint32_t>(clients), static_cast<uint32_t>(streams),
                                                     if_nametoindex("wlan0.1"), if_nametoindex("wlan2.1"));
            ranking_scene indexed(tables);
            ranking_scene plain(tables);
            indexed.rank(indexed_rank_streams);
            plain.rank(plain_rank_streams);
            if (indexed.ranked() == 0 || !indexed.equals(plain)) {
                (void)fprintf(stderr, "The two rankings differ with %d clients and %d streams.\n",
                              static_cast<int>(clients), static_cast<int>(streams));
                exit(2);
            }
        }
    }
}

void register_benchmarks() {
    const std::vector<std::vector<int64_t>> sizes = {{std::begin(PERIOD_CLIENTS), std::end(PERIOD_CLIENTS)},
                                                     {std::begin(PERIOD_STREAMS), std::end(PERIOD_STREAMS)}};
    const std::vector<std::string> names = {"clients", "streams"};
    benchmark::RegisterBenchmark("period_own_work", measure_period)
        ->ArgsProduct(sizes)
        ->ArgNames(names)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond)
        ->Iterations(PERIODS);
    benchmark::RegisterBenchmark("ranking", indexed_ranking)
        ->ArgsProduct(sizes)
        ->ArgNames(names)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond)
        ->MinTime(REPEATED_FOR);
    benchmark::RegisterBenchmark("plain_scan_ranking", plain_ranking)
        ->ArgsProduct(sizes)
        ->ArgNames(names)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond)
        ->MinTime(REPEATED_FOR);
}

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    log_level = KOLT_LOG_QUIET;
    kolt_list_init(&configuration.modules);
    config_load(&configuration, "/etc/kolt.json");
    kolt_list_init(&configuration.ev.subscribers);
    const bool looping = uloop_init() == 0;
    if (looping)
        event_wifi_init(&configuration.ev); // by whose messages a period sees that no interface has changed
    kolt_module *module = looping ? path_selection_init(&configuration) : nullptr;
    if (module == nullptr)
        return 2;
    check_equality();
    register_benchmarks();
    const size_t run = benchmark::RunSpecifiedBenchmarks();
    // A filtered run has not measured what the report compares.
    const bool kept = run < 3 * std::size(PERIOD_CLIENTS) * std::size(PERIOD_STREAMS) || report_period(found);
    module->free(module);
    uloop_done();
    return kept ? EXIT_SUCCESS : EXIT_FAILURE;
}
