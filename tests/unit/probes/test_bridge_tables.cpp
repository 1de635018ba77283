// Fetching tables of each kind, with one retry, and setting single entries.
#include "probe_test.h"
#include "raw_tables.h"

#include "probes/bridge_tables.h"

#include <duon_bridge.h>
#include <syslog.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

log_line error(const std::string &text) {
    return {LOG_ERR, "kolt_get_duon_bridge_table", "Error: " + text};
}

struct kind_row {
    const char *name;
    kolt_table_kind kind;
    int code;
    uint32_t entry_size;
    const char *first_size;  // of 5000 entries
    const char *second_size; // of 5700 entries
};

class TableKind : public probe_rows<kind_row> {
protected:
    static std::vector<uint8_t> table_of(uint32_t entries) {
        std::vector<uint8_t> bytes(size_t{entries} * GetParam().entry_size);
        for (size_t i = 0; i < bytes.size(); i++)
            bytes[i] = static_cast<uint8_t>(i * 7 + i / 256);
        platform.tables[GetParam().code] = {GetParam().entry_size, bytes};
        return bytes;
    }

    static std::string allocation(const char *size) {
        return std::string("bridgeAllocTableBuf(") + size + ", br-lan)";
    }
    static std::string action(const char *capacity) {
        return "bridgeTableAction(br-lan, " + std::to_string(GetParam().code) + ", " + capacity + ", 0)";
    }

    // Fetches, expects success, and returns the entries after freeing them.
    static std::vector<uint8_t> fetch(uint32_t expected_entries) {
        void *buffer = nullptr;
        uint32_t count = 0;
        EXPECT_EQ(kolt_get_duon_bridge_table("br-lan", GetParam().kind, &buffer, &count), 1);
        EXPECT_EQ(count, expected_entries);
        const auto *bytes = static_cast<const uint8_t *>(buffer);
        std::vector<uint8_t> entries;
        if (bytes != nullptr)
            entries.assign(bytes, bytes + size_t{count} * GetParam().entry_size);
        bridgeFreeTableBuf(buffer);
        return entries;
    }

    static void expect_refused() {
        int marker = 0;
        void *buffer = &marker;
        uint32_t count = 77;
        EXPECT_EQ(kolt_get_duon_bridge_table("br-lan", GetParam().kind, &buffer, &count), 0);
        EXPECT_EQ(buffer, &marker);
        EXPECT_EQ(count, 77U);
    }
};

TEST_P(TableKind, TableIsFetchedInOneCallWithRoomFor5000Entries) {
    const std::vector<uint8_t> bytes = table_of(3);
    EXPECT_EQ(fetch(3), bytes);
    EXPECT_THAT(platform.calls, ElementsAre(allocation(GetParam().first_size), action("5000"), "bridgeFreeTableBuf()"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_P(TableKind, EmptyTableIsASuccess) {
    table_of(0);
    EXPECT_THAT(fetch(0), IsEmpty());
}

TEST_P(TableKind, TableOf5000EntriesFitsTheFirstCall) {
    const std::vector<uint8_t> bytes = table_of(5000);
    EXPECT_EQ(fetch(5000), bytes);
    EXPECT_THAT(platform.calls, ElementsAre(allocation(GetParam().first_size), action("5000"), "bridgeFreeTableBuf()"));
}

TEST_P(TableKind, TableOf5200EntriesIsFetchedAgainWithRoomFor5700) {
    const std::vector<uint8_t> bytes = table_of(5200);
    EXPECT_EQ(fetch(5200), bytes);
    EXPECT_THAT(platform.calls,
                ElementsAre(allocation(GetParam().first_size), action("5000"), "bridgeFreeTableBuf()",
                            allocation(GetParam().second_size), action("5700"), "bridgeFreeTableBuf()"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_P(TableKind, SecondFailureIsLoggedAndThereIsNoThirdCall) {
    table_of(5200);
    platform.fail("bridgeTableAction");
    expect_refused();
    EXPECT_THAT(platform.calls,
                ElementsAre(allocation(GetParam().first_size), action("5000"), "bridgeFreeTableBuf()",
                            allocation(GetParam().second_size), action("5700"), "bridgeFreeTableBuf()"));
    EXPECT_THAT(logged(), ElementsAre(error("get table failed again")));
}

TEST_P(TableKind, FailureThatReports5000EntriesOrFewerIsSilent) {
    for (const uint32_t entries : {0U, 1U, 4999U, 5000U}) {
        platform.calls.clear();
        table_of(entries);
        platform.fail("bridgeTableAction");
        expect_refused();
        EXPECT_THAT(platform.calls,
                    ElementsAre(allocation(GetParam().first_size), action("5000"), "bridgeFreeTableBuf()"))
            << entries;
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_P(TableKind, MissingBufferIsLogged) {
    table_of(1);
    platform.fail("bridgeAllocTableBuf");
    expect_refused();
    EXPECT_THAT(platform.calls, ElementsAre(allocation(GetParam().first_size)));
    EXPECT_THAT(logged(), ElementsAre(error("alloac buffer error")));
}

TEST_P(TableKind, MissingSecondBufferIsLogged) {
    table_of(5200);
    platform.fail("bridgeAllocTableBuf", 1, 2);
    expect_refused();
    EXPECT_THAT(platform.calls, ElementsAre(allocation(GetParam().first_size), action("5000"), "bridgeFreeTableBuf()",
                                            allocation(GetParam().second_size)));
    EXPECT_THAT(logged(), ElementsAre(error("realloac buffer error")));
}

INSTANTIATE_TEST_SUITE_P(BridgeTables, TableKind,
                         testing::Values(kind_row{"Ha", TABLE_HA, 8, 100, "500000", "570000"},
                                         kind_row{"Hd", TABLE_HD, 1, 24, "120000", "136800"},
                                         kind_row{"Fdb", TABLE_FDB, 2, 16, "80000", "91200"}),
                         row_name<kind_row>);

class BridgeTables : public probe {
protected:
    static uint32_t fetched_count(kolt_table_kind kind) {
        void *buffer = nullptr;
        uint32_t count = 0;
        EXPECT_EQ(kolt_get_duon_bridge_table("br-lan", kind, &buffer, &count), 1);
        bridgeFreeTableBuf(buffer);
        return count;
    }
};

TEST_F(BridgeTables, KindThreeIsRefusedWithoutTouchingTheLibrary) {
    int marker = 0;
    void *buffer = &marker;
    uint32_t count = 77;
    for (const uint32_t kind : {3U, 8U, 255U, 4294967295U})
        EXPECT_EQ(kolt_get_duon_bridge_table("br-lan", static_cast<kolt_table_kind>(kind), &buffer, &count), 0) << kind;
    EXPECT_EQ(buffer, &marker);
    EXPECT_EQ(count, 77U);
    EXPECT_THAT(platform.calls, IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(BridgeTables, RetryIsMadeFrom5001EntriesOn) {
    platform.tables[FDB_CODE] = {16, std::vector<uint8_t>(size_t{5001} * 16)};
    EXPECT_EQ(fetched_count(TABLE_FDB), 5001U);
    EXPECT_THAT(platform.calls, testing::Contains("bridgeAllocTableBuf(88016, br-lan)")); // 5501 entries
}

TEST_F(BridgeTables, CountBeyondTheBufferIsBounded) {
    platform.tables[HD_CODE] = {24, std::vector<uint8_t>(size_t{10} * 24)};
    for (const uint32_t claimed : {5001U, 100000U, 4294967295U}) {
        platform.claimed_entries = claimed; // with success, in a buffer for 5000
        EXPECT_LE(fetched_count(TABLE_HD), 5000U) << claimed;
    }
}

TEST_F(BridgeTables, CountBeyondTheSecondBufferIsBounded) {
    platform.tables[HD_CODE] = {24, std::vector<uint8_t>(size_t{10} * 24)};
    platform.claimed_entries = 6000;
    platform.fail("bridgeTableAction", 1, 1);
    EXPECT_EQ(fetched_count(TABLE_HD), 6000U) << "fits 6500";
    EXPECT_THAT(platform.calls, testing::Contains("bridgeTableAction(br-lan, 1, 6500, 0)"));
}

TEST_F(BridgeTables, LargestSizeThatFits32BitsIsAskedFor) {
    platform.claimed_entries = 42949172; // 42949672 entries of 100 bytes
    platform.fail("bridgeTableAction");
    platform.fail("bridgeAllocTableBuf", 1, 2);
    void *buffer = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(kolt_get_duon_bridge_table("br-lan", TABLE_HA, &buffer, &count), 0);
    EXPECT_EQ(platform.calls.back(), "bridgeAllocTableBuf(4294967200, br-lan)");
    EXPECT_THAT(logged(), ElementsAre(error("realloac buffer error")));
}

struct overflow_row {
    const char *name;
    kolt_table_kind kind;
    uint32_t claimed;
};

class TableOverflow : public probe_rows<overflow_row> {};

TEST_P(TableOverflow, SizeBeyond32BitsCountsAsNoBuffer) {
    platform.claimed_entries = GetParam().claimed;
    platform.fail("bridgeTableAction");
    void *buffer = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(kolt_get_duon_bridge_table("br-lan", GetParam().kind, &buffer, &count), 0);
    EXPECT_EQ(platform.calls.size(), 3U) << "there is no second request, for a wrapped size least of all";
    EXPECT_THAT(logged(), ElementsAre(error("realloac buffer error")));
}

INSTANTIATE_TEST_SUITE_P(BridgeTables, TableOverflow,
                         testing::Values(overflow_row{"SizeOfAnHaTable", TABLE_HA, 42949173},
                                         overflow_row{"SizeOfAnHdTable", TABLE_HD, 178956471},
                                         overflow_row{"SizeOfAnFdbTable", TABLE_FDB, 268435456},
                                         overflow_row{"SumOfTheEntries", TABLE_FDB, 4294967295},
                                         overflow_row{"SumOfTheEntriesIsZero", TABLE_FDB, 4294966796}),
                         row_name<overflow_row>);

constexpr mac_address CLIENT{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr mac_address SECOND{0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};

// The results of the library's write operations: only -1 is a failure.
const std::pair<int, int> WRITE_RESULTS[] = {{0, 1}, {1, 1}, {-1, 0}, {-2, 1}, {22, 1}};

TEST_F(BridgeTables, HdEntryIsAddedWithTheClientFirst) {
    EXPECT_EQ(kolt_add_hd_entry("br-lan", SECOND.data(), CLIENT.data(), "wlan0.1"), 1);
    EXPECT_THAT(platform.calls, ElementsAre("bridgeAddHDTableEntries(br-lan, 00:11:22:33:44:55, AA:BB:CC:DD:EE:FF, "
                                            "wlan0.1, wlan0.1, 0)"));
    for (const auto &[result, expected] : WRITE_RESULTS) {
        platform.fail("bridgeAddHDTableEntries", result);
        EXPECT_EQ(kolt_add_hd_entry("br-lan", SECOND.data(), CLIENT.data(), "wlan0.1"), expected) << result;
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(BridgeTables, HdEntryIsDeletedWithItsArgumentsInOrder) {
    EXPECT_EQ(kolt_delete_hd_entry("br-lan", CLIENT.data(), SECOND.data(), "wlan0.1"), 1);
    EXPECT_THAT(platform.calls, ElementsAre("bridgeDelHDTableEntriesByMAC(br-lan, 00:11:22:33:44:55, "
                                            "AA:BB:CC:DD:EE:FF, wlan0.1)"));
    for (const auto &[result, expected] : WRITE_RESULTS) {
        platform.fail("bridgeDelHDTableEntriesByMAC", result);
        EXPECT_EQ(kolt_delete_hd_entry("br-lan", CLIENT.data(), SECOND.data(), "wlan0.1"), expected) << result;
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(BridgeTables, HaEntryIsSetWithItsArgumentsInOrder) {
    const auto set = [] {
        return kolt_set_ha_entry("br-lan", 65535, CLIENT.data(), SECOND.data(), 65534, 80, "plc0", 65533, 4294967295);
    };
    EXPECT_EQ(set(), 1);
    EXPECT_THAT(platform.calls, ElementsAre("bridgeSetHATableEntries(br-lan, 65535, 00:11:22:33:44:55, "
                                            "AA:BB:CC:DD:EE:FF, 65534, 80, plc0, 65533, 4294967295)"));
    for (const auto &[result, expected] : WRITE_RESULTS) {
        platform.fail("bridgeSetHATableEntries", result);
        EXPECT_EQ(set(), expected) << result;
    }
    EXPECT_THAT(logged(), IsEmpty());
}

} // namespace
