// What the module does on each event.
#include "core/hub/hub.h"
#include "loop_avoidance/node.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <memory>
#include <sys/time.h>

// The linker leads every nanosleep of the test program here.
extern "C" {
int __real_nanosleep(const timespec *wanted, timespec *left);
int __wrap_nanosleep(const timespec *wanted, timespec *left);
}

namespace {

// While it is set, a pause is only recorded, among the calls of the bridge library.
bool skip_pauses = false;
// How many pauses a signal is to interrupt, each a quarter of a second before its end.
int interruptions = 0;

} // namespace

int __wrap_nanosleep(const timespec *wanted, timespec *left) {
    if (!skip_pauses)
        return __real_nanosleep(wanted, left);
    const long milliseconds = static_cast<long>(wanted->tv_sec) * 1000 + wanted->tv_nsec / 1000000;
    platform.calls.push_back("pause(" + std::to_string(milliseconds) + ")");
    if (interruptions == 0)
        return 0;
    interruptions--;
    *left = {.tv_sec = 0, .tv_nsec = 250000000};
    errno = EINTR;
    return -1;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Events : public Node {
protected:
    void SetUp() override {
        Node::SetUp();
        skip_pauses = true;
        interruptions = 0;
        add_bridge("br-lan");
        add_port("wlan0", KOLT_LINK_2G);
        set_work_mode("HAP");
        set_option("TrafficEthActive", "0");
    }
    void TearDown() override {
        skip_pauses = false;
    }

    call_list deliver(uint32_t kind, uint32_t type, const std::vector<uint8_t> &data = {}) {
        platform.calls.clear();
        // A block of exactly this size, so that the sanitizer sees a byte too many being read.
        const std::unique_ptr<uint8_t[]> copy(data.empty() ? nullptr : new uint8_t[data.size()]);
        std::copy(data.begin(), data.end(), copy.get());
        kolt_event event{.type = type, .len = static_cast<uint32_t>(data.size()), .data = copy.get()};
        loop_avoidance_event_cb(&config_, nullptr, static_cast<kolt_event_kind>(kind), &event);
        return programming();
    }

    static call_list configured(uint32_t mode) {
        return call_list{"configure_fc_mode(" + std::to_string(mode) + ")", "bridgeSetTcpSP(br-lan, 0)",
                         std::string("bridgeSetBridgeMode(br-lan, ") + (mode != 0 ? "1)" : "0)")} +
               port_calls{.bridge = "br-lan", .name = "wlan0", .relay = 1, .broadcast = 1, .type = 2};
    }
};

const call_list FLUSHED = {"bridgeFlushHATable(br-lan)", "flush_all_fcache_flow()"};
const call_list REAPPLIED = {"bridgeSetIFBroadcast(br-lan, wlan0, 1)", "pause(1000)"};

TEST_F(Events, StartConfiguresForTheCurrentMode) {
    loop_avoidance_event_cb(&config_, nullptr, KOLT_EVENT_START, nullptr);
    EXPECT_EQ(programming(), configured(2));
}

TEST_F(Events, ReconfigureReadsTheModeAfreshEachTime) {
    const std::pair<const char *, uint32_t> modes[] = {{"RE", 0}, {"FAP", 1}, {"AP", 1}, {"HAP", 2}, {"ap", 3}};
    for (const auto &[text, mode] : modes) {
        set_work_mode(text);
        platform.calls.clear();
        loop_avoidance_reconfigure(&config_);
        EXPECT_EQ(programming(), configured(mode)) << text;
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Events, ReconfigureWithoutAModeGoesOnWithTheUnknownOne) {
    remove_file("/tmp/work_mode");
    loop_avoidance_reconfigure(&config_);
    EXPECT_EQ(programming(), configured(3));
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_work_mode", "Error: parse work_mode"}));
}

TEST_F(Events, ConfigureUsesTheModeThatItCarries) {
    remove_file("/tmp/work_mode"); // whose absence would be logged
    for (const uint32_t mode : {0U, 1U, 2U, 4U, 0xFFFFFFFFU})
        EXPECT_EQ(deliver(KOLT_EVENT_CONFIGURE, mode), configured(mode)) << mode;
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Events, ConfigureWithModeThreeIsLikeAStart) {
    for (const char *mode : {"RE", "HAP"}) {
        set_work_mode(mode);
        platform.calls.clear();
        loop_avoidance_event_cb(&config_, nullptr, KOLT_EVENT_START, nullptr);
        const call_list started = platform.calls;
        (void)deliver(KOLT_EVENT_CONFIGURE, 3);
        EXPECT_EQ(platform.calls, started);
    }
}

TEST_F(Events, LinkStateReappliesBroadcastThenPausesThenFlushes) {
    for (const uint32_t flag : {0U, 2U, 0xFFFFFFFFU})
        EXPECT_EQ(deliver(KOLT_EVENT_LINK_STATE, flag), REAPPLIED + FLUSHED) << flag;
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Events, LinkStateWithItsFlagReconfiguresFirst) {
    EXPECT_EQ(deliver(KOLT_EVENT_LINK_STATE, 1), configured(2) + REAPPLIED + FLUSHED);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_INFO, "loop_avoidance_event_cb", "Info: reconfig bridge"}));
}

TEST_F(Events, LinkStateIsNotToldAtLevelZero) {
    const at_log_level quiet(0);
    (void)deliver(KOLT_EVENT_LINK_STATE, 1);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Events, LinkStateTellsTheReconfigurationBeforeIt) {
    const at_log_level debug(2);
    (void)deliver(KOLT_EVENT_LINK_STATE, 1);
    EXPECT_EQ(logged_texts()[0], "Info: reconfig bridge");
    EXPECT_EQ(logged_texts()[1], "Debug: configure duon bridge with mode HAP");
}

TEST_F(Events, LinkStatePauseGoesOnAfterAnInterruption) {
    interruptions = 2;
    EXPECT_EQ(
        deliver(KOLT_EVENT_LINK_STATE, 0),
        (call_list{"bridgeSetIFBroadcast(br-lan, wlan0, 1)", "pause(1000)", "pause(250)", "pause(250)"} + FLUSHED));
}

void ignore_signal(int) {}

TEST_F(Events, LinkStatePauseLastsAWholeSecondWhateverSignalsCome) {
    skip_pauses = false;
    struct sigaction action {};
    action.sa_handler = ignore_signal; // without SA_RESTART
    sigaction(SIGALRM, &action, nullptr);
    const itimerval every_70_ms{.it_interval = {0, 70000}, .it_value = {0, 70000}};
    const itimerval never{};
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    setitimer(ITIMER_REAL, &every_70_ms, nullptr);
    const call_list calls = deliver(KOLT_EVENT_LINK_STATE, 0);
    setitimer(ITIMER_REAL, &never, nullptr);
    clock_gettime(CLOCK_MONOTONIC, &after);
    const double seconds =
        static_cast<double>(after.tv_sec - before.tv_sec) + static_cast<double>(after.tv_nsec - before.tv_nsec) * 1e-9;
    EXPECT_GE(seconds, 1.0);
    EXPECT_LT(seconds, 10.0);
    EXPECT_EQ(calls, call_list{REAPPLIED[0]} + FLUSHED);
}

TEST_F(Events, LinkStateFlushesTheFlowCacheThoughTheBridgeRefuses) {
    platform.fail("bridgeSetIFBroadcast", 1);
    platform.fail("bridgeFlushHATable", 1);
    EXPECT_EQ(deliver(KOLT_EVENT_LINK_STATE, 0), REAPPLIED + FLUSHED);
}

TEST_F(Events, LinkStateWithoutAFlowCacheFlushesTheHaTable) {
    const installed_table none(nullptr);
    EXPECT_EQ(deliver(KOLT_EVENT_LINK_STATE, 0), REAPPLIED + call_list{"bridgeFlushHATable(br-lan)"});
}

TEST_F(Events, BridgeTypesSixAndSevenReconfigureAndFlush) {
    for (const uint32_t type : {6U, 7U}) {
        EXPECT_EQ(deliver(KOLT_EVENT_BRIDGE, type, {1, 2, 3}), configured(2) + FLUSHED);
        EXPECT_EQ(deliver(KOLT_EVENT_BRIDGE, type), configured(2) + FLUSHED) << "they need no payload";
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Events, OtherBridgeTypesDoNothing) {
    const at_log_level debug(2);
    for (const uint32_t type : {0U, 1U, 2U, 3U, 4U, 8U, 9U, 261U, 0xFFFFFFFFU}) {
        (void)deliver(KOLT_EVENT_BRIDGE, type, std::vector<uint8_t>(64, 1));
        EXPECT_THAT(platform.calls, IsEmpty()) << type;
    }
    EXPECT_THAT(logged(), IsEmpty());
}

// The payload of a station that was learnt on the port with this index.
std::vector<uint8_t> station_event(uint32_t ifindex, size_t size) {
    std::vector<uint8_t> payload(std::max<size_t>(size, 13));
    const uint8_t mac[] = {0xA2, 0x0B, 0xCC, 0xDD, 0xEE, 0xFF};
    std::copy(std::begin(mac), std::end(mac), payload.begin());
    payload[6] = static_cast<uint8_t>(ifindex);
    payload[12] = static_cast<uint8_t>(ifindex / 256);
    payload.resize(size);
    return payload;
}

TEST_F(Events, StationEventCleansUpThenFlushesByMac) {
    const at_log_level debug(2);
    const test_interface bridge("br-lan");
    for (const size_t size : {13U, 14U, 100U}) {
        clear_log();
        EXPECT_EQ(
            deliver(KOLT_EVENT_BRIDGE, 5, station_event(bridge.index(), size)),
            (call_list{"delete_wds_entry(wlan0, A2:0B:CC:DD:EE:FF)", "flush_fc_flow_by_mac(A2:0B:CC:DD:EE:FF, 0)"}));
        EXPECT_THAT(logged(), ElementsAre(log_line{LOG_DEBUG, "loop_avoidance_delete_wds_entry",
                                                   "Debug: update fdb from if: br-lan"},
                                          log_line{LOG_DEBUG, "loop_avoidance_event_cb",
                                                   "Debug: flush fc flow by mac: A2:0B:CC:DD:EE:FF"}));
    }
}

TEST_F(Events, StationEventFlushesByMacThoughNoCleanUpIsNeeded) {
    EXPECT_EQ(deliver(KOLT_EVENT_BRIDGE, 5, station_event(65000, 13)),
              call_list{"flush_fc_flow_by_mac(A2:0B:CC:DD:EE:FF, 0)"});
    EXPECT_THAT(logged(), IsEmpty()) << "the flush is told at debug level only";
}

TEST_F(Events, StationEventShorterThanItsFieldsIsDropped) {
    const test_interface bridge("br-lan");
    for (size_t size = 0; size < 13; size++) {
        (void)deliver(KOLT_EVENT_BRIDGE, 5, station_event(bridge.index(), size));
        EXPECT_THAT(platform.calls, IsEmpty()) << size;
    }
}

TEST_F(Events, DebugSetsTheLogLevel) {
    const at_log_level keeper(1);
    for (const uint32_t level : {3U, 0U, 2U, 1U}) {
        (void)deliver(KOLT_EVENT_DEBUG, level);
        EXPECT_EQ(log_level, static_cast<int32_t>(level));
        EXPECT_THAT(platform.calls, IsEmpty());
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Events, NeighbourAndUnknownKindsDoNothing) {
    const at_log_level debug(2);
    for (const uint32_t kind : {5U, 6U, 7U, 255U, 0xFFFFFFFFU}) {
        for (const uint32_t type : {1U, 5U, 6U}) {
            (void)deliver(kind, type, station_event(1, 13));
            EXPECT_THAT(platform.calls, IsEmpty()) << kind;
        }
    }
    EXPECT_EQ(log_level, 2);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Events, EventsReachTheModuleThroughTheHub) {
    kolt_module *module = loop_avoidance_init(&config_);
    platform.calls.clear();
    event_run_cb(&config_.ev, KOLT_EVENT_START, nullptr);
    EXPECT_EQ(programming(), configured(2));
    module->free(module);
    platform.calls.clear();
    event_run_cb(&config_.ev, KOLT_EVENT_START, nullptr);
    EXPECT_THAT(platform.calls, IsEmpty());
}

} // namespace
