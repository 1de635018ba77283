// The links by the names of their ports, and pointing HD entries at another link.
#include "probe_test.h"
#include "raw_tables.h"

#include "probes/hd_table.h"

#include <syslog.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The five records: a name of 16 bytes, the record index, the flag.
static_assert(offsetof(kolt_link_record, name) == 0);
static_assert(offsetof(kolt_link_record, index) == 16);
static_assert(offsetof(kolt_link_record, flag) == 20);

class LinkRecords : public probe {
protected:
    void name(size_t record, const std::string &text) {
        memcpy(records_[record].name, text.c_str(), text.size());
    }

    static std::string added(const char *client, const char *second, const char *ifname) {
        return std::string("bridgeAddHDTableEntries(br-lan, ") + client + ", " + second + ", " + ifname + ", " +
               ifname + ", 0)";
    }

    // The calls that fetching a table of up to 5000 HD entries takes, around what came between.
    static lines around(const lines &between) {
        lines calls = {"bridgeAllocTableBuf(120000, br-lan)", "bridgeTableAction(br-lan, 1, 5000, 0)"};
        calls.insert(calls.end(), between.begin(), between.end());
        calls.emplace_back("bridgeFreeTableBuf()");
        return calls;
    }

    link_records records_;
};

TEST_F(LinkRecords, RecordIsFoundByTheNameOfThePort) {
    const test_interface wlan0("wlan0.1");
    const test_interface plc0("plc0");
    const test_interface other("wlan0");
    name(1, "plc0");
    name(2, "wlan0.1");
    EXPECT_EQ(kolt_get_link_stats_by_port(records_, wlan0.index()), &records_[2]);
    EXPECT_EQ(kolt_get_link_stats_by_port(records_, plc0.index()), &records_[1]);
    EXPECT_EQ(kolt_get_link_stats_by_port(records_, other.index()), nullptr);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(LinkRecords, FirstOfTwoEqualNamesIsFound) {
    const test_interface eth0("eth0");
    name(3, "eth0");
    name(4, "eth0");
    EXPECT_EQ(kolt_get_link_stats_by_port(records_, eth0.index()), &records_[3]);
}

TEST_F(LinkRecords, LastRecordIsLookedAt) {
    const test_interface eth0("eth0");
    name(4, "eth0");
    EXPECT_EQ(kolt_get_link_stats_by_port(records_, eth0.index()), &records_[4]);
}

TEST_F(LinkRecords, NamesThatFillTheirFieldAreNoOthersPrefix) {
    const test_interface eth0("abcdefghijklmno");
    name(0, "abcdefghijklmnop");
    EXPECT_EQ(kolt_get_link_stats_by_port(records_, eth0.index()), nullptr);
    name(1, "abcdefghijklmno");
    EXPECT_EQ(kolt_get_link_stats_by_port(records_, eth0.index()), &records_[1]);
}

TEST_F(LinkRecords, IndexWithoutANameIsLogged) {
    const log_line message{LOG_ERR, "kolt_get_link_stats_by_port", "Error: get interface name"};
    EXPECT_EQ(kolt_get_link_stats_by_port(records_, 0), nullptr);
    EXPECT_EQ(kolt_get_link_stats_by_port(records_, 4242), nullptr);
    EXPECT_THAT(logged(), ElementsAre(message, message));
}

TEST_F(LinkRecords, HdEntriesOfTheRecordsAreAddedAgainOnTheTarget) {
    const test_interface wlan0("wlan0.1");
    const test_interface wlan1("wlan1.1");
    name(2, "wlan0.1");
    name(3, "wlan1.1");
    platform.add_entry(HD_CODE, raw_hd({1, 1, 1, 1, 1, 1}, {2, 2, 2, 2, 2, 2}, wlan0.index()));
    platform.add_entry(HD_CODE, raw_hd({3, 3, 3, 3, 3, 3}, {4, 4, 4, 4, 4, 4}, wlan1.index()));
    EXPECT_EQ(kolt_update_hd_table("br-lan", records_, KOLT_LINK_5G), 1);
    EXPECT_EQ(platform.calls, around({added("01:01:01:01:01:01", "02:02:02:02:02:02", "wlan1.1"),
                                      added("03:03:03:03:03:03", "04:04:04:04:04:04", "wlan1.1")}))
        << "also the one already there";
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(LinkRecords, HdEntriesOfOtherPortsStayWhereTheyAre) {
    const test_interface eth0("eth0");
    const test_interface wlan0("wlan0.1");
    name(2, "wlan0.1");
    platform.add_entry(HD_CODE, raw_hd({1, 1, 1, 1, 1, 1}, {}, eth0.index()));
    platform.add_entry(HD_CODE, raw_hd({3, 3, 3, 3, 3, 3}, {}, 4242));
    platform.add_entry(HD_CODE, raw_hd({5, 5, 5, 5, 5, 5}, {}, wlan0.index()));
    EXPECT_EQ(kolt_update_hd_table("br-lan", records_, KOLT_LINK_2G), 1);
    EXPECT_EQ(platform.calls, around({added("05:05:05:05:05:05", "00:00:00:00:00:00", "wlan0.1")}));
    EXPECT_THAT(logged_texts(), ElementsAre("Error: get interface name"));
}

TEST_F(LinkRecords, FlagIsThatOfTheRecordAtTheStoredIndex) {
    const test_interface wlan0("wlan0.1");
    const test_interface wlan1("wlan1.1");
    name(2, "wlan0.1");
    name(3, "wlan1.1");
    records_[2].index = 4;
    records_[3].index = 2;
    records_[4].flag = 1;
    records_[2].flag = 0;
    records_[3].flag = 1;
    platform.add_entry(HD_CODE, raw_hd({1, 1, 1, 1, 1, 1}, {}, wlan0.index()));
    platform.add_entry(HD_CODE, raw_hd({3, 3, 3, 3, 3, 3}, {}, wlan1.index()));
    EXPECT_EQ(kolt_update_hd_table("br-lan", records_, KOLT_LINK_2G), 1);
    EXPECT_EQ(platform.calls, around({added("03:03:03:03:03:03", "00:00:00:00:00:00", "wlan0.1")}));
}

TEST_F(LinkRecords, StoredIndexBeyondTheRecordsIsBounded) {
    const test_interface wlan0("wlan0.1");
    name(2, "wlan0.1");
    platform.add_entry(HD_CODE, raw_hd({1, 1, 1, 1, 1, 1}, {}, wlan0.index()));
    for (const uint32_t index : {5U, 1000000U, 4294967295U}) {
        records_[2].index = index;
        EXPECT_EQ(kolt_update_hd_table("br-lan", records_, KOLT_LINK_2G), 1) << index;
    }
}

TEST_F(LinkRecords, EmptyTargetNameIsPassedAsItIs) {
    const test_interface wlan0("wlan0.1");
    name(2, "wlan0.1");
    platform.add_entry(HD_CODE, raw_hd({1, 1, 1, 1, 1, 1}, {}, wlan0.index()));
    EXPECT_EQ(kolt_update_hd_table("br-lan", records_, KOLT_LINK_PLC), 1);
    EXPECT_EQ(platform.calls, around({added("01:01:01:01:01:01", "00:00:00:00:00:00", "")}));
}

TEST_F(LinkRecords, TargetWithoutARecordHasNoName) {
    const test_interface wlan0("wlan0.1");
    name(2, "wlan0.1");
    platform.add_entry(HD_CODE, raw_hd({1, 1, 1, 1, 1, 1}, {}, wlan0.index()));
    EXPECT_EQ(kolt_update_hd_table("br-lan", records_, KOLT_LINK_NONE), 1);
    EXPECT_EQ(platform.calls, around({added("01:01:01:01:01:01", "00:00:00:00:00:00", "")}));
}

TEST_F(LinkRecords, TargetNameThatFillsItsFieldIsBounded) {
    const test_interface wlan0("wlan0.1");
    name(2, "wlan0.1");
    name(4, "abcdefghijklmnop");
    records_[4].index = 0x21212121; // "!!!!" directly behind the name
    platform.add_entry(HD_CODE, raw_hd({1, 1, 1, 1, 1, 1}, {}, wlan0.index()));
    EXPECT_EQ(kolt_update_hd_table("br-lan", records_, KOLT_LINK_5G_2), 1);
    EXPECT_EQ(platform.calls, around({added("01:01:01:01:01:01", "00:00:00:00:00:00", "abcdefghijklmnop")}));
}

TEST_F(LinkRecords, RefusedEntryDoesNotKeepTheOthers) {
    const test_interface wlan0("wlan0.1");
    name(2, "wlan0.1");
    platform.add_entry(HD_CODE, raw_hd({1, 1, 1, 1, 1, 1}, {}, wlan0.index()));
    platform.add_entry(HD_CODE, raw_hd({3, 3, 3, 3, 3, 3}, {}, wlan0.index()));
    platform.fail("bridgeAddHDTableEntries", -1, 1);
    EXPECT_EQ(kolt_update_hd_table("br-lan", records_, KOLT_LINK_2G), 1);
    EXPECT_EQ(platform.calls, around({added("01:01:01:01:01:01", "00:00:00:00:00:00", "wlan0.1"),
                                      added("03:03:03:03:03:03", "00:00:00:00:00:00", "wlan0.1")}));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(LinkRecords, EmptyHdTableIsASuccess) {
    platform.tables[HD_CODE] = {24, {}};
    EXPECT_EQ(kolt_update_hd_table("br-lan", records_, KOLT_LINK_2G), 1);
    EXPECT_EQ(platform.calls, around({}));
}

TEST_F(LinkRecords, HdTableThatCannotBeFetchedIsLogged) {
    platform.fail("bridgeTableAction");
    EXPECT_EQ(kolt_update_hd_table("br-lan", records_, KOLT_LINK_2G), 0);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_update_hd_table", "Error: get hd table"}));
}

TEST_F(LinkRecords, HdTableWithoutABufferIsLoggedByFetcherAndCaller) {
    platform.fail("bridgeAllocTableBuf");
    EXPECT_EQ(kolt_update_hd_table("br-lan", records_, KOLT_LINK_2G), 0);
    EXPECT_THAT(logged_texts(), ElementsAre("Error: alloac buffer error", "Error: get hd table"));
}

} // namespace
