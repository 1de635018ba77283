// Which lines are written at which level, and in what form.
#include "core/log.h"

#include "fatal.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

void log_at_every_level() {
    KOLT_ERROR("failed");
    KOLT_INFO("told");
    KOLT_DEBUG("traced");
    KOLT_DUMP("dumped");
}

void end_fatally(int number) {
    KOLT_FATAL("number %d of %s", number, "many");
}

void end_with_errno(int error) {
    errno = error;
    KOLT_FATAL_ERRNO_AS("some_operation", "socket");
}

struct gate {
    const char *name;
    int level;
    std::vector<std::string> written;
};

class LogGate : public testing::TestWithParam<gate> {};

// Whether the macros stand as one statement each.
void log_one_of_two(bool first) {
    if (first)
        KOLT_INFO("first");
    else
        KOLT_DEBUG("second");
}

} // namespace

TEST(Log, LevelStartsAtOne) {
    EXPECT_EQ(log_level, 1);
}

TEST_P(LogGate, LevelGatesWhatIsWritten) {
    clear_log();
    const at_log_level scope(GetParam().level);
    log_at_every_level();
    EXPECT_EQ(logged_texts("log_at_every_level"), GetParam().written);
}

INSTANTIATE_TEST_SUITE_P(
    Levels, LogGate,
    testing::Values(gate{"Negative", -1, {"Error: failed", "Info: told"}}, gate{"Zero", 0, {"Error: failed"}},
                    gate{"One", 1, {"Error: failed", "Info: told"}},
                    gate{"Two", 2, {"Error: failed", "Info: told", "Debug: traced"}},
                    gate{"Three", 3, {"Error: failed", "Info: told", "Debug: traced", "Dump: dumped"}},
                    gate{"Four", 4, {"Error: failed", "Info: told", "Debug: traced", "Dump: dumped"}}),
    [](const auto &row) { return row.param.name; });

TEST(Log, EachLevelHasItsPriorityAndNamesTheFunction) {
    clear_log();
    const at_log_level scope(3);
    log_at_every_level();
    EXPECT_THAT(logged(), testing::ElementsAre(log_line{3, "log_at_every_level", "Error: failed"},
                                               log_line{6, "log_at_every_level", "Info: told"},
                                               log_line{7, "log_at_every_level", "Debug: traced"},
                                               log_line{7, "log_at_every_level", "Dump: dumped"}));
}

TEST(Log, NamedOperationReplacesTheFunction) {
    clear_log();
    const at_log_level scope(3);
    KOLT_ERROR_AS("operation", "a %d", 1);
    KOLT_INFO_AS("operation", "b %s", "two");
    KOLT_DEBUG_AS("operation", "c");
    KOLT_DUMP_AS("operation", "d %u%%", 4U);
    EXPECT_THAT(logged(),
                testing::ElementsAre(log_line{3, "operation", "Error: a 1"}, log_line{6, "operation", "Info: b two"},
                                     log_line{7, "operation", "Debug: c"}, log_line{7, "operation", "Dump: d 4%"}));
}

TEST(Log, LineNumberIsThatOfTheStatement) {
    testing::internal::CaptureStderr();
    const int line = __LINE__ + 1;
    KOLT_ERROR("here");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "TestBody:" + std::to_string(line) + ": Error: here\n");
}

TEST(Log, MacrosAreOneStatementEach) {
    clear_log();
    const at_log_level scope(2);
    log_one_of_two(true);
    log_one_of_two(false);
    EXPECT_THAT(logged_texts(), testing::ElementsAre("Info: first", "Debug: second"));
}

TEST(LogDeathTest, FatalEndsTheProcessWithStatusOne) {
    EXPECT_FATAL(end_fatally(7), "end_fatally", "Fatal: number 7 of many");
}

TEST(LogDeathTest, FatalIsWrittenAtLevelZero) {
    const at_log_level scope(0);
    EXPECT_FATAL(end_fatally(8), "end_fatally", "Fatal: number 8 of many");
}

TEST(LogDeathTest, FatalSystemCallHasTheErrorInParentheses) {
    EXPECT_FATAL(end_with_errno(ENOENT), "some_operation", "Fatal(No such file or directory): socket");
    EXPECT_FATAL(end_with_errno(EACCES), "some_operation", "Fatal(Permission denied): socket");
}

// The priority does not show in the text: it is reported as the process ends.
TEST(LogDeathTest, FatalHasTheHighestPriority) {
    const auto report = [] {
        clear_log();
        atexit([] { fprintf(stderr, "priority %d\n", logged().back().priority); });
        end_fatally(9);
    };
    EXPECT_EXIT(report(), testing::ExitedWithCode(1), "end_fatally:[0-9]+: Fatal: number 9 of many\npriority 0\n$");
}
