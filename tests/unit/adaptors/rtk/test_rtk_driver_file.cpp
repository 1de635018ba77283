// Opening the driver's files, and that no interface name reaches the shell as a command.
#include "adaptors/rtk/driver_files.h"
#include "adaptors/rtk/rtk_driver_file.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

std::vector<std::string> started_commands;

// The linker leads every popen of the test program here.
extern "C" {
FILE *__real_popen(const char *command, const char *mode);
FILE *__wrap_popen(const char *command, const char *mode);

FILE *__wrap_popen(const char *command, const char *mode) {
    started_commands.push_back(command);
    return __real_popen(command, mode);
}
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DriverFile : public DriverFiles {
protected:
    static std::string first_line(rtk_driver_file file) {
        char line[RTK_LINE_SIZE];
        const char *text = file.lines ? rtk_next_line(&file, line) : nullptr;
        return text != nullptr ? text : "";
    }
};

TEST_F(DriverFile, OnlyThe24GhzRadioReadsTheDirectoryDirectlyUnderProc) {
    write_file("/proc/wlan0/stats", "old driver");
    write_file("/proc/net/rtk_wifi6/wlan0/stats", "Wi-Fi 6 driver");
    EXPECT_EQ(first_line(rtk_open_driver_file("wlan0", KOLT_LINK_2G, "stats")), "old driver");
    for (const kolt_link_type type : {KOLT_LINK_ETHERNET, KOLT_LINK_PLC, KOLT_LINK_5G, KOLT_LINK_5G_2, KOLT_LINK_NONE,
                                      static_cast<kolt_link_type>(0xFFFFFFFF)})
        EXPECT_EQ(first_line(rtk_open_driver_file("wlan0", type, "stats")), "Wi-Fi 6 driver") << type;
}

TEST_F(DriverFile, DriverFileIsReadThroughCat) {
    (void)rtk_open_driver_file("wlan0", KOLT_LINK_2G, "sta_info");
    (void)rtk_open_driver_file("wlan0-vxd.1", KOLT_LINK_5G, "stats");
    EXPECT_THAT(started_commands, ElementsAre("cat /proc/wlan0/sta_info", "cat /proc/net/rtk_wifi6/wlan0-vxd.1/stats"));
    EXPECT_STREQ(rtk_open_driver_file("wlan0", KOLT_LINK_5G_2, "sta_info").command,
                 "cat /proc/net/rtk_wifi6/wlan0/sta_info");
}

TEST_F(DriverFile, PipeIsNotHandedToOtherChildren) {
    const rtk_driver_file file = rtk_open_driver_file("wlan0", KOLT_LINK_2G, "stats");
    ASSERT_TRUE(file.lines);
    EXPECT_NE(fcntl(fileno(file.lines.get()), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(DriverFile, DriverFileIsNullWhenThePipeCannotBeStarted) {
    const no_descriptors none;
    const rtk_driver_file file = rtk_open_driver_file("wlan0", KOLT_LINK_2G, "stats");
    EXPECT_FALSE(file.lines);
    EXPECT_STREQ(file.command, "cat /proc/wlan0/stats");
}

TEST_F(DriverFile, ReadingLeavesNoDescriptorAndNoChildBehind) {
    write_file("/proc/wlan0/stats", std::string(100000, 'x')); // more than a pipe holds
    const size_t before = open_descriptors();
    {
        const rtk_driver_file file = rtk_open_driver_file("wlan0", KOLT_LINK_2G, "stats");
        EXPECT_EQ(open_descriptors(), before + 1);
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(DriverFile, NameOfSixteenCharactersEndsWithItsField) {
    const char field[] = {'w', 'l', 'a', 'n', '-', 'o', 'f', '-', '1', '6', '-', 'c', 'h', 'a', 'r', 's', 'X', 'Y', 0};
    write_file("/proc/wlan-of-16-chars/stats", "all of it");
    EXPECT_EQ(first_line(rtk_open_driver_file(field, KOLT_LINK_2G, "stats")), "all of it");
    EXPECT_THAT(started_commands, ElementsAre("cat /proc/wlan-of-16-chars/stats"));
    remove_file("/proc/wlan-of-16-chars");
}

TEST_F(DriverFile, EveryHarmlessCharacterOfANameIsItself) {
    for (const char *name : {"a_b-c.d", "a:b@c", "a+b=c", "100%d%s%n", "a,b", "AZ.09", "-rf", "..x", "a/b"}) {
        write_file(std::string("/proc/") + name + "/stats", name);
        EXPECT_EQ(first_line(rtk_open_driver_file(name, KOLT_LINK_2G, "stats")), name);
        remove_file(std::string("/proc/") + name);
    }
}

struct refused_name {
    const char *name;
    char character;
};

void PrintTo(const refused_name &row, std::ostream *out) {
    *out << row.name;
}

class NameWithShellSyntax : public DriverFiles, public testing::WithParamInterface<refused_name> {
protected:
    [[nodiscard]] static std::string ifname() {
        return std::string("a") + GetParam().character + "b";
    }
};
INSTANTIATE_TEST_SUITE_P(Characters, NameWithShellSyntax,
                         testing::Values(refused_name{"Semicolon", ';'}, refused_name{"Ampersand", '&'},
                                         refused_name{"Pipe", '|'}, refused_name{"Backquote", '`'},
                                         refused_name{"Dollar", '$'}, refused_name{"OpeningBracket", '('},
                                         refused_name{"ClosingBracket", ')'}, refused_name{"Less", '<'},
                                         refused_name{"Greater", '>'}, refused_name{"SingleQuote", '\''},
                                         refused_name{"DoubleQuote", '"'}, refused_name{"Backslash", '\\'},
                                         refused_name{"Star", '*'}, refused_name{"QuestionMark", '?'},
                                         refused_name{"SquareBracket", '['}, refused_name{"Blank", ' '},
                                         refused_name{"Tab", '\t'}, refused_name{"LineFeed", '\n'}),
                         row_name);

TEST_P(NameWithShellSyntax, NameWithShellSyntaxStartsNoPipe) {
    const rtk_driver_file file = rtk_open_driver_file(ifname().c_str(), KOLT_LINK_2G, "stats");
    EXPECT_FALSE(file.lines);
    EXPECT_EQ(file.command, "cat /proc/" + ifname() + "/stats");
    EXPECT_THAT(started_commands, IsEmpty());
}

TEST_P(NameWithShellSyntax, NameWithShellSyntaxGivesNoStationAfterAMessage) {
    wlan_link links[WLAN_MAX_LINKS];
    EXPECT_EQ(wlan_get_links_rtk(ifname().c_str(), links, KOLT_LINK_5G), 0);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "wlan_get_links_rtk",
                                               "Error: popen cmd cat /proc/net/rtk_wifi6/" + ifname() + "/sta_info"}));
    EXPECT_THAT(started_commands, IsEmpty());
}

TEST_P(NameWithShellSyntax, NameWithShellSyntaxGivesNoUtilisationAfterAMessage) {
    uint8_t utilization = 33;
    EXPECT_EQ(wlan_get_channel_utilization_rtk(ifname().c_str(), &utilization, KOLT_LINK_2G, 1), 0);
    EXPECT_EQ(utilization, 33);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "wlan_get_channel_utilization_rtk",
                                               "Error: popen cmd cat /proc/" + ifname() + "/stats"}));
    EXPECT_THAT(started_commands, IsEmpty());
}

// The kernel lets interfaces have such names, so this is what an attacker's name would look like.
TEST_F(DriverFile, NameThatWouldRunACommandRunsNone) {
    remove_file("/tmp/x");
    for (const char *name : {";>/tmp/x;", "$(>/tmp/x)", "`>/tmp/x`", "\n>/tmp/x\n", "&>/tmp/x", "||>/tmp/x"}) {
        uint8_t utilization = 0;
        EXPECT_EQ(wlan_get_channel_utilization_rtk(name, &utilization, KOLT_LINK_2G, 1), 0) << name;
    }
    EXPECT_FALSE(std::filesystem::exists("/tmp/x"));
    EXPECT_THAT(started_commands, IsEmpty());
}

// Announces a million stations, and behind so many bytes a station.
std::string table_with_a_station_behind(size_t size) {
    const std::string head = header("1000000");
    return head + std::string(size - head.size() - 1, 'x') + "\n" + station_block{}.text();
}

TEST_F(DriverFile, FileThatNeverEndsIsReadToItsLimit) {
    for (const char *file : {"stats", "sta_info"}) {
        write_file(std::string("/proc/wlan0/") + file, "");
        remove_file(std::string("/proc/wlan0/") + file);
        ASSERT_EQ(symlink("/dev/zero", (std::string("/proc/wlan0/") + file).c_str()), 0);
    }
    uint8_t utilization = 33;
    EXPECT_EQ(wlan_get_channel_utilization_rtk("wlan0", &utilization, KOLT_LINK_2G, 1), 1);
    EXPECT_EQ(utilization, 33);
    EXPECT_THAT(read_stations(), IsEmpty());
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "the reader was left behind";
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(DriverFile, OnlyWhatComesBeforeTheLimitCounts) {
    const size_t block = station_block{}.text().size();
    write_stations(table_with_a_station_behind(RTK_FILE_LIMIT - block));
    EXPECT_THAT(read_stations(), ElementsAre(ONE_STATION));
    write_stations(table_with_a_station_behind(RTK_FILE_LIMIT - block + 10)); // the last line ends in "rssi:"
    EXPECT_THAT(read_stations(), IsEmpty());
}

// A stop signal, say, while the driver takes its time.
TEST_F(DriverFile, SignalsDuringAReadLoseNothing) {
    static int signals;
    signals = 0;
    struct sigaction counting {};
    counting.sa_handler = [](int) { signals++; };
    sigaction(SIGALRM, &counting, nullptr); // without SA_RESTART
    const itimerval often{.it_interval = {.tv_sec = 0, .tv_usec = 5000}, .it_value = {.tv_sec = 0, .tv_usec = 5000}};
    write_file("/proc/wlan0/sta_info", "");
    remove_file("/proc/wlan0/sta_info");
    ASSERT_EQ(mkfifo("/proc/wlan0/sta_info", 0600), 0);
    const pid_t driver = fork();
    if (driver == 0) {
        std::ofstream file("/proc/wlan0/sta_info");
        for (const char letter : header("1") + station_block{}.text()) {
            file << letter << std::flush;
            usleep(2000);
        }
        file.close();
        _exit(0);
    }
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_THAT(read_stations(), ElementsAre(ONE_STATION));
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_GT(signals, 5);
    EXPECT_EQ(waitpid(driver, nullptr, 0), driver);
}

class NextLine : public DriverFiles {
protected:
    // The lines of a file as rtk_next_line tells them.
    static std::vector<std::string> lines_of(const std::string &text) {
        write_stats(text);
        rtk_driver_file file = rtk_open_driver_file("wlan0", KOLT_LINK_2G, "stats");
        std::vector<std::string> lines;
        char line[RTK_LINE_SIZE];
        while (const char *at = rtk_next_line(&file, line))
            lines.emplace_back(at);
        return lines;
    }
};

TEST_F(NextLine, LeadingBlanksAndTabsOnlyAreSkipped) {
    EXPECT_THAT(lines_of(" \t \tkey: 1\nkey: 2\n\rkey: 3\n   \t"),
                ElementsAre("key: 1\n", "key: 2\n", "\rkey: 3\n", ""));
}

TEST_F(NextLine, LongLineIsReadA255CharacterPieceAtATime) {
    const std::string line254(254, 'a');
    const std::string line255(255, 'b');
    const std::string line256(256, 'c');
    EXPECT_THAT(lines_of(line254 + "\n" + line255 + "\n" + line256 + "\n"),
                ElementsAre(line254 + "\n", line255, "\n", std::string(255, 'c'), "c\n"));
}

TEST_F(NextLine, LimitEndsAFileInTheMiddleOfALine) {
    const std::vector<std::string> lines = lines_of(std::string(RTK_FILE_LIMIT + 1000, 'a'));
    size_t sum = 0;
    for (const std::string &line : lines)
        sum += line.size();
    EXPECT_EQ(sum, RTK_FILE_LIMIT);
    EXPECT_EQ(lines.back().size(), RTK_FILE_LIMIT % 255);
}

} // namespace
