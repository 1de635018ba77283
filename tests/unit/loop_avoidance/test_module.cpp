// Building the module, freeing it, and the flush of the HA tables.
#include "core/module.h"
#include "loop_avoidance/node.h"

#include <memory>

// The linker leads every calloc of the test program here.
extern "C" {
void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size);
}

namespace {

bool refuse_module_memory = false;

} // namespace

void *__wrap_calloc(size_t count, size_t size) {
    if (refuse_module_memory && count * size == sizeof(kolt_module))
        return nullptr;
    return __real_calloc(count, size);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- Construction

class Module : public Node {
protected:
    using owned_module = std::unique_ptr<kolt_module, void (*)(kolt_module *)>;
    owned_module make() {
        kolt_module *module = loop_avoidance_init(&config_);
        return {module, [](kolt_module *held) { held->free(held); }};
    }
};

TEST_F(Module, ModuleIsFilledAsARegisteredModule) {
    const owned_module module = make();
    ASSERT_NE(module, nullptr);
    EXPECT_STREQ(module->name, "Loop avoidance");
    EXPECT_EQ(module->id, 0U);
    EXPECT_EQ(module->free, loop_avoidance_free);
    EXPECT_EQ(module->event_cb, loop_avoidance_event_cb);
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
    EXPECT_EQ(config_.ev.subscribers.prev, &earlier);
}

TEST_F(Module, ModuleUnsubscribesWhenItIsFreed) {
    kolt_list earlier;
    kolt_list later;
    kolt_list_add(&config_.ev.subscribers, &earlier);
    owned_module module = make();
    kolt_list_add(&config_.ev.subscribers, &later);
    module.reset();
    EXPECT_EQ(later.next, &earlier);
    EXPECT_EQ(earlier.prev, &later);
    EXPECT_EQ(config_.ev.subscribers.next, &later);
    EXPECT_EQ(config_.ev.subscribers.prev, &earlier);
}

TEST_F(Module, FreedModuleLeavesAnEmptyListBehind) {
    (void)make();
    EXPECT_EQ(config_.ev.subscribers.next, &config_.ev.subscribers);
    EXPECT_EQ(config_.ev.subscribers.prev, &config_.ev.subscribers);
}

TEST_F(Module, NoModuleIsMadeWithoutMemory) {
    refuse_module_memory = true;
    kolt_module *module = loop_avoidance_init(&config_);
    refuse_module_memory = false;
    EXPECT_EQ(module, nullptr);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "loop_avoidance_init", "Error: malloc"}));
    EXPECT_EQ(config_.ev.subscribers.next, &config_.ev.subscribers);
}

TEST_F(Module, ModuleIsFoundThroughItsSubscriberLink) {
    const owned_module module = make();
    EXPECT_EQ(kolt_module_of_sub(config_.ev.subscribers.next), module.get());
}

// ---- Flushing the HA table

class FlushHaTable : public Node {};

TEST_F(FlushHaTable, EveryActiveLoopAvoidingBridgeIsFlushedInOrder) {
    add_bridge("br-lan");
    add_bridge("br-down", CONFIG_LOOP_AVOIDANCE, false);
    add_bridge("br-path", CONFIG_PATH_SELECTION);
    add_bridge("br-guest", CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION);
    loop_avoidance_flush_ha_table(&config_);
    EXPECT_THAT(platform.programming(), ElementsAre("bridgeFlushHATable(br-lan)", "bridgeFlushHATable(br-guest)"));
    EXPECT_EQ(count_calls("netlink_msg(br-path, 0, 8, 38)"), 1U) << "activity is asked before the flag";
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(platform.live_buffers, 0);
}

TEST_F(FlushHaTable, RefusalIsLoggedAndTheNextBridgeIsFlushed) {
    add_bridge("br-lan");
    add_bridge("br-guest");
    const log_line refused{LOG_ERR, "loop_avoidance_flush_ha_table", "Error: bridgeFlushHATable"};
    platform.fail("bridgeFlushHATable", -1, 1);
    loop_avoidance_flush_ha_table(&config_);
    EXPECT_THAT(logged(), ElementsAre(refused));
    platform.fail("bridgeFlushHATable", 1);
    loop_avoidance_flush_ha_table(&config_);
    EXPECT_THAT(logged(), ElementsAre(refused, refused, refused));
    EXPECT_EQ(platform.programming().size(), 4U);
}

} // namespace
