// Flushing a table of all bridges: whose table, in which order, and what a refusal leaves behind.
#include "probe_test.h"

#include "probes/table_flush.h"

#include <duon_bridge.h>
#include <syslog.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr flush_report REPORT{.operation = "some_operation", .line = 7, .error = "bridgeFlushHATable"};

class TableFlush : public probe {
protected:
    void configure(const char *name, uint32_t flags) {
        config_bridge &bridge = config_.bridges[config_.bridge_num++];
        memcpy(bridge.name, name, strnlen(name, sizeof bridge.name));
        bridge.flags = flags;
    }

    // The flushes that were made.
    lines flushes() {
        kolt_flush_tables(config_, bridgeFlushHATable, REPORT);
        return platform.programming();
    }

    config config_;
};

TEST_F(TableFlush, EveryActiveLoopAvoidingBridgeIsFlushedInTheirOrder) {
    configure("br-lan", CONFIG_LOOP_AVOIDANCE);
    configure("br-guest", CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION);
    platform.bridges = {{"br-guest", {}}, {"br-lan", {}}};
    EXPECT_THAT(flushes(), ElementsAre("bridgeFlushHATable(br-lan)", "bridgeFlushHATable(br-guest)"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(TableFlush, FlushedTableIsTheOneOfTheGivenCall) {
    configure("br-lan", CONFIG_LOOP_AVOIDANCE);
    platform.bridges["br-lan"] = {};
    kolt_flush_tables(config_, bridgeFlushHDTable, REPORT);
    EXPECT_THAT(platform.programming(), ElementsAre("bridgeFlushHDTable(br-lan)"));
}

TEST_F(TableFlush, BridgeWithoutLoopAvoidanceIsNotFlushed) {
    configure("br-lan", CONFIG_PATH_SELECTION);
    configure("br-guest", 0);
    platform.bridges = {{"br-guest", {}}, {"br-lan", {}}};
    EXPECT_THAT(flushes(), IsEmpty());
}

TEST_F(TableFlush, BridgeThatTheKernelDoesNotKnowIsNotFlushed) {
    configure("br-lan", CONFIG_LOOP_AVOIDANCE);
    configure("br-guest", CONFIG_LOOP_AVOIDANCE);
    platform.bridges["br-guest"] = {};
    EXPECT_THAT(flushes(), ElementsAre("bridgeFlushHATable(br-guest)"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(TableFlush, RefusedFlushIsLoggedAsTheCallersAndTheNextBridgeIsFlushed) {
    configure("br-lan", CONFIG_LOOP_AVOIDANCE);
    configure("br-guest", CONFIG_LOOP_AVOIDANCE);
    platform.bridges = {{"br-guest", {}}, {"br-lan", {}}};
    platform.fail("bridgeFlushHATable", -1, 1);
    EXPECT_THAT(flushes(), ElementsAre("bridgeFlushHATable(br-lan)", "bridgeFlushHATable(br-guest)"));
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "some_operation", "Error: bridgeFlushHATable"}));
}

TEST_F(TableFlush, AnyResultButZeroIsARefusal) {
    configure("br-lan", CONFIG_LOOP_AVOIDANCE);
    platform.bridges["br-lan"] = {};
    for (const int result : {1, -1, 256}) {
        clear_log();
        platform.fail("bridgeFlushHATable", result);
        (void)flushes();
        EXPECT_EQ(logged().size(), 1U) << result;
    }
}

TEST_F(TableFlush, NameThatFillsItsFieldIsBounded) {
    configure("bridge-of-16-chr", CONFIG_LOOP_AVOIDANCE); // its flags stand directly behind it
    EXPECT_THAT(flushes(), IsEmpty());
    EXPECT_EQ(platform.calls.front(), "bridgeAllocTableBuf(8, bridge-of-16-chr)");
}

TEST_F(TableFlush, BridgesBehindTheCountAreNotFlushed) {
    configure("br-lan", CONFIG_LOOP_AVOIDANCE);
    config_.bridge_num = 0;
    platform.bridges["br-lan"] = {};
    EXPECT_THAT(flushes(), IsEmpty());
    EXPECT_THAT(platform.calls, IsEmpty());
}

} // namespace
