// Where clients are pinned, and what damps their movement.
#include "path_selection/hd_placement.h"
#include "path_selection/measured_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- High data rate

class HighDataRate : public MeasuredPaths {
protected:
    static uint32_t &slot(kolt_link_type type, size_t index) {
        return path_selection_ctx.histories.at(type).data_rate[index];
    }
};

TEST_F(HighDataRate, DataRateIsHighAbove3000000BytesInAnySlot) {
    for (size_t index = 0; index < 5; index++) {
        slot(KOLT_LINK_5G, index) = 2999999;
        EXPECT_EQ(path_selection_is_high_data_rate(), 0) << index;
        slot(KOLT_LINK_5G, index) = 3000000;
        EXPECT_EQ(path_selection_is_high_data_rate(), 0) << index;
        slot(KOLT_LINK_5G, index) = 3000001;
        EXPECT_EQ(path_selection_is_high_data_rate(), 1) << index;
        slot(KOLT_LINK_5G, index) = 0;
    }
}

TEST_F(HighDataRate, SumsAreDumpedUpToTheFirstHighOne) {
    const at_log_level dump(3);
    slot(KOLT_LINK_ETHERNET, 0) = 7;
    slot(KOLT_LINK_5G_2, 0) = 8;
    slot(KOLT_LINK_2G, 2) = 3000000000U;
    slot(KOLT_LINK_2G, 3) = 9;
    EXPECT_EQ(path_selection_is_high_data_rate(), 1);
    const char function[] = "path_selection_is_high_data_rate";
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_DEBUG, function, "Dump: data rate of sample[0] is: 15"},
                                      log_line{LOG_DEBUG, function, "Dump: data rate of sample[1] is: 0"},
                                      log_line{LOG_DEBUG, function, "Dump: data rate of sample[2] is: -1294967296"}));
}

TEST_F(HighDataRate, AllFiveSumsAreDumpedWhenNoneIsHigh) {
    const at_log_level dump(3);
    EXPECT_EQ(path_selection_is_high_data_rate(), 0);
    EXPECT_EQ(logged().size(), 5U);
    EXPECT_EQ(logged().back().text, "Dump: data rate of sample[4] is: 0");
}

TEST_F(HighDataRate, DataRateIsNotDumpedBelowDumpLevel) {
    const at_log_level debug(2);
    EXPECT_EQ(path_selection_is_high_data_rate(), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

// ---- Majority

class Majority : public MeasuredPaths {
protected:
    void SetUp() override {
        MeasuredPaths::SetUp();
        add_all_rows();
    }

    void add_all_rows() {
        for (const kolt_link_type type : KOLT_LINKS)
            add_row(type, "path" + std::to_string(type));
    }

    static void fill_ring(const std::vector<int> &choices) {
        auto &ring = path_selection_ctx.hd_sample_ring;
        ring.fill(PATH_NONE);
        std::copy(choices.begin(), choices.end(), ring.begin());
    }

    // The type of the row that is found for a candidate.
    ptrdiff_t find(kolt_link_type candidate, bool record = false) {
        const ps_path *row = path_selection_find_hd_port(&paths_, candidate, record);
        return row - paths_.data();
    }
};

TEST_F(Majority, CandidateIsReturnedWhereTheMajoritysRowIsAbsent) {
    fill_ring({3, 3, 4, 4});
    paths_[4] = {};
    EXPECT_EQ(find(KOLT_LINK_PLC), 1) << "not the second most frequent one";
    EXPECT_EQ(find(KOLT_LINK_5G), 3);
}

TEST_F(Majority, CandidateIsReturnedThoughItsOwnRowIsAbsentToo) {
    fill_ring({3});
    paths_[3] = {};
    paths_[2] = {};
    EXPECT_EQ(find(KOLT_LINK_2G), 2);
}

TEST_F(Majority, RowIsPresentByItsNameWhateverItsRate) {
    fill_ring({2});
    EXPECT_EQ(paths_[2].rate, 0);
    EXPECT_EQ(find(KOLT_LINK_5G), 2);
}

TEST_F(Majority, CandidateIsRecordedFirst) {
    fill_ring({3, 2});
    path_selection_ctx.hd_sample_index = 2;
    EXPECT_EQ(find(KOLT_LINK_2G, true), 2);
    EXPECT_EQ(path_selection_ctx.hd_sample_ring[2], 2);
    EXPECT_EQ(path_selection_ctx.hd_sample_ring[3], 5);
    EXPECT_EQ(path_selection_ctx.hd_sample_index, 3);
}

TEST_F(Majority, RingWrapsAfterTwenty) {
    for (int i = 0; i < 20; i++) {
        EXPECT_EQ(path_selection_ctx.hd_sample_index, i);
        EXPECT_EQ(find(KOLT_LINK_PLC, true), 1);
    }
    EXPECT_EQ(path_selection_ctx.hd_sample_index, 0);
    EXPECT_EQ(find(KOLT_LINK_5G, true), 1);
    EXPECT_EQ(path_selection_ctx.hd_sample_ring[0], 3);
    EXPECT_EQ(path_selection_ctx.hd_sample_index, 1);
    for (int i = 0; i < 9; i++)
        (void)find(KOLT_LINK_5G, true);
    EXPECT_EQ(find(KOLT_LINK_ETHERNET), 3) << "ten of each";
}

TEST_F(Majority, TwentySlotsAreDumpedWithARecord) {
    const at_log_level dump(3);
    fill_ring({3, 2});
    path_selection_ctx.hd_sample_index = 19;
    (void)find(KOLT_LINK_5G_2, true);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_DEBUG, "path_selection_find_hd_port",
                                               "Dump: hd samples: 3, 2, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, "
                                               "5, 5, 4"}));
    EXPECT_EQ(path_selection_ctx.hd_sample_index, 0);
}

TEST_F(Majority, RingIsNotDumpedWithoutARecordNorBelowDumpLevel) {
    {
        const at_log_level dump(3);
        (void)find(KOLT_LINK_5G_2, false);
    }
    const at_log_level debug(2);
    (void)find(KOLT_LINK_5G_2, true);
    EXPECT_THAT(logged(), IsEmpty());
}

// ---- The client's entry

constexpr uint8_t BRIDGE_MAC[] = {0x02, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE};
constexpr uint8_t NO_MAC[KOLT_MAC_SIZE] = {};
constexpr uint32_t TARGET = 50;

class HdEntry : public MeasuredPaths {
protected:
    void SetUp() override {
        MeasuredPaths::SetUp();
        const uint8_t mac[] = {0x00, 0x11, 0x22, 0x33, 0x44, 0xAF};
        std::copy(std::begin(mac), std::end(mac), client_.mac);
        client_.type = KOLT_LINK_ETHERNET;
        client_.hd_port = KOLT_NO_HD_PORT;
    }

    int update(const char *hd_name = "wlan1.1") {
        return path_selection_update_uplink_hd_table(&interfaces_, "br-lan", BRIDGE_MAC, client_, hd_name, reference_,
                                                     &ap_clients_);
    }

    void make_busy() {
        config_.param.cpu_limit = 1;
        path_selection_ctx.histories[0].data_rate[0] = 3000001;
    }

    static testing::AssertionResult wrote(const std::string &ifname) {
        const std::vector<std::string> expected{"bridgeAddHDTableEntries(br-lan, 00:11:22:33:44:AF, "
                                                "02:AA:BB:CC:DD:EE, " +
                                                ifname + ", " + ifname + ", 0)"};
        if (platform.calls == expected)
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << testing::PrintToString(platform.calls);
    }

    interface_cache interfaces_;
    kolt_client client_;
    const uint8_t *reference_ = NO_MAC;
    kolt_ap_client_list ap_clients_;
    test_interface port_{"wlan1.1", TARGET};
};

TEST_F(HdEntry, EntryIsWrittenAndToldAtInfoLevel) {
    EXPECT_EQ(update(), 1);
    EXPECT_TRUE(wrote("wlan1.1"));
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_INFO, "path_selection_update_uplink_hd_table",
                                               "Info: add hd client: 00:11:22:33:44:AF to wlan1.1 success"}));
}

TEST_F(HdEntry, EntryThatTheLibraryRefusesIsToldAndReported) {
    platform.fail("bridgeAddHDTableEntries", -1);
    EXPECT_EQ(update(), 0);
    EXPECT_THAT(logged_texts(), ElementsAre("Info: add hd client: 00:11:22:33:44:AF to wlan1.1 failed"));
}

TEST_F(HdEntry, EntryIsNotToldAtLevelZero) {
    const at_log_level quiet(0);
    EXPECT_EQ(update(), 1);
    EXPECT_TRUE(wrote("wlan1.1"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(HdEntry, EntryOnATargetThatIsNoInterfaceIsWrittenAllTheSame) {
    EXPECT_EQ(update("wlan9.1"), 1);
    EXPECT_TRUE(wrote("wlan9.1"));
}

TEST_F(HdEntry, NameThatFillsItsFieldHasOnlyItsSixteenCharacters) {
    const char field[] = {'w', 'l', 'a', 'n', '1', '-', 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'X', 0};
    EXPECT_EQ(update(field), 1);
    EXPECT_TRUE(wrote("wlan1-abcdefghij"));
    EXPECT_THAT(logged_texts(), ElementsAre("Info: add hd client: 00:11:22:33:44:AF to wlan1-abcdefghij success"));
}

struct rule_row {
    const char *name;
    uint8_t relay;
    uint32_t hd_port;
    uint8_t cpu_limit;
    bool busy;
    kolt_link_type type;
    bool is_reference;
    bool is_ap_client;
    int expected;
    bool written;
};

void PrintTo(const rule_row &row, std::ostream *out) {
    *out << row.name;
}

class HdRule : public HdEntry, public testing::WithParamInterface<rule_row> {};

constexpr uint32_t OTHER = 51;

INSTANTIATE_TEST_SUITE_P(
    Rows, HdRule,
    testing::Values(
        rule_row{"AlreadyThere", 0, TARGET, 0, false, KOLT_LINK_ETHERNET, false, false, 1, false},
        rule_row{"AlreadyThereOnPowerLine", 0, TARGET, 0, false, KOLT_LINK_PLC, false, false, 1, false},
        rule_row{"Elsewhere", 0, OTHER, 0, false, KOLT_LINK_ETHERNET, false, false, 1, true},
        rule_row{"BusyWithoutTheLimit", 0, OTHER, 0, true, KOLT_LINK_ETHERNET, false, false, 1, true},
        rule_row{"LimitedButNotBusy", 0, OTHER, 1, false, KOLT_LINK_ETHERNET, false, false, 1, true},
        rule_row{"LimitedAndBusyIsHeld", 0, OTHER, 1, true, KOLT_LINK_ETHERNET, false, false, 1, false},
        rule_row{"LimitedAndBusyIsHeldOnPowerLine", 0, OTHER, 1, true, KOLT_LINK_PLC, false, false, 1, false},
        rule_row{"PowerLineStranger", 0, OTHER, 0, false, KOLT_LINK_PLC, false, false, 0, false},
        rule_row{"PowerLineReference", 0, OTHER, 0, false, KOLT_LINK_PLC, true, false, 1, true},
        rule_row{"PowerLineApClient", 0, OTHER, 0, false, KOLT_LINK_PLC, false, true, 1, true},
        rule_row{"WifiStranger", 0, OTHER, 0, false, KOLT_LINK_2G, false, false, 1, true},
        rule_row{"TypeNoneStranger", 0, OTHER, 0, false, KOLT_LINK_NONE, false, false, 1, true},
        rule_row{"RelayAlreadyThereIsRefused", 1, TARGET, 0, false, KOLT_LINK_ETHERNET, false, false, 0, false},
        rule_row{"RelayElsewhere", 1, OTHER, 0, false, KOLT_LINK_ETHERNET, false, false, 0, false},
        rule_row{"RelayLimitedAndBusyIsRefusedNotHeld", 1, OTHER, 1, true, KOLT_LINK_ETHERNET, false, false, 0, false},
        rule_row{"RelayPowerLineReference", 1, OTHER, 0, false, KOLT_LINK_PLC, true, true, 0, false},
        // Only 1 is behind a relay port.
        rule_row{"RelayOfAnotherValueAlreadyThere", 2, TARGET, 0, false, KOLT_LINK_ETHERNET, false, false, 1, false},
        rule_row{"RelayOfAnotherValue", 2, OTHER, 0, false, KOLT_LINK_ETHERNET, false, false, 1, true}),
    case_name);

TEST_P(HdRule, RulesDecideInTheirOrder) {
    const rule_row &row = GetParam();
    client_.relay = row.relay;
    client_.hd_port = row.hd_port;
    client_.type = row.type;
    if (row.busy)
        make_busy();
    config_.param.cpu_limit = row.cpu_limit;
    if (row.is_reference)
        reference_ = client_.mac;
    if (row.is_ap_client) {
        ap_clients_.count = 1;
        std::copy(std::begin(client_.mac), std::end(client_.mac), ap_clients_.macs[0]);
    }
    EXPECT_EQ(update(), row.expected);
    EXPECT_EQ(platform.calls.size(), row.written ? 1U : 0U);
    EXPECT_EQ(logged().size(), row.written ? 1U : 0U);
}

TEST_F(HdEntry, PowerLineClientWithoutAMacEqualsTheEmptyReference) {
    std::fill(std::begin(client_.mac), std::end(client_.mac), uint8_t{0});
    client_.type = KOLT_LINK_PLC;
    EXPECT_EQ(update(), 1);
    EXPECT_THAT(logged_texts(), ElementsAre("Info: add hd client: 00:00:00:00:00:00 to wlan1.1 success"));
}

TEST_F(HdEntry, DataRateIsNotLookedAtForAClientThatIsThereNorWithoutTheLimit) {
    const at_log_level dump(3);
    config_.param.cpu_limit = 1;
    client_.hd_port = TARGET;
    EXPECT_EQ(update(), 1);
    EXPECT_THAT(logged(), IsEmpty());
    config_.param.cpu_limit = 0;
    client_.hd_port = OTHER;
    EXPECT_EQ(update(), 1);
    EXPECT_THAT(logged_texts("path_selection_is_high_data_rate"), IsEmpty());
}

} // namespace
