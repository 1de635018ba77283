// One module stands in for the two: it hands on what it gets, in the order in which the daemon would.
#include "support/daemon.h"

#include "adaptors/rtk/rtk_platform.h"
#include "adaptors/wlan_platform.h"
#include "core/hub/hub.h"
#include "core/hub/netlink_sockets.h"
#include "core/log.h"
#include "core/module.h"
#include "core_log.h"
#include "loop_avoidance/module.h"
#include "path_selection/context.h"
#include "path_selection/module.h"
#include "path_selection/period.h"

#include <ctime>
#include <linux/netlink.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

extern "C" {
int __wrap_nanosleep(const timespec *wanted, timespec *left);
int __wrap_ioctl(int fd, unsigned long request, ifreq *interface);
}

int daemon_flow_calls;

namespace {

volatile uint8_t sink;

void use(const void *content, size_t size) {
    for (size_t i = 0; i < size; i++)
        sink = static_cast<const uint8_t *>(content)[i];
    daemon_flow_calls++;
}

// The real driver, with a flow cache and a station clean-up that it does not have itself.
wlan_platform complete_platform() {
    wlan_platform all = wlan_platform_rtk;
    all.delete_wds_entry = [](const char *ifname, const uint8_t *mac) {
        use(ifname, strlen(ifname));
        use(mac, KOLT_MAC_SIZE);
    };
    all.is_5g_low_noise = [](uint16_t rate, uint8_t utilization, uintptr_t) { return rate > utilization ? 1 : 0; };
    all.flush_all_fcache_flow = [] { return 1; };
    all.flush_fc_flow_by_ha = [](const kolt_fc_flow_key *key, uint8_t) { use(key, sizeof *key); };
    all.flush_fc_flow_by_mac = [](const uint8_t *mac, uintptr_t) {
        use(mac, KOLT_MAC_SIZE);
        return 1;
    };
    all.configure_fc_mode = [](kolt_work_mode mode) {
        require(mode <= KOLT_MODE_UNKNOWN);
        return 1;
    };
    return all;
}

const wlan_platform COMPLETE = complete_platform();

struct whole_daemon {
    config record;
    kolt_module *loop_avoidance;
    kolt_module *path_selection;
    kolt_module relay;
};
whole_daemon self;

void hand_on(config *record, kolt_list * /*sub*/, kolt_event_kind kind, kolt_event *event) {
    require(kind <= KOLT_EVENT_NEIGHBOUR && event != nullptr);
    const auto payload = copy_of({event->data, event->len});
    for (kolt_module *module : {self.path_selection, self.loop_avoidance}) {
        kolt_event exact{.type = event->type, .len = event->len, .data = event->len > 0 ? payload.get() : nullptr};
        module->event_cb(record, &module->sub, kind, &exact);
    }
}

// The start as main has it, without a bus.
void build() {
    kolt_event_ctx *ev = &self.record.ev;
    l_ev = ev;
    kolt_list_init(&ev->subscribers);
    kolt_list_init(&self.record.modules);
    require(uloop_init() == 0);
    event_bridge_init(ev);
    event_wifi_init(ev);
    event_neighbor_init(ev);
    self.loop_avoidance = loop_avoidance_init(&self.record);
    self.path_selection = path_selection_init(&self.record);
    require(self.loop_avoidance != nullptr && self.path_selection != nullptr);
    kolt_list_init(&ev->subscribers);
    self.relay.event_cb = hand_on;
    kolt_list_add(&ev->subscribers, &self.relay.sub);
}

// None of them may be the machine's own.
void miss_files() {
    for (const char *path : DAEMON_RUNTIME_FILES)
        miss_file(path);
    for (const char *path : {"/etc/config/tolmux", "/var/state/tolmux", "/proc/net/dev", "/proc/stat"})
        miss_file(path);
    for (const char *path : DAEMON_DRIVER_FILES)
        miss_file(path);
}

} // namespace

const wlan_platform *wlan_platform_ops = &COMPLETE;

// Pauses take no time.
int __wrap_nanosleep(const timespec * /*wanted*/, timespec * /*left*/) {
    return 0;
}

// The address of an interface is all that is asked for.
int __wrap_ioctl(int /*fd*/, unsigned long request, ifreq *interface) {
    require(request == SIOCGIFHWADDR);
    std::fill_n(interface->ifr_hwaddr.sa_data, KOLT_MAC_SIZE, char{2});
    return 0;
}

config *daemon_anew() {
    static constexpr uint8_t REPLY[] = {16, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    static const bool built = [] {
        sockets_answer_requests(REPLY);
        platform_reset();
        platform_configure(&self.record);
        build();
        return true;
    }();
    require(built);
    platform_reset();
    platform_configure(&self.record);
    miss_files();
    log_level = KOLT_LOG_DUMP;
    daemon_flow_calls = 0;
    path_selection_ctx.hd_sample_index = 0;
    path_selection_ctx.hd_sample_ring.fill(PATH_NONE);
    path_selection_ctx.histories = {};
    path_selection_ctx.last_adjust_status = 0;
    kolt_event_ctx &ev = self.record.ev;
    ev.wifi_2g_state = ev.wifi_5g_state = ev.wifi_5g_2_state = ev.plc_state = ev.eth_state = 0;
    return &self.record;
}

void daemon_receive(int protocol) {
    kolt_event_ctx &ev = self.record.ev;
    uloop_fd &watcher = protocol == NETLINK_ROUTE         ? ev.wifi_fd
                        : protocol == KOLT_NETLINK_BRIDGE ? ev.bridge_fd
                                                          : ev.neigh_fd;
    watcher.cb(&watcher, ULOOP_READ);
    uint8_t more;
    require(recv(watcher.fd, &more, sizeof more, MSG_DONTWAIT | MSG_PEEK) < 0); // all that waited was read
}

void daemon_period() {
    static ps_workspace workspace;
    if (workspace.clients == nullptr)
        workspace.clients = new kolt_client[KOLT_MAX_CLIENTS]; // stays for the next input, as in the daemon
    path_selection_run_period(&self.record, &workspace);
}
