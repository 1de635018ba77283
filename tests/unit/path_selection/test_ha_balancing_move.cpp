// The move of one stream, and the message that tells the parent node of it.
#include "path_selection/ha_test.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char MOVING[] = "path_selection_update_ha_entry";

class StreamMove : public HaStreams {
protected:
    void SetUp() override {
        HaStreams::SetUp();
        entry_ = stream(HOT_PORT, 10);
        entry_.src_port = 0x1234;
        entry_.dst_port = 0xABCD;
        entry_.protocol = 17;
        entry_.src_ip = htonl(0xC0A80102);
        entry_.dst_ip = htonl(0x0A000001);
        entry_.flow_idx = 4000000001U;
    }

    int move() {
        return path_selection_update_ha_entry(&interfaces_, "br-lan", entry_, best_, &budget_);
    }

    static void set_parent() {
        write_file("/tmp/work_mode", R"({"work_mode": "RE", "parent_mac": "AA:BB:CC:0D:0E:0F"})");
    }

    ha_entry entry_;
};

// ---- Streams of the bridge's table

TEST_F(StreamMove, MovingABridgeStreamSetsItsBucket) {
    EXPECT_EQ(move(), 1);
    EXPECT_THAT(platform.calls,
                ElementsAre("bridgeSetHATableEntries(br-lan, 200, 00:11:22:33:44:55, 66:77:88:99:AA:BB, 4660, 43981, "
                            "wlan1.1, 3, 4000000000)"));
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_INFO, MOVING,
                                               "Info: set ha entry success, src_port: 4660, dst_port: 43981, "
                                               "client mac: 66:77:88:99:AA:BB, old path: 60, new path: wlan1.1"}));
}

TEST_F(StreamMove, MoveThatTheLibraryRefusesFailsAndIsNotNotified) {
    set_parent();
    platform.fail("bridgeSetHATableEntries", -1);
    EXPECT_EQ(move(), 0);
    EXPECT_THAT(logged_texts(), ElementsAre("Info: set ha entry failed, src_port: 4660, dst_port: 43981, "
                                            "client mac: 66:77:88:99:AA:BB, old path: 60, new path: wlan1.1"));
    EXPECT_THAT(netlink.requests, IsEmpty());
}

TEST_F(StreamMove, MoveIsRefusedOnlyByMinusOne) {
    platform.fail("bridgeSetHATableEntries", 1);
    EXPECT_EQ(move(), 1);
}

TEST_F(StreamMove, MoveIsNotToldAtLevelZeroButNotified) {
    const at_log_level quiet(0);
    set_parent();
    EXPECT_EQ(move(), 1);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(netlink.requests.size(), 1U);
}

TEST_F(StreamMove, NameThatFillsItsFieldIsUsedWithItsSixteenCharacters) {
    kolt_copy_name(best_.name, "wlan1-abcdefghij");
    EXPECT_EQ(move(), 1);
    EXPECT_THAT(platform.calls, ElementsAre(testing::HasSubstr(", wlan1-abcdefghij, 3, 4000000000)")));
    EXPECT_THAT(logged_texts(), ElementsAre(testing::EndsWith("old path: 60, new path: wlan1-abcdefghij")));
}

// ---- Streams of the flow cache

struct cache_row {
    const char *name;
    bool is_set;
    bool is_flushed;
};

void PrintTo(const cache_row &row, std::ostream *out) {
    *out << row.name;
}

class CachedMove : public StreamMove, public testing::WithParamInterface<cache_row> {};

INSTANTIATE_TEST_SUITE_P(Rows, CachedMove,
                         testing::Values(cache_row{"SetAndFlushed", true, true},
                                         cache_row{"SetButNotFlushed", true, false},
                                         cache_row{"FlushedThoughNotSet", false, true},
                                         cache_row{"Neither", false, false}),
                         case_name);

TEST_P(CachedMove, HashIsSetThenTheFlowFlushedWhoseOutcomeCounts) {
    const cache_row &row = GetParam();
    set_parent();
    const installed_table installed(&recording::table);
    entry_.is_fcache = 1;
    platform.fail("cal_hash_and_set_ha", row.is_set ? 7 : 0);
    platform.fail("flush_fcache_flow_entry", row.is_flushed ? 7 : 0);
    EXPECT_EQ(move() != 0, row.is_flushed);
    EXPECT_THAT(platform.calls,
                ElementsAre("cal_hash_and_set_ha(br-lan, 17, " + std::to_string(htonl(0xC0A80102)) + ", " +
                                std::to_string(htonl(0x0A000001)) +
                                ", 4660, 43981, 00:11:22:33:44:55, 66:77:88:99:AA:BB, wlan1.1, 3, 4000000000)",
                            "flush_fcache_flow_entry(4000000001)"));
    std::vector<log_line> expected{
        {LOG_INFO, MOVING,
         std::string("Info: set ha entry ") + (row.is_set ? "success" : "failed") +
             ", src_port: 4660, dst_port: 43981, dst_addr: 66:77:88:99:AA:BB, old path: 60, new path: wlan1.1"},
        {LOG_INFO, MOVING,
         std::string("Info: flush flow idx(4000000001) ") + (row.is_flushed ? "success" : "failed") +
             ", src_port:4660, dst_port:43981, protocol: 17, dst_addr: 66:77:88:99:AA:BB,"}};
    if (row.is_flushed)
        expected.push_back({LOG_INFO, MOVING, "Info: send notify msg success"});
    EXPECT_EQ(logged(), expected);
    EXPECT_EQ(netlink.requests.size(), row.is_flushed ? 1U : 0U);
}

TEST_F(StreamMove, AnyFlagButZeroMeansTheFlowCache) {
    const installed_table installed(&recording::table);
    entry_.is_fcache = 2;
    (void)move();
    EXPECT_EQ(platform.calls.size(), 2U);
    EXPECT_EQ(moved(), 0U);
}

TEST_F(StreamMove, RealtekDriverSetsACachedStreamButNeverFlushesIt) {
    set_parent();
    entry_.is_fcache = 1;
    entry_.protocol = 1; // its hash does not depend on the ports
    EXPECT_EQ(move(), 0);
    EXPECT_THAT(platform.calls,
                ElementsAre("bridgeSetHATableEntries(br-lan, 22, 00:11:22:33:44:55, 66:77:88:99:AA:BB, 4660, 43981, "
                            "wlan1.1, 3, 4000000000)"));
    EXPECT_THAT(logged_texts(), ElementsAre(testing::StartsWith("Info: set ha entry success, "),
                                            testing::StartsWith("Info: flush flow idx(4000000001) failed, ")));
    EXPECT_THAT(netlink.requests, IsEmpty());
}

TEST_F(StreamMove, CachedStreamStaysWithoutADriverTable) {
    const installed_table installed(nullptr);
    entry_.is_fcache = 1;
    EXPECT_EQ(move(), 0);
    EXPECT_THAT(platform.calls, IsEmpty());
}

TEST_F(StreamMove, BalancingCountsACachedStreamOnlyWhenItsFlowWasFlushed) {
    const installed_table installed(&recording::table);
    config_.param.adjusted_ratio = 100;
    config_.param.adjusted_streams = 2;
    platform.fail("cal_hash_and_set_ha", 1);
    platform.fail("flush_fcache_flow_entry", 1, 2); // the second one
    ha_entry cached = stream(HOT_PORT, 100);
    cached.is_fcache = 1;
    set_streams({cached, cached, stream(HOT_PORT, 7)});
    path_selection_update_uplink_ha_table(at(), clients_[0]);
    EXPECT_EQ(best_.quota, 10000 - 100 - 7);
}

// ---- The message

class Notification : public StreamMove {
protected:
    void SetUp() override {
        StreamMove::SetUp();
        set_parent();
    }

    // The payload behind the header of the only request.
    std::vector<uint8_t> payload() {
        EXPECT_EQ(move(), 1);
        if (netlink.requests.size() != 1) {
            ADD_FAILURE() << netlink.requests.size() << " requests";
            return {};
        }
        const std::string &bytes = netlink.requests[0].bytes;
        return {bytes.begin() + std::min<ptrdiff_t>(16, std::ssize(bytes)), bytes.end()};
    }
};

TEST_F(Notification, NotificationHasEveryFieldAtItsOffsetAndZeroElsewhere) {
    entry_.protocol = 0x01020304;
    std::vector<uint8_t> expected{0xAA, 0xBB, 0xCC, 0x0D, 0x0E, 0x0F, 0,    0,    0x00, 0x11, 0x22,
                                  0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0,    0,
                                  0,    0,    0,    0,    0,    0,    3,    0,    0,    0};
    const uint16_t src_port = 0x1234;
    const uint16_t dst_port = 0xABCD;
    const uint32_t protocol = 0x01020304;
    memcpy(&expected[20], &src_port, 2); // host order
    memcpy(&expected[22], &dst_port, 2);
    memcpy(&expected[24], &protocol, 4);
    EXPECT_EQ(payload(), expected);
}

TEST_F(Notification, NotificationIsARequestOfType14) {
    (void)payload();
    ASSERT_EQ(netlink.requests.size(), 1U);
    uint32_t length = 0;
    uint16_t type = 0;
    memcpy(&length, netlink.requests[0].bytes.data(), sizeof length);
    memcpy(&type, netlink.requests[0].bytes.data() + 4, sizeof type);
    EXPECT_EQ(length, 48U);
    EXPECT_EQ(netlink.requests[0].bytes.size(), 48U);
    EXPECT_EQ(type, 14);
}

TEST_F(Notification, NotificationTellsTheTypeOfTheBestPath) {
    for (const kolt_link_type type : {KOLT_LINK_ETHERNET, KOLT_LINK_PLC, KOLT_LINK_2G, KOLT_LINK_5G_2}) {
        netlink.requests.clear();
        best_.path = type;
        const std::vector<uint8_t> bytes = payload();
        ASSERT_EQ(bytes.size(), 32U);
        EXPECT_EQ(bytes[28], type);
    }
}

TEST_F(Notification, AnsweredNotificationIsASuccess) {
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(logged().size(), 2U);
    EXPECT_EQ(logged().back(), (log_line{LOG_INFO, MOVING, "Info: send notify msg success"}));
}

TEST_F(Notification, StreamHasMovedThoughTheNotificationCannotBeSent) {
    netlink.socket_errors[52] = EMFILE;
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(logged().back(), (log_line{LOG_INFO, MOVING, "Info: send notify msg failed"}));
    EXPECT_THAT(netlink.requests, IsEmpty());
}

TEST_F(Notification, UnansweredNotificationHasFailed) {
    netlink.silent = true;
    EXPECT_EQ(move(), 1);
    EXPECT_THAT(logged_texts(),
                ElementsAre(testing::StartsWith("Info: set ha entry success, "), "Info: send notify msg failed"));
}

struct parent_row {
    const char *name;
    const char *file; // null for none
};

void PrintTo(const parent_row &row, std::ostream *out) {
    *out << row.name;
}

class UnknownParent : public StreamMove, public testing::WithParamInterface<parent_row> {};

INSTANTIATE_TEST_SUITE_P(Rows, UnknownParent,
                         testing::Values(parent_row{"NoFile", nullptr}, parent_row{"BrokenFile", "{"},
                                         parent_row{"NoKey", R"({"work_mode": "RE"})"}),
                         case_name);

TEST_P(UnknownParent, UnknownParentIsSentNothingAndNothingIsLogged) {
    const at_log_level dump(3);
    if (GetParam().file != nullptr)
        write_file("/tmp/work_mode", GetParam().file);
    EXPECT_EQ(move(), 1);
    EXPECT_THAT(netlink.requests, IsEmpty());
    EXPECT_THAT(logged_texts(), ElementsAre(testing::StartsWith("Info: set ha entry success, ")));
}

TEST_F(Notification, NotificationIsSentForEveryStreamThatMoved) {
    config_.param.adjusted_ratio = 100;
    config_.param.adjusted_streams = 3;
    platform.fail("bridgeSetHATableEntries", -1, 2);
    set_streams({stream(HOT_PORT, 1), stream(HOT_PORT, 2), stream(HOT_PORT, 3)});
    path_selection_update_uplink_ha_table(at(), clients_[0]);
    EXPECT_EQ(netlink.requests.size(), 2U);
}

TEST_F(Notification, NotificationIsLoggedBetweenTheMoveAndTheQuota) {
    set_streams({stream(HOT_PORT, 10)});
    path_selection_update_uplink_ha_table(at(), clients_[0]);
    EXPECT_THAT(logged_texts(),
                ElementsAre(testing::StartsWith("Info: set ha entry success, "), "Info: send notify msg success",
                            "Info: ha_rate: 10, req_quota: 10, quota remain: 9990"));
}

// ---- What becomes of interfaces during the wait

// Two streams of the hot path, of which the first is told to the parent; answered or not.
class WaitForTheParent : public Notification, public testing::WithParamInterface<bool> {
protected:
    void SetUp() override {
        Notification::SetUp();
        netlink.silent = GetParam();
        config_.param.adjusted_ratio = 100;
        config_.param.adjusted_streams = 2;
        set_streams({stream(HOT_PORT, 1), stream(HOT_PORT, 2)});
    }
};

TEST_P(WaitForTheParent, NextStreamIsMovedTooWhereNothingChangedMeanwhile) {
    path_selection_update_uplink_ha_table(at(), clients_[0]);
    EXPECT_EQ(moved(), 2U);
}

TEST_P(WaitForTheParent, NoStreamIsMovedAwayFromAnInterfaceThatIsGoneMeanwhile) {
    netlink.at_request = [this] { hot_.reset(); };
    path_selection_update_uplink_ha_table(at(), clients_[0]);
    EXPECT_EQ(moved(), 1U);
    EXPECT_THAT(
        logged(),
        testing::Contains(log_line{LOG_ERR, "path_selection_get_path_by_port", "Error: get interface name"}).Times(1));
}

TEST_P(WaitForTheParent, NoStreamIsMovedAwayFromAnInterfaceWithAnotherNameMeanwhile) {
    netlink.at_request = [this] { hot_->rename("wlan9.1"); };
    path_selection_update_uplink_ha_table(at(), clients_[0]);
    EXPECT_EQ(moved(), 1U);
    EXPECT_THAT(logged_texts("path_selection_get_path_by_port"), IsEmpty());
}

TEST_P(WaitForTheParent, StreamIsMovedAwayFromAnInterfaceThatTookThePathsName) {
    test_interface other("wlan9.1", 64);
    set_streams({stream(64, 1), stream(HOT_PORT, 2), stream(64, 3)});
    netlink.at_request = [this, &other] {
        if (other.name() == "wlan0.1")
            return; // the second request
        hot_->rename("old");
        other.rename("wlan0.1");
    };
    path_selection_update_uplink_ha_table(at(), clients_[0]);
    EXPECT_EQ(moved(), 2U) << "the second and the third";
}

INSTANTIATE_TEST_SUITE_P(Parent, WaitForTheParent, testing::Bool(),
                         [](const auto &row) { return std::string(row.param ? "Silent" : "Answering"); });

} // namespace
