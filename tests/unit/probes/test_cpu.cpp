// The CPU meter, and when it is overloaded.
#include "probe_test.h"

#include "core/config.h"
#include "probes/cpu.h"

#include <syslog.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char STAT[] = "/proc/stat";

// user, nice, system, idle, iowait, irq, softirq
using counters = std::array<uint32_t, 7>;

void write_stat(const counters &values) {
    std::string line = "cpu ";
    for (const uint32_t value : values)
        line += " " + std::to_string(value);
    write_file(STAT, line + " 77 88 99\ncpu0 9 9 9 9 9 9 9\nintr 1\n");
}

counters values_of(const kolt_cpu_sample &sample) {
    return {sample.user, sample.nice, sample.system, sample.idle, sample.iowait, sample.irq, sample.softirq};
}

class CpuMeter : public probe {
protected:
    // Brings the meter to a known reading, whatever was read in this process before.
    static void start_from(const counters &values) {
        write_stat(values);
        (void)kolt_calculate_cpu_occupy();
        (void)kolt_calculate_cpu_occupy();
        clear_log();
    }

    static uint32_t read_at(const counters &values) {
        write_stat(values);
        return kolt_calculate_cpu_occupy();
    }
};

// Stands first: only the first reading of a process has nothing before it.
TEST_F(CpuMeter, FirstReadingIsTheLoadSinceBoot) {
    // busy 10 + 20 + 30 + 25 + 15 = 100, total 100 + 250 + 50 = 400
    EXPECT_EQ(read_at({10, 20, 30, 250, 50, 25, 15}), 25U);
    EXPECT_THAT(logged(),
                ElementsAre(log_line{LOG_INFO, "kolt_calculate_cpu_occupy", "Info: cpu =================> 25"}));
}

struct reading_row {
    const char *name;
    counters before;
    counters after;
    uint32_t percent;
};

class CpuReading : public probe_rows<reading_row> {};

TEST_P(CpuReading, OccupancyIsTheLoadBetweenTwoSamples) {
    const auto &[name, before, after, percent] = GetParam();
    write_stat(before);
    (void)kolt_calculate_cpu_occupy();
    (void)kolt_calculate_cpu_occupy();
    clear_log();
    write_stat(after);
    EXPECT_EQ(kolt_calculate_cpu_occupy(), percent);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_INFO, "kolt_calculate_cpu_occupy",
                                               "Info: cpu =================> " + std::to_string(percent)}));
}

INSTANTIATE_TEST_SUITE_P(CpuMeter, CpuReading,
                         testing::Values(reading_row{"UserIsBusy", {}, {50, 0, 0, 50, 0, 0, 0}, 50},
                                         reading_row{"NiceIsBusy", {}, {0, 30, 0, 70, 0, 0, 0}, 30},
                                         reading_row{"SystemIsBusy", {}, {0, 0, 20, 80, 0, 0, 0}, 20},
                                         reading_row{"IrqIsBusy", {}, {0, 0, 0, 90, 0, 10, 0}, 10},
                                         reading_row{"SoftirqIsBusy", {}, {0, 0, 0, 95, 0, 0, 5}, 5},
                                         reading_row{"IowaitIsIdle", {}, {10, 0, 0, 0, 90, 0, 0}, 10},
                                         reading_row{"AllBusy", {}, {1, 2, 3, 0, 0, 4, 5}, 100},
                                         reading_row{"AllIdle", {}, {0, 0, 0, 7, 7, 0, 0}, 0},
                                         reading_row{"OnlyTheDifferenceCounts",
                                                     {100, 100, 100, 100, 100, 100, 100},
                                                     {110, 110, 110, 150, 110, 110, 110},
                                                     45},
                                         // 50 of 110 is 45.45; 2 of 3 is 66.67; 999 of 1000 is 99.9
                                         reading_row{"Truncates", {}, {2, 0, 0, 1, 0, 0, 0}, 66},
                                         reading_row{"TruncatesBelowOneHundred", {}, {999, 0, 0, 1, 0, 0, 0}, 99}),
                         row_name<reading_row>);

INSTANTIATE_TEST_SUITE_P(
    CpuMeterWraps, CpuReading,
    testing::Values(
        // user goes up by 20 through the wrap, idle by 80
        reading_row{"OneCounter", {4294967286, 0, 0, 0, 0, 0, 0}, {10, 0, 0, 80, 0, 0, 0}, 20},
        // the sums themselves wrap: busy 3000000000 twice is 1705032704
        reading_row{"Sums", {3000000000, 3000000000, 0, 0, 0, 0, 0}, {3000000030, 3000000000, 0, 70, 0, 0, 0}, 30},
        // 50000000 * 100 = 5000000000 leaves 705032704, and that by 100000000 is 7
        reading_row{"ProductOfTheBusyTime", {}, {50000000, 0, 0, 50000000, 0, 0, 0}, 7},
        // -1 * 100 leaves 4294967196, and that by 99 is 43383507
        reading_row{"BusyTimeThatGoesBack", {1, 0, 0, 0, 0, 0, 0}, {0, 0, 0, 100, 0, 0, 0}, 43383507},
        // 100 by 4294967286, a total that went back by 10
        reading_row{"TotalThatGoesBack", {0, 0, 0, 11, 0, 0, 0}, {1, 0, 0, 0, 0, 0, 0}, 0}),
    row_name<reading_row>);

INSTANTIATE_TEST_SUITE_P(CpuMeterGuards, CpuReading,
                         testing::Values(reading_row{"EqualSamples", {5, 5, 5, 5, 5, 5, 5}, {5, 5, 5, 5, 5, 5, 5}, 0},
                                         reading_row{"EqualTotals", {1, 0, 0, 9, 0, 0, 0}, {9, 0, 0, 1, 0, 0, 0}, 0},
                                         reading_row{
                                             "EqualTotalsByIowait", {1, 0, 0, 0, 9, 0, 0}, {9, 0, 0, 0, 1, 0, 0}, 0}),
                         row_name<reading_row>);

TEST_F(CpuMeter, SecondReadingOfAnUnchangedFileIsZero) {
    start_from({});
    EXPECT_EQ(read_at({10, 0, 0, 90, 0, 0, 0}), 10U);
    EXPECT_EQ(kolt_calculate_cpu_occupy(), 0U);
    EXPECT_EQ(kolt_calculate_cpu_occupy(), 0U);
    EXPECT_THAT(logged_texts(), ElementsAre("Info: cpu =================> 10", "Info: cpu =================> 0",
                                            "Info: cpu =================> 0"));
}

TEST_F(CpuMeter, EveryReadingIsComparedWithTheOneBefore) {
    start_from({});
    EXPECT_EQ(read_at({10, 0, 0, 90, 0, 0, 0}), 10U);
    EXPECT_EQ(read_at({30, 0, 0, 170, 0, 0, 0}), 20U);
    EXPECT_EQ(read_at({60, 0, 0, 240, 0, 0, 0}), 30U);
    EXPECT_EQ(read_at({60, 0, 0, 240, 0, 0, 0}), 0U);
    EXPECT_EQ(read_at({100, 0, 0, 300, 0, 0, 0}), 40U);
    EXPECT_EQ(read_at({150, 0, 0, 350, 0, 0, 0}), 50U);
}

TEST_F(CpuMeter, MissingFileReadsAsAllZero) {
    start_from({10, 0, 0, 90, 0, 0, 0});
    remove_file(STAT);
    // busy -10 times 100 leaves 4294966296, by a total of -100, which is 4294967196: 0
    EXPECT_EQ(kolt_calculate_cpu_occupy(), 0U);
    EXPECT_EQ(read_at({30, 0, 0, 70, 0, 0, 0}), 30U) << "the sample before was all zero";
}

TEST_F(CpuMeter, LineIsNotLoggedAtLevelZero) {
    start_from({});
    const at_log_level quiet(0);
    EXPECT_EQ(read_at({10, 0, 0, 90, 0, 0, 0}), 10U);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(CpuMeter, SampleIsReadFromTheFirstLineInItsOrder) {
    write_file(STAT, "cpu  1 2 3 4 5 6 7 8 9 10\ncpu0 90 90 90 90 90 90 90\n");
    kolt_cpu_sample sample;
    kolt_read_cpu_sample(&sample);
    EXPECT_THAT(values_of(sample), ElementsAre(1, 2, 3, 4, 5, 6, 7));
}

TEST_F(CpuMeter, SampleHoldsThe32BitRange) {
    write_file(STAT, "cpu 4294967295 0 4294967294 2147483648 2147483647 1 0\n");
    kolt_cpu_sample sample;
    kolt_read_cpu_sample(&sample);
    EXPECT_THAT(values_of(sample), ElementsAre(4294967295, 0, 4294967294, 2147483648, 2147483647, 1, 0));
}

TEST_F(CpuMeter, SampleIsLeftAsItIsWithoutAFile) {
    remove_file(STAT);
    kolt_cpu_sample sample{1, 2, 3, 4, 5, 6, 7};
    kolt_read_cpu_sample(&sample);
    EXPECT_THAT(values_of(sample), ElementsAre(1, 2, 3, 4, 5, 6, 7));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(CpuMeter, SampleIsLeftAsItIsWithoutADescriptor) {
    write_stat({9, 9, 9, 9, 9, 9, 9});
    kolt_cpu_sample sample{1, 2, 3, 4, 5, 6, 7};
    {
        const no_descriptors none;
        kolt_read_cpu_sample(&sample);
    }
    EXPECT_THAT(values_of(sample), ElementsAre(1, 2, 3, 4, 5, 6, 7));
}

TEST_F(CpuMeter, ShortOrOddLinesAreHarmless) {
    for (const std::string &text :
         {std::string(), std::string("\n"), std::string("cpu"), std::string("cpu 1 2"), std::string("cpu x y z"),
          std::string(40, 'c') + " 1 2 3 4 5 6 7\n", std::string(5000, '9'), std::string("cpu\0 1 2", 8)}) {
        write_file(STAT, text);
        kolt_cpu_sample sample;
        kolt_read_cpu_sample(&sample);
        EXPECT_EQ(sample.softirq, 0U) << text;
    }
}

TEST_F(CpuMeter, ShortLineFillsWhatItHas) {
    write_file(STAT, "cpu 1 2 3\n");
    kolt_cpu_sample sample;
    kolt_read_cpu_sample(&sample);
    EXPECT_THAT(values_of(sample), ElementsAre(1, 2, 3, 0, 0, 0, 0));
}

TEST_F(CpuMeter, LineIsReadNoFurtherThan1024Bytes) {
    write_file(STAT, "cpu 11" + std::string(1100, ' ') + "22 33 44 55 66 77\n");
    kolt_cpu_sample sample;
    kolt_read_cpu_sample(&sample);
    EXPECT_THAT(values_of(sample), ElementsAre(11, 0, 0, 0, 0, 0, 0));
}

struct overload_row {
    const char *name;
    uint8_t threshold;
    uint32_t busy; // of 100
    int expected;
};

class CpuOverload : public probe_rows<overload_row> {};

TEST_P(CpuOverload, LoadAboveTheThresholdIsAnOverload) {
    write_stat({});
    (void)kolt_calculate_cpu_occupy();
    (void)kolt_calculate_cpu_occupy();
    write_stat({GetParam().busy, 0, 0, 100 - GetParam().busy, 0, 0, 0});
    config settings;
    settings.param.cpu_threshold = GetParam().threshold;
    EXPECT_EQ(kolt_check_cpu_overload(&settings), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(CpuMeter, CpuOverload,
                         testing::Values(overload_row{"Below", 80, 79, 0},
                                         overload_row{"ExactlyTheThreshold", 80, 80, 0},
                                         overload_row{"Above", 80, 81, 1}, overload_row{"LowestThreshold", 1, 2, 1},
                                         overload_row{"LowestThresholdIdle", 1, 1, 0},
                                         overload_row{"HighestLoadThereIs", 99, 100, 1},
                                         overload_row{"ThresholdThatIsNeverReached", 100, 100, 0},
                                         overload_row{"LargestThreshold", 255, 100, 0}),
                         row_name<overload_row>);

TEST_F(CpuMeter, OverloadTakesOneReading) {
    start_from({});
    write_stat({50, 0, 0, 50, 0, 0, 0});
    config settings;
    settings.param.cpu_threshold = 80;
    EXPECT_EQ(kolt_check_cpu_overload(&settings), 0);
    EXPECT_THAT(logged_texts(), ElementsAre("Info: cpu =================> 50"));
    EXPECT_EQ(kolt_calculate_cpu_occupy(), 0U) << "the load since the other caller's reading";
}

TEST_F(CpuMeter, ThresholdZeroDoesNotTouchTheMeter) {
    start_from({});
    write_stat({50, 0, 0, 50, 0, 0, 0});
    config settings;
    settings.param.cpu_threshold = 0;
    EXPECT_EQ(kolt_check_cpu_overload(&settings), 0);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(kolt_calculate_cpu_occupy(), 50U) << "no reading came between";
}

} // namespace
