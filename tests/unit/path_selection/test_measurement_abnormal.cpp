// 5 GHz paths that look broken beside a healthy 2.4 GHz one.
#include "path_selection/measured_test.h"
#include "path_selection/measurement.h"

#include <deque>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AbnormalPath : public MeasuredPaths {
protected:
    struct port {
        const char *name;
        kolt_link_type type;
        radio told;
    };

    void SetUp() override {
        MeasuredPaths::SetUp();
        for (const char *file :
             {"/tmp/wifi_runtime_info.2g", "/tmp/wifi_runtime_info.5g", "/tmp/wifi_runtime_info.5g2"})
            write_file(file, R"({"status": 1})");
    }

    void measure(const std::vector<port> &ports) {
        std::deque<config_interface> records;
        std::vector<config_interface *> pointers;
        for (const port &given : ports) {
            radios[given.name] = given.told;
            config_interface &record = records.emplace_back();
            kolt_copy_name(record.name, given.name);
            record.type = given.type;
            record.priority = 6;
            pointers.push_back(&record);
        }
        const kolt_interface_list list{.count = static_cast<uint8_t>(pointers.size()), .interfaces = pointers.data()};
        const installed_table installed(&radio_table);
        path_selection_get_wlan_path_info("br-lan", &list, &paths_, &config_);
    }

    static size_t flushes() {
        return static_cast<size_t>(
            std::count(platform.calls.begin(), platform.calls.end(), "bridgeFlushHATable(br-lan)"));
    }

    static constexpr port HEALTHY{"wlan0", KOLT_LINK_2G, {.tx = 13, .rx = 13}};
    static constexpr port BROKEN{"wlan1", KOLT_LINK_5G, {.tx = 10, .rx = 400, .rssi = 7, .util = 8}};
};

TEST_F(AbnormalPath, AbnormalPathHasRateZeroFlushesTheHaTableAndIsLogged) {
    measure({HEALTHY, BROKEN});
    EXPECT_EQ(paths_[KOLT_LINK_5G].rate, 0);
    EXPECT_THAT(platform.programming(), testing::Contains("bridgeFlushHATable(br-lan)").Times(1));
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_INFO, "path_selection_get_wlan_path_info",
                                               "Info: path: wlan1 tx:10 rx:400 abnormal, not choose"}));
}

TEST_F(AbnormalPath, AbnormalPathIsPresentButHasNoNewSample) {
    measure({HEALTHY, BROKEN});
    EXPECT_EQ(name_of(paths_[KOLT_LINK_5G]), "wlan1.1");
    EXPECT_EQ(paths_[KOLT_LINK_5G].priority, 6);
    EXPECT_EQ(paths_[KOLT_LINK_5G].util, 8);
    EXPECT_EQ(paths_[KOLT_LINK_5G].util_aux, 7);
    EXPECT_EQ(path_selection_ctx.histories[KOLT_LINK_5G].samples[0].rate, 0);
    EXPECT_EQ(path_selection_ctx.histories[KOLT_LINK_5G].samples[0].rx_rate, 0);
}

TEST_F(AbnormalPath, AbnormalPathHasRateZeroWhateverItsOlderSamplesTell) {
    path_selection_ctx.histories[KOLT_LINK_5G].samples[0].rate = 800;
    measure({HEALTHY, BROKEN});
    EXPECT_EQ(paths_[KOLT_LINK_5G].rate, 0);
}

TEST_F(AbnormalPath, AbnormalPathIsFlushedButNotLoggedAtLevelZero) {
    const at_log_level quiet(0);
    measure({HEALTHY, BROKEN});
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(flushes(), 1U);
}

TEST_F(AbnormalPath, AbnormalPathIsLoggedByTheWholePortNameAndTheWholeRates) {
    radios["wlan1-abcdefghi"] = {.tx = 65535, .rx = 12};
    measure({HEALTHY, {"wlan1-abcdefghij", KOLT_LINK_5G_2, {}}});
    EXPECT_THAT(logged_texts(), ElementsAre("Info: path: wlan1-abcdefghij tx:65535 rx:12 abnormal, not choose"));
}

TEST_F(AbnormalPath, FlushThatFailsIsNoError) {
    platform.fail("bridgeFlushHATable", 1);
    measure({HEALTHY, BROKEN});
    EXPECT_THAT(logged_texts(), ElementsAre("Info: path: wlan1 tx:10 rx:400 abnormal, not choose"));
    EXPECT_EQ(paths_[KOLT_LINK_5G].rate, 0);
}

TEST_F(AbnormalPath, PathThatStaysAbnormalIsFlushedInEveryPeriod) {
    measure({HEALTHY, BROKEN});
    measure({HEALTHY, BROKEN});
    EXPECT_EQ(flushes(), 2U);
}

TEST_F(AbnormalPath, PathListedBeforeTheHealthyOneIsJudgedByItsRateAlone) {
    measure({BROKEN, HEALTHY});
    EXPECT_EQ(paths_[KOLT_LINK_5G].rate, 400);
    EXPECT_EQ(flushes(), 0U);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(AbnormalPath, OnlyThePortsBehindTheHealthyOneAreJudged) {
    measure({BROKEN, HEALTHY, {"wlan2", KOLT_LINK_5G_2, {.tx = 12, .rx = 12}}});
    EXPECT_EQ(paths_[KOLT_LINK_5G].rate, 400);
    EXPECT_EQ(paths_[KOLT_LINK_5G_2].rate, 0);
    EXPECT_EQ(flushes(), 1U);
}

TEST_F(AbnormalPath, HealthIsForgottenAtTheEndOfTheWalk) {
    measure({HEALTHY});
    measure({BROKEN});
    EXPECT_EQ(paths_[KOLT_LINK_5G].rate, 400);
    EXPECT_EQ(flushes(), 0U);
}

TEST_F(AbnormalPath, SecondPortKeepsTheUtilizationOfAnAbnormalFirstOne) {
    measure({HEALTHY, BROKEN, {"wlan9", KOLT_LINK_5G, {.tx = 500, .rx = 500, .rssi = 90, .util = 91}}});
    EXPECT_EQ(name_of(paths_[KOLT_LINK_5G]), "wlan1.1");
    EXPECT_EQ(paths_[KOLT_LINK_5G].util, 8);
    EXPECT_EQ(paths_[KOLT_LINK_5G].rate, 500) << "the last port of a type decides its rate";
}

TEST_F(AbnormalPath, SecondPortOfATypeTakesTheRateOfTheFirstAway) {
    measure({HEALTHY, {"wlan9", KOLT_LINK_5G, {.tx = 500, .rx = 500}}, BROKEN});
    EXPECT_EQ(paths_[KOLT_LINK_5G].rate, 0);
    EXPECT_EQ(flushes(), 1U);
}

TEST_F(AbnormalPath, SecondPortOfTheHealthyTypeMakesItHealthyToo) {
    measure({{"wlan0", KOLT_LINK_2G, {.tx = 12, .rx = 12}}, {"wlan8", KOLT_LINK_2G, {.tx = 13, .rx = 13}}, BROKEN});
    EXPECT_EQ(paths_[KOLT_LINK_5G].rate, 0);
}

TEST_F(AbnormalPath, SecondPortOfTheHealthyTypeDoesNotTakeItsHealthAway) {
    measure({HEALTHY, {"wlan8", KOLT_LINK_2G, {.tx = 1, .rx = 1}}, BROKEN});
    EXPECT_EQ(paths_[KOLT_LINK_5G].rate, 0);
}

// ---- Every condition by itself

struct judged_row {
    const char *name;
    radio first; // the 2.4 GHz radio
    kolt_link_type type;
    uint16_t tx;
    uint16_t rx;
    uint8_t check;
    bool abnormal;
};

void PrintTo(const judged_row &row, std::ostream *out) {
    *out << row.name;
}

class JudgedPath : public AbnormalPath, public testing::WithParamInterface<judged_row> {};

constexpr radio AT_LIMIT{.tx = 13, .rx = 13};

INSTANTIATE_TEST_SUITE_P(
    Rows, JudgedPath,
    testing::Values(judged_row{"BothBelow", AT_LIMIT, KOLT_LINK_5G, 12, 12, 1, true},
                    judged_row{"TransmitBelow", AT_LIMIT, KOLT_LINK_5G, 12, 300, 1, true},
                    judged_row{"ReceiveBelow", AT_LIMIT, KOLT_LINK_5G, 300, 12, 1, true},
                    judged_row{"BothAtTheThreshold", AT_LIMIT, KOLT_LINK_5G, 13, 13, 1, false},
                    judged_row{"BothAbove", AT_LIMIT, KOLT_LINK_5G, 14, 14, 1, false},
                    judged_row{"BothZero", AT_LIMIT, KOLT_LINK_5G, 0, 0, 1, true},
                    judged_row{"SecondFiveBelow", AT_LIMIT, KOLT_LINK_5G_2, 12, 300, 1, true},
                    judged_row{"SecondFiveAtTheThreshold", AT_LIMIT, KOLT_LINK_5G_2, 13, 13, 1, false},
                    judged_row{"CheckSwitchedOff", AT_LIMIT, KOLT_LINK_5G, 12, 12, 0, false},
                    judged_row{"FirstTransmitsBelow", {.tx = 12, .rx = 300}, KOLT_LINK_5G, 12, 12, 1, false},
                    judged_row{"FirstReceivesBelow", {.tx = 300, .rx = 12}, KOLT_LINK_5G, 12, 12, 1, false},
                    judged_row{"FirstFarAbove", {.tx = 300, .rx = 300}, KOLT_LINK_5G, 12, 12, 1, true},
                    judged_row{"FirstHasNoRate", {.has_rate = false}, KOLT_LINK_5G, 12, 12, 1, false},
                    judged_row{"FirstHasNoUtilization", {.has_util = false}, KOLT_LINK_5G, 12, 12, 1, false}),
    case_name);

TEST_P(JudgedPath, PathIsAbnormalWhenAnyRateIsLowBehindAHealthyOne) {
    const judged_row &row = GetParam();
    config_.param.wifi_rate_check = row.check;
    measure({{"wlan0", KOLT_LINK_2G, row.first}, {"wlan1", row.type, {.tx = row.tx, .rx = row.rx}}});
    EXPECT_EQ(flushes(), row.abnormal ? 1U : 0U);
    EXPECT_EQ(logged().size(), row.abnormal ? 1U : 0U);
    EXPECT_EQ(paths_[row.type].rate == 0, row.abnormal);
}

TEST_F(AbnormalPath, Path24GhzIsNeverAbnormal) {
    measure({HEALTHY, {"wlan8", KOLT_LINK_2G, {.tx = 1, .rx = 2}}});
    EXPECT_EQ(flushes(), 0U);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(paths_[KOLT_LINK_2G].rate, 13) << "samples 13 and 2";
}

TEST_F(AbnormalPath, ThresholdIsTheConfiguredOne) {
    config_.param.rate_abnormal_threshold = 1000;
    measure({{"wlan0", KOLT_LINK_2G, {.tx = 1000, .rx = 1000}}, {"wlan1", KOLT_LINK_5G, {.tx = 999, .rx = 2000}}});
    EXPECT_EQ(paths_[KOLT_LINK_5G].rate, 0);
}

} // namespace
