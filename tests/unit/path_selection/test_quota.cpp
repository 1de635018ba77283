// What setting the quotas reads, stores and logs.
#include "path_selection/measured_test.h"
#include "path_selection/measurement.h"
#include "probes/cpu.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char OPERATION[] = "path_selection_init_path_quota";
constexpr auto UNTOUCHED = static_cast<kolt_link_type>(88);

TEST_F(MeasuredPaths, QuotaGivesEveryPresentRowItsTypeAndLeavesAbsentRowsAlone) {
    for (const kolt_link_type type : {KOLT_LINK_ETHERNET, KOLT_LINK_PLC, KOLT_LINK_5G})
        add_row(type, "path.1").path = UNTOUCHED;
    for (const kolt_link_type type : {KOLT_LINK_2G, KOLT_LINK_5G_2}) {
        paths_[type].path = UNTOUCHED;
        paths_[type].util = 50;
        paths_[type].quota = -3;
    }
    path_selection_init_path_quota(&config_, &paths_);
    for (const kolt_link_type type : {KOLT_LINK_ETHERNET, KOLT_LINK_PLC, KOLT_LINK_5G})
        EXPECT_EQ(paths_[type].path, type);
    for (const kolt_link_type type : {KOLT_LINK_2G, KOLT_LINK_5G_2}) {
        EXPECT_EQ(paths_[type].path, UNTOUCHED);
        EXPECT_EQ(paths_[type].util, 50);
        EXPECT_EQ(paths_[type].quota, -3);
    }
    EXPECT_EQ(logged().size(), 3U) << "absent rows are not logged";
}

// ---- The CPU

class CpuAndQuota : public MeasuredPaths {
protected:
    void SetUp() override {
        MeasuredPaths::SetUp();
        write_file("/proc/stat", "cpu 1000 0 0 1000 0 0 0\n");
        (void)kolt_calculate_cpu_occupy();
        // Since then 90 of 100 ticks were busy.
        write_file("/proc/stat", "cpu 1090 0 0 1010 0 0 0\n");
        clear_log();
    }
};

TEST_F(CpuAndQuota, OverloadTakesTheCapacityOfThe24GhzPathOnly) {
    config_.param.cpu_threshold = 89;
    for (const kolt_link_type type : KOLT_LINKS)
        add_row(type, "path.1", 40);
    path_selection_init_path_quota(&config_, &paths_);
    for (const kolt_link_type type : KOLT_LINKS)
        EXPECT_EQ(paths_[type].quota, type == 2 ? 0 : 6000) << type;
}

TEST_F(CpuAndQuota, ProcessorAtItsThresholdIsNotOverloaded) {
    config_.param.cpu_threshold = 90;
    add_row(KOLT_LINK_2G, "wlan0.1", 40);
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_EQ(paths_[2].quota, 6000);
}

TEST_F(CpuAndQuota, ProcessorIsNotReadWithoutAThreshold) {
    add_row(KOLT_LINK_2G, "wlan0.1", 40);
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_EQ(paths_[2].quota, 6000);
    EXPECT_THAT(logged_texts("kolt_calculate_cpu_occupy"), IsEmpty());
}

TEST_F(CpuAndQuota, ProcessorIsReadOnceBeforeTheRows) {
    config_.param.cpu_threshold = 89;
    add_row(KOLT_LINK_2G, "wlan0.1");
    add_row(KOLT_LINK_5G, "wlan1.1");
    path_selection_init_path_quota(&config_, &paths_);
    ASSERT_EQ(logged().size(), 3U);
    EXPECT_EQ(logged()[0].text, "Info: cpu =================> 90");
    EXPECT_EQ(logged()[1].function, OPERATION);
    EXPECT_EQ(logged()[2].function, OPERATION);
}

TEST_F(CpuAndQuota, ProcessorIsReadAlsoWithoutAnyRow) {
    config_.param.cpu_threshold = 89;
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_THAT(logged_texts(), ElementsAre("Info: cpu =================> 90"));
}

TEST_F(CpuAndQuota, OverloadIsToldAtDebugLevelBeforeTheRow) {
    const at_log_level debug(2);
    config_.param.cpu_threshold = 89;
    add_row(KOLT_LINK_2G, "wlan0.1");
    add_row(KOLT_LINK_5G, "wlan1.1");
    path_selection_init_path_quota(&config_, &paths_);
    ASSERT_EQ(logged().size(), 4U);
    EXPECT_EQ(logged()[1], (log_line{LOG_DEBUG, OPERATION, "Debug: cpu overload! kolt will not select 2.4G!"}));
    EXPECT_EQ(logged()[2],
              (log_line{LOG_INFO, OPERATION,
                        "Info: path: wlan0.1, util: 0, util_adjustment: 0, adjusted_util: 0, quota: 0, "
                        "rx_tx_factor: 0, rx_pkt_size: 0, rx_selected: 0, tx_rate: 0, rx_rate: 0, processed_rate: 0"}));
}

TEST_F(CpuAndQuota, OverloadWithoutA24GhzPathIsNotTold) {
    const at_log_level debug(2);
    config_.param.cpu_threshold = 89;
    add_row(KOLT_LINK_5G, "wlan1.1");
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_EQ(logged_texts(OPERATION).size(), 1U);
}

// ---- The line

class QuotaLine : public MeasuredPaths {
protected:
    void SetUp() override {
        MeasuredPaths::SetUp();
        ps_path &row = add_row(KOLT_LINK_5G, "wlan1.1", 25, 866);
        row.util_adjustment = -5;
        ps_path_history &history = path_selection_ctx.histories[3];
        history.rx_tx_factor = 2;
        history.rx_pkt_size = 1400;
        history.rx_selected = 1;
        history.samples[0] = {.tx_rate = 1, .rx_rate = 2, .rate = 2};
        history.samples[4] = {.tx_rate = 433, .rx_rate = 650, .rate = 650};
        history.sample_index = 4;
    }
};

TEST_F(QuotaLine, LineTellsTheRowItsHistoryAndItsNewestSample) {
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_THAT(logged(), ElementsAre(log_line{
                              LOG_INFO, OPERATION,
                              "Info: path: wlan1.1, util: 25, util_adjustment: -5, adjusted_util: 20, quota: 8000, "
                              "rx_tx_factor: 2, rx_pkt_size: 1400, rx_selected: 1, tx_rate: 433, rx_rate: 650, "
                              "processed_rate: 866"}));
}

TEST_F(QuotaLine, LineIsNotWrittenAtLevelZero) {
    const at_log_level quiet(0);
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(paths_[3].quota, 8000);
}

TEST_F(QuotaLine, LineIsWrittenForEveryRowInTypeOrder) {
    add_row(KOLT_LINK_5G_2, "wlan2.1");
    add_row(KOLT_LINK_ETHERNET, "eth0");
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_THAT(logged_texts(OPERATION),
                ElementsAre(testing::StartsWith("Info: path: eth0, "), testing::StartsWith("Info: path: wlan1.1, "),
                            testing::StartsWith("Info: path: wlan2.1, ")));
}

TEST_F(QuotaLine, PowerLinesUtilizationIsToldLessItsReserve) {
    config_.param.reserved_ratio = 10;
    add_row(KOLT_LINK_PLC, "plc0", 20);
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_THAT(
        logged_texts()[0],
        testing::StartsWith("Info: path: plc0, util: 10, util_adjustment: 0, adjusted_util: 10, quota: 8000, "));
}

TEST_F(QuotaLine, NameThatFillsItsFieldIsToldWithoutWhatFollows) {
    kolt_copy_name(paths_[3].name, "wlan1-abcdefghij");
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_THAT(logged_texts(), ElementsAre(testing::StartsWith("Info: path: wlan1-abcdefghij, util: 25, ")));
}

} // namespace
