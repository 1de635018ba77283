// Building the module, freeing it, its timer and the events that are not its own.
#include "core/module.h"
#include "path_selection/module.h"
#include "path_selection/paths_test.h"

#include <climits>
#include <ctime>
#include <memory>
#include <optional>

// The linker leads every calloc of the test program here.
extern "C" {
void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size);
}

namespace {

bool refuse_memory = false;
size_t allocations = 0;

} // namespace

void *__wrap_calloc(size_t count, size_t size) {
    allocations++;
    return refuse_memory ? nullptr : __real_calloc(count, size);
}

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

// The timers of the loop that are armed between now and the end of what its timers can count.
class armed_timers {
public:
    armed_timers() {
        (void)uloop_timeout_set(&first_, 0);
    }
    ~armed_timers() {
        (void)uloop_timeout_cancel(&first_);
        (void)uloop_timeout_cancel(&last_);
    }
    armed_timers(const armed_timers &) = delete;
    armed_timers &operator=(const armed_timers &) = delete;

    // The one with path selection's callback, or null when there is none; another one is a failure.
    uloop_timeout *find() {
        (void)uloop_timeout_set(&last_, INT_MAX);
        uloop_timeout *found = nullptr;
        for (list_head *link = first_.list.next; link != &last_.list; link = link->next) {
            auto *timer = reinterpret_cast<uloop_timeout *>(link);
            EXPECT_EQ(timer->cb, path_selection_timer_cb);
            EXPECT_EQ(found, nullptr) << "armed twice";
            found = timer;
        }
        return found;
    }

private:
    static void ignore(uloop_timeout * /*timer*/) {}
    uloop_timeout first_{.list = {}, .pending = false, .cb = ignore, .time = {}};
    uloop_timeout last_{.list = {}, .pending = false, .cb = ignore, .time = {}};
};
static_assert(offsetof(uloop_timeout, list) == 0);

int64_t microseconds_now() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

class Module : public Paths {
protected:
    using owned_module = std::unique_ptr<kolt_module, void (*)(kolt_module *)>;
    owned_module make() {
        kolt_module *module = path_selection_init(&config_);
        return {module, [](kolt_module *held) { held->free(held); }};
    }
    // Makes it and registers it as the program does.
    owned_module make_registered() {
        owned_module module = make();
        kolt_list_add(&config_.modules, &module->list);
        return module;
    }
    void send(kolt_event_kind kind, kolt_event *event = nullptr) {
        path_selection_event_cb(&config_, nullptr, kind, event);
    }
    // The module's timer as the loop hands it over: not armed any more.
    uloop_timeout *due_timer(armed_timers *timers) {
        send(KOLT_EVENT_START);
        uloop_timeout *timer = timers->find();
        EXPECT_NE(timer, nullptr);
        (void)uloop_timeout_cancel(timer);
        return timer;
    }
    void send(kolt_event_kind kind, uint32_t type) {
        kolt_event event{.type = type, .len = 0, .data = nullptr};
        send(kind, &event);
    }
};

// ---- Construction

TEST_F(Module, ModuleIsFilledAsARegisteredModule) {
    const owned_module module = make();
    ASSERT_NE(module, nullptr);
    EXPECT_STREQ(module->name, "Path Selection");
    EXPECT_EQ(module->id, 1U);
    EXPECT_EQ(module->free, path_selection_free);
    EXPECT_EQ(module->event_cb, path_selection_event_cb);
    EXPECT_EQ(module->list.next, &module->list);
    EXPECT_EQ(module->list.prev, &module->list);
    EXPECT_THAT(platform.calls, IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Module, ModuleSubscribesAtTheFront) {
    kolt_list earlier;
    kolt_list_add(&config_.ev.subscribers, &earlier);
    const owned_module module = make();
    EXPECT_EQ(config_.ev.subscribers.next, &module->sub);
    EXPECT_EQ(module->sub.prev, &config_.ev.subscribers);
    EXPECT_EQ(module->sub.next, &earlier);
    EXPECT_EQ(earlier.prev, &module->sub);
}

TEST_F(Module, NewModuleResetsTheChoicesAndMarksTheHistories) {
    path_selection_context &ctx = path_selection_ctx;
    ctx.configuration = nullptr;
    ctx.hd_sample_index = 7;
    ctx.hd_sample_ring.fill(3);
    ctx.last_adjust_status = 0;
    for (ps_path_history &history : ctx.histories) {
        history.history_mark = 9;
        history.sample_index = 4;
        history.data_rate[2] = 77;
    }
    const owned_module module = make();
    EXPECT_EQ(ctx.configuration, &config_);
    EXPECT_EQ(ctx.hd_sample_index, 0);
    EXPECT_THAT(ctx.hd_sample_ring, Each(5));
    EXPECT_EQ(ctx.last_adjust_status, 0) << "it belongs to the periods";
    for (const ps_path_history &history : ctx.histories) {
        EXPECT_EQ(history.history_mark, 1);
        EXPECT_EQ(history.sample_index, 4);
        EXPECT_EQ(history.data_rate[2], 77U);
    }
}

TEST_F(Module, NewModuleDoesNotArmItsTimerYet) {
    armed_timers timers;
    const owned_module module = make();
    EXPECT_EQ(timers.find(), nullptr);
}

TEST_F(Module, NoModuleIsMadeAndNothingChangedWithoutMemory) {
    path_selection_context &ctx = path_selection_ctx;
    ctx.configuration = nullptr;
    ctx.hd_sample_index = 7;
    ctx.hd_sample_ring[0] = 3;
    log_level = KOLT_LOG_DEBUG;
    add_bridge("br-lan");
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    refuse_memory = true;
    kolt_module *module = path_selection_init(&config_);
    refuse_memory = false;
    EXPECT_EQ(module, nullptr);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "path_selection_init", "Error: malloc"}));
    EXPECT_EQ(config_.ev.subscribers.next, &config_.ev.subscribers);
    EXPECT_EQ(ctx.configuration, nullptr);
    EXPECT_EQ(ctx.hd_sample_index, 7);
    EXPECT_EQ(ctx.hd_sample_ring[0], 3);
    EXPECT_EQ(ctx.histories[0].history_mark, 0);
}

// ---- Destruction

TEST_F(Module, ModuleUnsubscribesWhenItIsFreed) {
    kolt_list earlier;
    kolt_list later;
    kolt_list_add(&config_.ev.subscribers, &earlier);
    owned_module module = make();
    kolt_list_add(&config_.ev.subscribers, &later);
    module.reset();
    EXPECT_EQ(later.next, &earlier);
    EXPECT_EQ(earlier.prev, &later);
}

TEST_F(Module, ModuleCancelsItsTimerWhenItIsFreed) {
    armed_timers timers;
    config_.param.period = 5000;
    owned_module module = make_registered();
    send(KOLT_EVENT_START);
    ASSERT_NE(timers.find(), nullptr);
    module.reset();
    EXPECT_EQ(timers.find(), nullptr);
}

TEST_F(Module, FreedModuleLeavesItsLinkToTheRegistry) {
    owned_module module = make_registered();
    const kolt_list *link = &module->list;
    module.reset();
    EXPECT_EQ(config_.modules.next, link) << "unlinking it is the registry's business";
}

// ---- The port list in the log

class ShowPathPorts : public Module {};

TEST_F(ShowPathPorts, PathPortsOfEachActivePathSelectionBridgeAreLoggedAtTheStart) {
    add_bridge("br-lan", CONFIG_PATH_SELECTION);
    add_bridge("br-down", CONFIG_PATH_SELECTION, false);
    add_bridge("br-loop", CONFIG_LOOP_AVOIDANCE);
    add_bridge("br-guest", CONFIG_PATH_SELECTION | CONFIG_LOOP_AVOIDANCE);
    add_port("wlan0.1", KOLT_LINK_2G);
    add_port("eth0", KOLT_LINK_ETHERNET, 0, 0);
    add_port("plc0", KOLT_LINK_PLC, 1);
    add_port("wlan1.1", KOLT_LINK_5G, 0, 1, "br-loop");
    add_port("wlan2.3", KOLT_LINK_5G_2, 0, 1, "br-guest");
    log_level = KOLT_LOG_DEBUG;
    const owned_module module = make();
    const auto port = [](const char *name) {
        return log_line{LOG_DEBUG, "path_selection_show_path_ports", std::string("Debug: path_port: ") + name};
    };
    EXPECT_THAT(logged(), ElementsAre(port("wlan0.1"), port("plc0"), port("wlan2.3")));
}

TEST_F(ShowPathPorts, PathPortsAreNotLoggedBelowDebugLevel) {
    add_bridge("br-lan");
    add_port("wlan0.1", KOLT_LINK_2G);
    const owned_module module = make();
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ShowPathPorts, BridgeNameWithoutATerminatorIsRead) {
    config_bridge &bridge = add_bridge("abcdefghijklmnop", CONFIG_PATH_SELECTION, false);
    memset(&bridge.flags, 0xFF, sizeof bridge.flags);
    platform.bridges["abcdefghijklmnop"];
    const owned_module module = make();
    ASSERT_THAT(calls_of("bridgeAllocTableBuf"), Not(IsEmpty()));
    EXPECT_THAT(calls_of("bridgeAllocTableBuf").front(), "bridgeAllocTableBuf(8, abcdefghijklmnop)");
}

// ---- The start event

struct period_row {
    const char *name;
    uint32_t period;
    int64_t milliseconds;
};
class StartEvent : public Module, public testing::WithParamInterface<named_row<period_row>> {};

TEST_P(StartEvent, StartEventArmsTheTimerWithThePeriodInMilliseconds) {
    const period_row &row = GetParam().row;
    config_.param.period = row.period;
    const owned_module module = make_registered();
    armed_timers timers;
    const int64_t before = microseconds_now();
    send(KOLT_EVENT_START);
    const int64_t after = microseconds_now();
    const uloop_timeout *timer = timers.find();
    ASSERT_NE(timer, nullptr);
    EXPECT_TRUE(timer->pending);
    const int64_t due = int64_t{timer->time.tv_sec} * 1000000 + timer->time.tv_usec;
    EXPECT_GE(due, before + row.milliseconds * 1000);
    EXPECT_LE(due, after + row.milliseconds * 1000);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_THAT(platform.calls, IsEmpty()) << "the first period comes when the timer is due";
}

INSTANTIATE_TEST_SUITE_P(Periods, StartEvent,
                         testing::Values(period_row{"Nothing", 0, 0}, period_row{"OneMillisecond", 1, 1},
                                         period_row{"Default", 5000, 5000},
                                         period_row{"LongestOfTheLibrary", 2147483647U, 2147483647},
                                         period_row{"OneMoreIsCut", 2147483648U, 2147483647},
                                         period_row{"LongestOfAllIsCut", 4294967295U, 2147483647}),
                         row_name<period_row>);

TEST_F(Module, OnlyOneTimerIsArmedWhenTheStartEventComesTwice) {
    config_.param.period = 5000;
    const owned_module module = make_registered();
    armed_timers timers;
    send(KOLT_EVENT_START);
    send(KOLT_EVENT_START);
    EXPECT_NE(timers.find(), nullptr);
}

TEST_F(Module, UnregisteredModuleIsNotFoundByTheStartEvent) {
    const owned_module module = make();
    kolt_module other;
    other.id = KOLT_MODULE_LOOP_AVOIDANCE;
    kolt_list_add(&config_.modules, &other.list);
    armed_timers timers;
    send(KOLT_EVENT_START);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "path_selection_event_cb", "Error: find mod"}));
    EXPECT_EQ(timers.find(), nullptr);
}

// ---- Events that do not concern it

class IgnoredEvent : public Module, public testing::WithParamInterface<kolt_event_kind> {};

TEST_P(IgnoredEvent, IgnoredEventDoesNothing) {
    add_bridge("br-lan");
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    config_.ev.wifi_2g_state = 1;
    const owned_module module = make_registered();
    platform.calls.clear();
    armed_timers timers;
    std::array<uint8_t, 64> payload{};
    kolt_event event{.type = 4, .len = payload.size(), .data = payload.data()};
    send(GetParam(), &event);
    EXPECT_THAT(platform.calls, IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(timers.find(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Kinds, IgnoredEvent,
                         testing::Values(KOLT_EVENT_CONFIGURE, KOLT_EVENT_BRIDGE, KOLT_EVENT_DEBUG,
                                         static_cast<kolt_event_kind>(6), static_cast<kolt_event_kind>(0xFFFFFFFF)));

// ---- The period

TEST_F(Module, TimerIsArmedAgainAfterEachPeriod) {
    config_.param.period = 7000;
    const owned_module module = make_registered();
    armed_timers timers;
    uloop_timeout *timer = due_timer(&timers);
    config_.param.period = 9000; // the period of the moment counts
    const int64_t before = microseconds_now();
    path_selection_timer_cb(timer);
    const int64_t after = microseconds_now();
    ASSERT_EQ(timers.find(), timer);
    const int64_t due = int64_t{timer->time.tv_sec} * 1000000 + timer->time.tv_usec;
    EXPECT_GE(due, before + 9000000);
    EXPECT_LE(due, after + 9000000);
}

TEST_F(Module, TimerIsArmedAgainAlsoWhenABridgeFailed) {
    add_bridge("br-lan");
    drop_interface("br-lan");
    kept_descriptors_ = 1;
    const owned_module module = make_registered();
    armed_timers timers;
    uloop_timeout *timer = due_timer(&timers);
    path_selection_timer_cb(timer);
    EXPECT_THAT(logged_texts("path_selection_update_uplink_paths"), ElementsAre("Error: get br mac"));
    EXPECT_EQ(timers.find(), timer);
}

TEST_F(Module, PeriodAllocatesNothingForItsLists) {
    add_bridge("br-lan");
    add_wifi("wlan0", KOLT_LINK_2G, 100, 90);
    add_wifi("wlan1", KOLT_LINK_5G, 300, 20);
    add_port("eth0", KOLT_LINK_ETHERNET, 0, 0);
    for (unsigned int client = 1; client <= 255; client++)
        add_client(static_cast<uint8_t>(client), "eth0");
    config_.param.wlan_enable = 1;
    allocations = 0;
    run_period();
    EXPECT_EQ(allocations, 0U);
    EXPECT_EQ(calls_of("bridgeAddHDTableEntries").size(), 255U) << "it was a full period";
}

} // namespace
