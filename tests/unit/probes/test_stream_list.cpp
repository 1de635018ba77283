// Fetching the HA table for all clients, and the flow cache's part in it.
#include "probe_test.h"
#include "streams/stream_test.h"

#include "probes/stream_list.h"
#include "support/recording_wlan.h"

#include <syslog.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr mac_address CLIENT{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr mac_address PEER{0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};

log_line error(const std::string &function, const std::string &text) {
    return {LOG_ERR, function, "Error: " + text};
}

class StreamTable : public stream_fixture<probe> {
protected:
    using rank_function = int(const char *, kolt_client_list *, const kolt_interface_list *, kolt_stream_ranking *);

    // Has the bridge hand out the table, and ranks it.
    int fetch_and_rank(rank_function *function = kolt_get_maximal_ha_entries) {
        platform.tables[HA_CODE] = {sizeof(ha_table_entry), {}};
        for (const ha_table_entry &entry : table_)
            platform.add_entry(HA_CODE, entry);
        return function("br-lan", &list_, ports_.get(), &ranking_);
    }
};

TEST_F(StreamTable, FetchedTableIsRankedWithoutAMessage) {
    kolt_client &client = add_client(CLIENT);
    add_stream({.src = PEER, .dst = CLIENT, .port = 10, .counter_b = 77});
    EXPECT_EQ(fetch_and_rank(), 1);
    EXPECT_THAT(keys_of(client), ElementsAre(77));
    EXPECT_TRUE(ranking_.table.empty()) << "the table is gone, and nothing may point to it";
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(StreamTable, TableOfMoreThan5000EntriesIsRankedWhole) {
    kolt_client &client = add_client(CLIENT);
    for (uint32_t i = 0; i < 5199; i++)
        add_stream({.src = PEER, .dst = numbered_mac(1), .port = 10});
    add_stream({.src = PEER, .dst = CLIENT, .port = 10, .counter_b = 77});
    EXPECT_EQ(fetch_and_rank(), 1);
    EXPECT_THAT(keys_of(client), ElementsAre(77));
}

TEST_F(StreamTable, FlowCacheAddsItsOwnAfterTheTableWasRanked) {
    const installed_table operations(&recording::table);
    add_client(CLIENT);
    add_stream({.src = PEER, .dst = CLIENT, .port = 10, .counter_b = 77});
    EXPECT_EQ(fetch_and_rank(), 1);
    EXPECT_THAT(platform.calls,
                ElementsAre("bridgeAllocTableBuf(500000, br-lan)", "bridgeTableAction(br-lan, 8, 5000, 0)",
                            "get_maximal_ha_entries_from_fcache(" + recording::address(&list_) + ", 20, " +
                                recording::address(ports_.get()) + ")",
                            "bridgeFreeTableBuf()"));
}

TEST_F(StreamTable, FlowCacheSeesTheRankedRecords) {
    static uint32_t seen;
    seen = 0;
    wlan_platform operations{};
    operations.get_maximal_ha_entries_from_fcache = [](kolt_client_list *clients, uint8_t,
                                                       const kolt_interface_list *) {
        seen = clients->clients[0].ha[0].num_bytes;
        clients->clients[0].ha[1].num_bytes = 4711;
        return 1;
    };
    const installed_table installed(&operations);
    kolt_client &client = add_client(CLIENT);
    add_stream({.src = PEER, .dst = CLIENT, .port = 10, .counter_b = 77});
    EXPECT_EQ(fetch_and_rank(), 1);
    EXPECT_EQ(seen, 77U);
    EXPECT_THAT(keys_of(client), ElementsAre(77, 4711));
}

TEST_F(StreamTable, TableThatCannotBeFetchedIsLoggedAndTheFlowCacheIsNotAsked) {
    const installed_table operations(&recording::table);
    add_client(CLIENT);
    platform.fail("bridgeTableAction");
    EXPECT_EQ(fetch_and_rank(), 0);
    EXPECT_THAT(logged(), ElementsAre(error("kolt_get_maximal_ha_entries", "get ha table")));
    EXPECT_THAT(platform.calls, ElementsAre("bridgeAllocTableBuf(500000, br-lan)",
                                            "bridgeTableAction(br-lan, 8, 5000, 0)", "bridgeFreeTableBuf()"));
}

TEST_F(StreamTable, ClientListReportsTheSameFailureAgain) {
    add_client(CLIENT);
    platform.fail("bridgeTableAction");
    EXPECT_EQ(fetch_and_rank(kolt_get_client_list_ha_entries), 0);
    EXPECT_THAT(logged(), ElementsAre(error("kolt_get_maximal_ha_entries", "get ha table"),
                                      error("kolt_get_client_list_ha_entries", "update ha entires failed")));
}

TEST_F(StreamTable, ClientListIsRankedAllTheSame) {
    kolt_client &client = add_client(CLIENT);
    add_stream({.src = PEER, .dst = CLIENT, .port = 10, .counter_b = 77});
    EXPECT_EQ(fetch_and_rank(kolt_get_client_list_ha_entries), 1);
    EXPECT_THAT(keys_of(client), ElementsAre(77));
    EXPECT_THAT(logged(), IsEmpty());
}

class StreamStats : public StreamTable {
protected:
    void SetUp() override {
        platform.tables[HA_CODE] = {sizeof(ha_table_entry), {}};
    }
    const installed_table operations_{&recording::table};
    const lines fetch_ = {"bridgeAllocTableBuf(500000, br-lan)", "bridgeTableAction(br-lan, 8, 5000, 0)"};
};

TEST_F(StreamStats, FlowListIsRefreshedWithFourZeroWords) {
    platform.fail("update_fcache_flow_list", 1);
    EXPECT_EQ(kolt_update_stream_entries_stats("br-lan"), 1);
    EXPECT_THAT(platform.calls,
                ElementsAre(fetch_[0], fetch_[1], "update_fcache_flow_list(0, 0, 0, 0)", "bridgeFreeTableBuf()"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(StreamStats, FailingFlowCacheIsLoggedAndReturned) {
    EXPECT_EQ(kolt_update_stream_entries_stats("br-lan"), 0);
    EXPECT_THAT(logged(), ElementsAre(error("kolt_update_stream_entries_stats", "update flow cache list failed")));
    EXPECT_EQ(platform.calls.back(), "bridgeFreeTableBuf()");
}

TEST_F(StreamStats, FlowListIsRefreshedEvenWithoutTheTable) {
    platform.fail("bridgeTableAction");
    platform.fail("update_fcache_flow_list", 1);
    EXPECT_EQ(kolt_update_stream_entries_stats("br-lan"), 1);
    EXPECT_THAT(logged(), ElementsAre(error("kolt_update_stream_entries_stats", "update ha entires failed")));
    EXPECT_THAT(platform.calls, ElementsAre(fetch_[0], fetch_[1], "bridgeFreeTableBuf()",
                                            "update_fcache_flow_list(0, 0, 0, 0)", "bridgeFreeTableBuf(null)"));
}

TEST_F(StreamStats, BothFailuresAreLogged) {
    platform.fail("bridgeTableAction");
    EXPECT_EQ(kolt_update_stream_entries_stats("br-lan"), 0);
    EXPECT_THAT(logged_texts("kolt_update_stream_entries_stats"),
                ElementsAre("Error: update ha entires failed", "Error: update flow cache list failed"));
}

TEST_F(StreamStats, PlatformWithoutAFlowCacheIsAFailure) {
    const installed_table none(nullptr);
    EXPECT_EQ(kolt_update_stream_entries_stats("br-lan"), 0);
    EXPECT_THAT(logged_texts(), ElementsAre("Error: update flow cache list failed"));
}

} // namespace
