// An interface's counters in the kernel's table.
#include "probe_test.h"

#include "probes/counters.h"

#include <cerrno>
#include <filesystem>
#include <sys/time.h>
#include <sys/wait.h>
#include <syslog.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char TABLE[] = "/proc/net/dev";
constexpr char HEAD[] =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo colls carrier "
    "compressed\n";

// receive bytes and packets, transmit bytes and packets
using counts = std::array<uint64_t, 4>;

counts counts_of(const kolt_if_stat &stat) {
    return {stat.rx_bytes, stat.rx_packets, stat.tx_bytes, stat.tx_packets};
}

// By the clock that the code reads; time() lags behind it by some milliseconds.
time_t seconds_now() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now.tv_sec;
}

struct table_row {
    const char *name;
    std::string lines;
    const char *interface;
    counts expected;
};

class IfStat : public probe_rows<table_row> {};

TEST_P(IfStat, CountersAreReadFromTheFirstLineWithTheKey) {
    const at_log_level dump(3);
    write_file(TABLE, HEAD + GetParam().lines);
    kolt_if_stat stat{1, 2, 3, 4, 5};
    const time_t before = seconds_now();
    ASSERT_EQ(kolt_get_if_stat(GetParam().interface, &stat), 1);
    const time_t after = seconds_now();
    EXPECT_EQ(counts_of(stat), GetParam().expected);
    EXPECT_GE(stat.seconds, before);
    EXPECT_LE(stat.seconds, after);
    EXPECT_THAT(logged(), IsEmpty());
}

constexpr char ETH0[] = "  eth0: 101 102 103 104 105 106 107 108 109 110 111 112 113 114 115 116\n";
constexpr char ETH1[] = "  eth1: 201 202 203 204 205 206 207 208 209 210 211 212 213 214 215 216\n";

INSTANTIATE_TEST_SUITE_P(
    Counters, IfStat,
    testing::Values(
        table_row{"FirstSecondNinthAndTenthNumber", ETH0, "eth0", {101, 102, 109, 110}},
        table_row{"OfTheInterfaceThatIsAskedFor", std::string(ETH0) + ETH1, "eth1", {201, 202, 209, 210}},
        table_row{"FirstOfTwoLines", std::string(ETH0) + "eth0: 9 9 9 9 9 9 9 9 9 9 9\n", "eth0", {101, 102, 109, 110}},
        table_row{"WithoutABlankBeforeTheName", "eth0: 1 2 3 4 5 6 7 8 9 10 11\n", "eth0", {1, 2, 9, 10}},
        table_row{"WithoutALineFeedAtTheEnd", "eth0: 1 2 3 4 5 6 7 8 9 10", "eth0", {1, 2, 9, 10}},
        table_row{"WideColumns", "eth0:      1      2 0 0 0 0 0 0      9     10 0\n", "eth0", {1, 2, 9, 10}},
        table_row{"SixtyFourBits",
                  "eth0: 18446744073709551615 4294967296 0 0 0 0 0 0 9223372036854775808 4294967295\n",
                  "eth0",
                  {18446744073709551615U, 4294967296, 9223372036854775808U, 4294967295}},
        table_row{"Zeros", "eth0: 0 0 0 0 0 0 0 0 0 0 0\n", "eth0", {0, 0, 0, 0}},
        table_row{"DottedName", "wlan0.1: 1 2 3 4 5 6 7 8 9 10\n", "wlan0.1", {1, 2, 9, 10}},
        table_row{
            "NameOfFifteenCharacters", "abcdefghijklmno: 1 2 3 4 5 6 7 8 9 10\n", "abcdefghijklmno", {1, 2, 9, 10}},
        table_row{"KeyIsCutAtSixteenCharacters",
                  "abcdefghijklmnopqr: 1 2 3 4 5 6 7 8 9 10\n",
                  "abcdefghijklmnopXYZ",
                  {1, 2, 9, 10}}),
    row_name<table_row>);

INSTANTIATE_TEST_SUITE_P(
    CountersQuirks, IfStat,
    testing::Values(table_row{"SubstringOfAnEarlierName",
                              "veth0: 1 2 3 4 5 6 7 8 9 10\n" + std::string(ETH0),
                              "eth0",
                              {1, 2, 9, 10}},
                    table_row{"SubstringOfALaterNameDoesNotCount",
                              ETH0 + std::string("veth0: 1 2 3 4 5 6 7 8 9 10\n"),
                              "eth0",
                              {101, 102, 109, 110}},
                    table_row{"LongerNameIsNoSubstring",
                              "eth01: 1 2 3 4 5 6 7 8 9 10\n" + std::string(ETH0),
                              "eth0",
                              {101, 102, 109, 110}},
                    table_row{"KeyAnywhereInTheLine", "x: 7 7 7 eth0: 1 2 3 4 5 6 7 8 9 10\n", "eth0", {1, 2, 9, 10}},
                    table_row{"EmptyNameMatchesTheFirstColon", ETH0, "", {101, 102, 109, 110}},
                    // the name takes the first number with it, and all others move up
                    table_row{"NameGluedToItsFirstNumber",
                              "eth0:101 102 103 104 105 106 107 108 109 110 111 112\n",
                              "eth0",
                              {102, 103, 110, 111}}),
    row_name<table_row>);

class Counters : public probe {};

TEST_F(Counters, AbsentInterfaceLeavesTheReadingUntouched) {
    const at_log_level dump(3);
    write_file(TABLE, std::string(HEAD) + ETH0 + ETH1);
    kolt_if_stat stat{1, 2, 3, 4, 5};
    for (const char *name : {"eth2", "eth", "th0.", "ETH0", "eth0:x"})
        EXPECT_EQ(kolt_get_if_stat(name, &stat), 0) << name;
    EXPECT_EQ(stat.seconds, 1U);
    EXPECT_EQ(counts_of(stat), (counts{2, 3, 4, 5}));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Counters, EmptyOrAbsentTableHasNoInterface) {
    kolt_if_stat stat;
    write_file(TABLE, "");
    EXPECT_EQ(kolt_get_if_stat("eth0", &stat), 0);
    remove_file(TABLE);
    EXPECT_EQ(kolt_get_if_stat("eth0", &stat), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Counters, NullArgumentsAreRefusedWithoutAMessage) {
    write_file(TABLE, std::string(HEAD) + ETH0);
    kolt_if_stat stat;
    EXPECT_EQ(kolt_get_if_stat(nullptr, &stat), 0);
    EXPECT_EQ(kolt_get_if_stat("eth0", nullptr), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Counters, ReaderThatCannotBeStartedIsLogged) {
    write_file(TABLE, std::string(HEAD) + ETH0);
    kolt_if_stat stat{1, 2, 3, 4, 5};
    {
        const no_descriptors none;
        EXPECT_EQ(kolt_get_if_stat("eth0", &stat), 0);
    }
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_if_stat", "Error: popen cat /proc/net/dev"}));
    EXPECT_EQ(counts_of(stat), (counts{2, 3, 4, 5}));
}

TEST_F(Counters, ReadingCountersLeavesNoChildBehind) {
    write_file(TABLE, std::string(HEAD) + ETH0);
    kolt_if_stat stat;
    EXPECT_EQ(kolt_get_if_stat("eth0", &stat), 1);
    EXPECT_EQ(kolt_get_if_stat("none", &stat), 0);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(Counters, LongLinesAreReadInPieces) {
    const std::string filler(600, 'x');
    write_file(TABLE, filler + "\n" + filler + "\n" + ETH0);
    kolt_if_stat stat;
    EXPECT_EQ(kolt_get_if_stat("eth0", &stat), 1);
    EXPECT_EQ(counts_of(stat), (counts{101, 102, 109, 110}));
}

TEST_F(Counters, LargeTablesAreReadToTheEnd) {
    std::string table = HEAD;
    for (int i = 0; i < 2000; i++)
        table += "  port" + std::to_string(i) + ": 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n";
    write_file(TABLE, table + ETH0);
    kolt_if_stat stat;
    EXPECT_EQ(kolt_get_if_stat("eth0", &stat), 1);
    EXPECT_EQ(counts_of(stat), (counts{101, 102, 109, 110}));
}

TEST_F(Counters, WordsLongerThanNumbersAreHarmless) {
    const std::string word(60, '9');
    const std::string letters(200, 'x');
    for (const std::string &line : {word + " " + word + " 3 4 5 6 7 8 9 10", letters + " 2 3 4", std::string("x y z"),
                                    std::string(), std::string("1 2 3"), std::string(240, '1') + " 2"}) {
        write_file(TABLE, "eth0: " + line + "\n");
        kolt_if_stat stat;
        EXPECT_EQ(kolt_get_if_stat("eth0", &stat), 1) << line;
    }
}

TEST_F(Counters, CountersOfARealInterfaceAreTheKernels) {
    remove_file(TABLE);
    std::filesystem::create_symlink("/run/proc/self/net/dev", TABLE);
    const test_interface tap("kolt-counted");
    kolt_if_stat stat;
    EXPECT_EQ(kolt_get_if_stat("kolt-counted", &stat), 1);
    EXPECT_EQ(stat.rx_bytes, 0U) << "nothing was written to the tap";
    EXPECT_EQ(stat.rx_packets, 0U);
    EXPECT_EQ(kolt_get_if_stat("kolt-uncounted", &stat), 0);
}

} // namespace
