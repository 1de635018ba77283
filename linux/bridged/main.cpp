// kolt-bridged: owns the programs on the backhaul ports, watches links and neighbours, and answers kolt.
#include "bridged/calls.h"
#include "bridged/clients.h"
#include "bridged/leftovers.h"
#include "bridged/neighbours.h"
#include "bridged/node.h"
#include "bridged/ports.h"
#include "bridged/refusal.h"
#include "bridged/report.h"
#include "bridged/saved_state.h"
#include "bridged/settle.h"
#include "bridged/tables.h"
#include "bridged/upkeep.h"
#include "core/config_load.h"
#include "core/container_of.h"
#include "core/log.h"
#include "lib/records.h"
#include "lib/requests.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/file.h>
#include <sys/stat.h>

namespace {

constexpr int SECOND_MS = 1000;
constexpr uint32_t SHORTEST_PERIOD_MS = 1000; // a configuration without a period is measured every second

void program_log(void * /*context*/, bool warning, const char *line) {
    if (warning)
        KOLT_ERROR_AS("kolt_programs", "%s", line);
    else
        KOLT_DUMP_AS("kolt_programs", "%s", line);
}

void fdb_changed(bridged *self, const fdb_record &entry) {
    bridge_node *node = node_find_index(self, entry.bridge);
    if (node == nullptr || entry.removed || entry.is_local || entry.is_static)
        return;
    const bridge_fdb_record record = table_record_of(entry);
    (void)requests_send_event(self->requests, PROTOCOL_BRIDGE_EVENTS, BRIDGE_EVENT_LEARNT, &record, sizeof(record));
}

void kernel_changed(uloop_fd *watch, unsigned /*events*/) {
    bridged *self = KOLT_CONTAINER_OF(watch, bridged_watches, monitor)->owner;
    const auto link_changed = [self](const link_info &link) { ports_link_changed(self, link); };
    const auto port_told = [self](const bridge_port &port) { upkeep_port_told(self, port); };
    const auto entry_changed = [self](const fdb_record &entry) { fdb_changed(self, entry); };
    monitor_callbacks callbacks;
    callbacks.link = link_changed;
    callbacks.port = port_told;
    callbacks.fdb = entry_changed;
    const int error = self->monitor.receive(callbacks);
    if (error == ENOBUFS)
        ports_overrun(self);
    else if (error != 0)
        KOLT_ERROR("cannot hear of changes: %s", strerror(error));
    // An overrun counts as an error of the descriptor, for which the loop drops it.
    (void)uloop_fd_add(watch, ULOOP_READ);
}

void beat(uloop_timeout *timer) {
    bridged *self = KOLT_CONTAINER_OF(timer, bridged_watches, beat)->owner;
    clients_take_roamed(self);
    for (uint32_t i = 0; i < self->bridge_count; i++) {
        if (self->bridges[i].ifindex == 0)
            continue;
        neighbours_hear(&self->bridges[i]);
        neighbours_count_foreign(&self->bridges[i]);
        tree_tick(&self->bridges[i].links, node_now());
        settle(&self->bridges[i]);
    }
}

void second_passed(uloop_timeout *timer) {
    bridged *self = KOLT_CONTAINER_OF(timer, bridged_watches, second)->owner;
    (void)self->streams.sweep(node_now());
    upkeep_second(self);
    (void)uloop_timeout_set(timer, SECOND_MS);
}

int period_ms(const bridged *self) {
    const uint32_t period = self->configured.param.period;
    return static_cast<int>(std::clamp<uint32_t>(period, SHORTEST_PERIOD_MS, INT32_MAX));
}

void period_passed(uloop_timeout *timer) {
    bridged *self = KOLT_CONTAINER_OF(timer, bridged_watches, period)->owner;
    self->streams.end_period();
    (void)uloop_timeout_set(timer, period_ms(self));
}

void name_bridges(bridged *self) {
    for (uint32_t i = 0; i < self->configured.bridge_num; i++) {
        const config_bridge &bridge = self->configured.bridges[i];
        if ((bridge.flags & CONFIG_LOOP_AVOIDANCE) == 0)
            continue;
        bridge_node &node = self->bridges[self->bridge_count++];
        node.owner = self;
        kolt_copy_name(node.name, bridge.name);
        node.links.timing.interval_ms = self->settings.interval_ms;
        node.links.timing.quiet =
            (self->settings.listen_ms + self->settings.interval_ms - 1) / self->settings.interval_ms;
    }
}

bool open_programs(bridged *self) {
    kolt_reason why;
    switch (self->programs.open(self->settings.pin_folder, &why)) {
    case kolt_opened::FRESH:
        break;
    case kolt_opened::TAKEN_OVER:
        KOLT_INFO("the tables of the process before are taken over");
        break;
    default:
        KOLT_ERROR("%s", why.text);
        return false;
    }
    if (self->streams.open(self->programs, node_now(), &why))
        return true;
    KOLT_ERROR("%s", why.text);
    return false;
}

bool open_requests(bridged *self) {
    char path[96];
    (void)snprintf(path, sizeof(path), "%s/" KOLT_BRIDGED_SOCKET_NAME, self->settings.run_folder);
    self->requests = requests_open(path, calls_of(self));
    if (self->requests == nullptr)
        KOLT_ERROR("cannot listen at %s: %s", path, strerror(errno));
    return self->requests != nullptr;
}

bool open_monitor(bridged *self) {
    const int error = self->monitor.open();
    if (error != 0) {
        KOLT_ERROR("cannot listen to the kernel: %s", strerror(error));
        return false;
    }
    self->watches.monitor.fd = self->monitor.fd();
    self->watches.monitor.cb = kernel_changed;
    return uloop_fd_add(&self->watches.monitor, ULOOP_READ) == 0;
}

void change_stop_signals(int how) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    (void)sigprocmask(how, &signals, nullptr); // cannot fail with these arguments
}

void loop_runs(uloop_timeout * /*timer*/) {
    change_stop_signals(SIG_UNBLOCK);
}

void start_timers(bridged *self) {
    self->watches.first_turn.cb = loop_runs;
    (void)uloop_timeout_set(&self->watches.first_turn, 0);
    self->watches.beat.cb = beat;
    self->watches.second.cb = second_passed;
    self->watches.period.cb = period_passed;
    (void)uloop_timeout_set(&self->watches.second, SECOND_MS);
    (void)uloop_timeout_set(&self->watches.period, period_ms(self));
}

// Two processes would set the same ports against each other. The lock goes with the process.
bool be_the_only_one(const bridged *self) {
    (void)mkdir(self->settings.run_folder, 0755); // one that is there already is what we want
    char path[96];
    (void)snprintf(path, sizeof(path), "%s/lock", self->settings.run_folder);
    const int lock = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (lock >= 0 && flock(lock, LOCK_EX | LOCK_NB) == 0)
        return true;
    KOLT_ERROR("%s: %s", path, errno == EWOULDBLOCK ? "another kolt-bridged runs" : strerror(errno));
    return false;
}

// The bridge stays as it is at the end: frozen, and free of loops.
int run(bridged *self) {
    if (!open_programs(self) || !open_monitor(self))
        return EXIT_FAILURE;
    start_timers(self);
    self->mode_goes_on = saved_mode_read(self);
    if (!self->mode_goes_on)
        saved_mode_write(self);
    if (!ports_look(self))
        return EXIT_FAILURE;
    (void)leftovers_give_back(self, LEFTOVERS_OF_KEPT); // the links are kept, whatever becomes of the rest
    // Whoever finds the socket may rely on the ports being guarded.
    if (!open_requests(self))
        return EXIT_FAILURE;
    report_all(self);
    (void)uloop_run();
    bus_stop(&self->bus);
    requests_close(self->requests);
    uloop_done();
    return EXIT_SUCCESS;
}

int release(bridged *self) {
    if (!open_programs(self))
        return EXIT_FAILURE;
    kolt_reason why;
    if (!ports_look(self) || !ports_release(self))
        return EXIT_FAILURE; // the pins are still of use to whoever tries again
    if (kolt_programs::unpin(self->settings.pin_folder, &why))
        return EXIT_SUCCESS;
    KOLT_ERROR("%s", why.text);
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char **argv) {
    // Too large for a stack. It lives for as long as the process.
    void *memory = calloc(1, sizeof(bridged));
    if (memory == nullptr)
        return EXIT_FAILURE;
    auto *self = new (memory) bridged;
    self->watches.owner = self;
    int status = EXIT_SUCCESS;
    if (!settings_read(argc, argv, &self->settings, &status))
        return status;
    openlog("kolt-bridged", LOG_CONS | LOG_PERROR, LOG_DAEMON);
    if (self->settings.action == BRIDGED_CHECK)
        log_level = KOLT_LOG_QUIET; // its lines are the answer
    kolt_list_init(&self->configured.modules);
    config_load(&self->configured, self->settings.config_file);
    self->mode = self->settings.mode;
    kolt_set_bpf_log(program_log, nullptr);
    if (self->rtnl.open() != 0) {
        KOLT_ERROR("cannot ask the kernel anything: %s", strerror(errno));
        return EXIT_FAILURE;
    }
    if (self->settings.action == BRIDGED_CHECK)
        return refusal_check(self, stdout) ? EXIT_SUCCESS : EXIT_FAILURE;
    if (self->configured.enable != 1 && self->settings.action == BRIDGED_RUN) {
        KOLT_ERROR("%s says that kolt is disabled", self->settings.config_file);
        return EXIT_SUCCESS;
    }
    change_stop_signals(SIG_BLOCK); // the loop forgets those that come before it runs; a release comes to its end first
    if (!be_the_only_one(self))
        return EXIT_FAILURE;
    name_bridges(self);
    (void)signal(SIGPIPE, SIG_IGN);
    (void)uloop_init();
    return self->settings.action == BRIDGED_RELEASE ? release(self) : run(self);
}
