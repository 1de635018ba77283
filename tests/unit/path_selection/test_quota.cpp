#include "path_selection/measured_test.h"
#include "probes/cpu.h"

#include <random>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char OPERATION[] = "path_selection_init_path_quota";

// ---- The capacity that is left

struct quota_row {
    const char *name;
    uint32_t type;
    uint8_t reserved;
    uint8_t util;
    int8_t adjustment;
    uint8_t util_after;
    int16_t quota;
};

void PrintTo(const quota_row &row, std::ostream *out) {
    *out << row.name;
}

class PathQuota : public MeasuredPaths, public testing::WithParamInterface<quota_row> {};

INSTANTIATE_TEST_SUITE_P(
    Rows, PathQuota,
    testing::Values(
        quota_row{"Idle", 2, 0, 0, 0, 0, 10000}, quota_row{"Reserved10Util95", 3, 10, 95, 0, 95, 0},
        quota_row{"Reserved10Util20", 3, 10, 20, 0, 20, 7000}, quota_row{"Util99", 4, 0, 99, 0, 99, 100},
        quota_row{"Util100", 4, 0, 100, 0, 100, 0}, quota_row{"Util101", 4, 0, 101, 0, 101, 0},
        quota_row{"Ethernet", 0, 10, 20, 0, 20, 7000}, quota_row{"Raised", 2, 0, 20, 30, 20, 5000},
        quota_row{"Lowered", 2, 0, 20, -30, 20, 11000},
        // 8 bits: 127 is the most, 128 is -128, and -129 is 127 again.
        quota_row{"LoweredTo127", 2, 0, 0, -27, 0, 12700}, quota_row{"LoweredTo128", 2, 0, 0, -28, 0, 0},
        quota_row{"LoweredByTheMost", 2, 0, 0, -128, 0, 0}, quota_row{"Util228IsMinus128", 2, 0, 228, 0, 228, 0},
        quota_row{"Util229WrapsTo127", 2, 0, 229, 0, 229, 12700},
        quota_row{"Util255WrapsTo101", 2, 0, 255, 0, 255, 10100},
        quota_row{"Reserved228IsMinus128", 3, 228, 0, 0, 0, 0},
        quota_row{"Reserved229WrapsTo127", 3, 229, 0, 0, 0, 12700},
        // 100 - 200 - 200 is -300, which is -44.
        quota_row{"ReservedAndUtil200", 3, 200, 200, 0, 200, 0},
        // 100 - 255 - 255 - 127 is -537, which is -25.
        quota_row{"EverythingAtItsMost", 3, 255, 255, 127, 255, 0},
        // 100 - 255 - 101 is -256, which is 0.
        quota_row{"WrapsToNothing", 3, 255, 101, 0, 101, 0},
        // Power line: the reserve is taken off the utilisation first.
        quota_row{"PowerLineReserved10Util20", 1, 10, 20, 0, 10, 8000},
        quota_row{"PowerLineUtilEqualToTheReserve", 1, 10, 10, 0, 0, 9000},
        quota_row{"PowerLineUtilBelowTheReserve", 1, 10, 9, 0, 0, 9000},
        quota_row{"PowerLineUtil100", 1, 10, 100, 0, 90, 0}, quota_row{"PowerLineUtil99", 1, 10, 99, 0, 89, 100},
        quota_row{"PowerLineRaised", 1, 10, 20, 5, 10, 7500}, quota_row{"PowerLineUtil127", 1, 0, 127, 0, 127, 0},
        quota_row{"PowerLineUtil128IsNegative", 1, 0, 128, 0, 0, 10000},
        quota_row{"PowerLineUtil255IsNegative", 1, 0, 255, 0, 0, 10000},
        // 255 - 128 is 127; 100 - 128 - 127 is -155, which is 101.
        quota_row{"PowerLineReserved128Util255", 1, 128, 255, 0, 127, 10100},
        // 0 - 129 is 127 in 8 bits; 100 - 129 - 127 is -156, which is 100.
        quota_row{"PowerLineReserved129Idle", 1, 129, 0, 0, 127, 10000}),
    case_name);

TEST_P(PathQuota, IsWhatUtilizationAndReserveLeaveInSignedEightBits) {
    const quota_row &row = GetParam();
    config_.param.reserved_ratio = row.reserved;
    ps_path &path = add_row(row.type, "path.1", row.util);
    path.util_adjustment = row.adjustment;
    path.quota = 4711;
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_EQ(path.util, row.util_after);
    EXPECT_EQ(path.quota, row.quota);
    EXPECT_EQ(path.util_adjustment, row.adjustment);
}

TEST_F(MeasuredPaths, QuotaGivesEveryPresentRowItsTypeAndLeavesAbsentRowsAlone) {
    for (const uint32_t type : {0U, 1U, 3U})
        add_row(type, "path.1").path = 77;
    for (const uint32_t type : {2U, 4U}) {
        paths_[type].path = 88;
        paths_[type].util = 50;
        paths_[type].quota = -3;
    }
    path_selection_init_path_quota(&config_, &paths_);
    for (const uint32_t type : {0U, 1U, 3U})
        EXPECT_EQ(paths_[type].path, type);
    for (const uint32_t type : {2U, 4U}) {
        EXPECT_EQ(paths_[type].path, 88U);
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
    for (uint32_t type = 0; type < 5; type++)
        add_row(type, "path.1", 40);
    path_selection_init_path_quota(&config_, &paths_);
    for (uint32_t type = 0; type < 5; type++)
        EXPECT_EQ(paths_[type].quota, type == 2 ? 0 : 6000) << type;
}

TEST_F(CpuAndQuota, AtItsThresholdIsNotOverloaded) {
    config_.param.cpu_threshold = 90;
    add_row(2, "wlan0.1", 40);
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_EQ(paths_[2].quota, 6000);
}

TEST_F(CpuAndQuota, WithoutAThresholdIsNotRead) {
    add_row(2, "wlan0.1", 40);
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_EQ(paths_[2].quota, 6000);
    EXPECT_THAT(logged_texts("kolt_calculate_cpu_occupy"), IsEmpty());
}

TEST_F(CpuAndQuota, IsReadOnceBeforeTheRows) {
    config_.param.cpu_threshold = 89;
    add_row(2, "wlan0.1");
    add_row(3, "wlan1.1");
    path_selection_init_path_quota(&config_, &paths_);
    ASSERT_EQ(logged().size(), 3U);
    EXPECT_EQ(logged()[0].text, "Info: cpu =================> 90");
    EXPECT_EQ(logged()[1].function, OPERATION);
    EXPECT_EQ(logged()[2].function, OPERATION);
}

TEST_F(CpuAndQuota, IsReadAlsoWithoutAnyRow) {
    config_.param.cpu_threshold = 89;
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_THAT(logged_texts(), ElementsAre("Info: cpu =================> 90"));
}

TEST_F(CpuAndQuota, OverloadIsToldAtDebugLevelBeforeTheRow) {
    const at_log_level debug(2);
    config_.param.cpu_threshold = 89;
    add_row(2, "wlan0.1");
    add_row(3, "wlan1.1");
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
    add_row(3, "wlan1.1");
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_EQ(logged_texts(OPERATION).size(), 1U);
}

// ---- The line

class QuotaLine : public MeasuredPaths {
protected:
    void SetUp() override {
        MeasuredPaths::SetUp();
        ps_path &row = add_row(3, "wlan1.1", 25, 866);
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

TEST_F(QuotaLine, TellsTheRowItsHistoryAndItsNewestSample) {
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_THAT(logged(), ElementsAre(log_line{
                              LOG_INFO, OPERATION,
                              "Info: path: wlan1.1, util: 25, util_adjustment: -5, adjusted_util: 20, quota: 8000, "
                              "rx_tx_factor: 2, rx_pkt_size: 1400, rx_selected: 1, tx_rate: 433, rx_rate: 650, "
                              "processed_rate: 866"}));
}

TEST_F(QuotaLine, IsNotWrittenAtLevelZero) {
    const at_log_level quiet(0);
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(paths_[3].quota, 8000);
}

TEST_F(QuotaLine, IsWrittenForEveryRowInTypeOrder) {
    add_row(4, "wlan2.1");
    add_row(0, "eth0");
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_THAT(logged_texts(OPERATION),
                ElementsAre(testing::StartsWith("Info: path: eth0, "), testing::StartsWith("Info: path: wlan1.1, "),
                            testing::StartsWith("Info: path: wlan2.1, ")));
}

TEST_F(QuotaLine, TellsPowerLinesUtilizationLessItsReserve) {
    config_.param.reserved_ratio = 10;
    add_row(1, "plc0", 20);
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_THAT(
        logged_texts()[0],
        testing::StartsWith("Info: path: plc0, util: 10, util_adjustment: 0, adjusted_util: 10, quota: 8000, "));
}

TEST_F(QuotaLine, TellsANameThatFillsItsFieldWithoutWhatFollows) {
    kolt_copy_name(paths_[3].name, "wlan1-abcdefghij");
    path_selection_init_path_quota(&config_, &paths_);
    EXPECT_THAT(logged_texts(), ElementsAre(testing::StartsWith("Info: path: wlan1-abcdefghij, util: 25, ")));
}

// ---- Against a plain model

// The value that 8 bits in two's complement keep of a number.
int eight_bits(int value) {
    while (value < -128)
        value += 256;
    while (value > 127)
        value -= 256;
    return value;
}

TEST_F(MeasuredPaths, QuotaAgreesWithAPlainModelOnRandomRows) {
    const at_log_level quiet(0);
    std::mt19937 random(20240502);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> percent(0, 100);
    for (int round = 0; round < 5000; round++) {
        const bool usual = round % 2 == 0;
        const int reserved = usual ? percent(random) : byte(random);
        config_.param.reserved_ratio = static_cast<uint8_t>(reserved);
        int utils[5];
        int adjustments[5];
        for (uint32_t type = 0; type < 5; type++) {
            utils[type] = usual ? percent(random) : byte(random);
            adjustments[type] = byte(random) - 128;
            add_row(type, "path.1", static_cast<uint8_t>(utils[type])).util_adjustment =
                static_cast<int8_t>(adjustments[type]);
        }
        path_selection_init_path_quota(&config_, &paths_);
        for (uint32_t type = 0; type < 5; type++) {
            int util = utils[type];
            if (type == 1)
                util = eight_bits(util - reserved) > 0 ? eight_bits(util - reserved) : 0;
            int left = eight_bits(eight_bits(100 - reserved) - eight_bits(util + adjustments[type]));
            left = left > 0 ? left : 0;
            ASSERT_EQ(paths_[type].util, util) << "type " << type << " in round " << round;
            ASSERT_EQ(paths_[type].quota, left * 100) << "type " << type << " in round " << round;
        }
    }
}

} // namespace
