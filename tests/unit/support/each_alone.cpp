// A child of the program for each test: as fresh as a new process, and much sooner ready than one under a sanitizer.
#include "support/each_alone.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using moment = std::chrono::steady_clock::time_point;

constexpr const char *EACH_ALONE = "--each-alone="; // how many at a time
constexpr const char *AT_MOST = "--at-most=";       // seconds for each
constexpr long USUAL_SECONDS = 60;
constexpr int PASSED = 77; // not 0, with which a test can end before its end

struct running_test {
    std::string name;
    pid_t process;
    int ended; // can be read once the process has ended
    int output;
    moment start;
};

[[noreturn]] void fail(const char *step) {
    perror(step);
    exit(EXIT_FAILURE);
}

int must(int result, const char *step) {
    if (result < 0)
        fail(step);
    return result;
}

std::vector<std::string> all_tests() {
    std::vector<std::string> names;
    const testing::UnitTest &unit = *testing::UnitTest::GetInstance();
    for (int i = 0; i < unit.total_test_suite_count(); i++) {
        const testing::TestSuite &suite = *unit.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); j++)
            names.push_back(std::string(suite.name()) + "." + suite.GetTestInfo(j)->name());
    }
    return names;
}

// A group of its own, so that whatever the test started can be ended with it; nothing outlives who started it.
[[noreturn]] void run_here(const std::string &name, pid_t parent, int output, void (*prepare)()) {
    must(setpgid(0, 0), "setpgid");
    must(prctl(PR_SET_PDEATHSIG, SIGKILL), "prctl");
    if (getppid() != parent)
        _exit(EXIT_FAILURE);
    must(dup2(output, STDOUT_FILENO), "dup2");
    must(dup2(output, STDERR_FILENO), "dup2");
    must(static_cast<int>(syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0)), "close_range");
    testing::GTEST_FLAG(filter) = name;
    if (prepare != nullptr)
        prepare();
    const bool passed = RUN_ALL_TESTS() == EXIT_SUCCESS;
    exit(passed && testing::UnitTest::GetInstance()->successful_test_count() == 1 ? PASSED : EXIT_FAILURE);
}

running_test start(const std::string &name, void (*prepare)()) {
    running_test test{name, 0, -1, must(memfd_create("output", MFD_CLOEXEC), "memfd_create"), {}};
    const pid_t parent = getpid();
    fflush(stdout);
    test.start = std::chrono::steady_clock::now();
    test.process = must(fork(), "fork");
    if (test.process == 0)
        run_here(name, parent, test.output, prepare);
    test.ended = must(static_cast<int>(syscall(SYS_pidfd_open, test.process, 0)), "pidfd_open");
    return test;
}

// What went wrong, in ctest's words; empty when nothing did.
std::string verdict(int status, bool in_time) {
    if (!in_time)
        return "***Timeout";
    if (WIFSIGNALED(status))
        return std::string("***Exception: ") + strsignal(WTERMSIG(status));
    return WEXITSTATUS(status) == PASSED ? "" : "***Failed";
}

void show_output(const running_test &test) {
    char text[4096];
    ssize_t size = 0;
    must(static_cast<int>(lseek(test.output, 0, SEEK_SET)), "lseek");
    while ((size = read(test.output, text, sizeof text)) > 0)
        fwrite(text, 1, static_cast<size_t>(size), stdout);
    puts("");
}

class runner {
public:
    runner(const char *program, void (*prepare)(), std::chrono::seconds limit)
        : program_(program), prepare_(prepare), limit_(limit), waiting_(all_tests()) {
        count_ = waiting_.size();
        std::reverse(waiting_.begin(), waiting_.end());
    }

    int run(size_t jobs) {
        while (!waiting_.empty() || !running_.empty()) {
            while (!waiting_.empty() && running_.size() < jobs)
                start_next();
            wait_for_one();
        }
        printf("%zu%% tests passed, %zu tests failed out of %zu\n", count_ == 0 ? 0 : (count_ - failed_) * 100 / count_,
               failed_, count_);
        return count_ > 0 && failed_ == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }

private:
    void start_next() {
        running_.push_back(start(waiting_.back(), prepare_));
        waiting_.pop_back();
    }

    void wait_for_one() {
        std::vector<pollfd> polled;
        for (const running_test &test : running_)
            polled.push_back({test.ended, POLLIN, 0});
        const auto left = running_.front().start + limit_ - std::chrono::steady_clock::now();
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(left).count() + 1;
        const int ready = poll(polled.data(), polled.size(), static_cast<int>(std::max<int64_t>(ms, 0)));
        if (ready < 0 && errno != EINTR)
            fail("poll");
        if (ready == 0)
            return end(0, false);
        for (size_t i = polled.size(); i-- > 0;)
            if (polled[i].revents != 0)
                end(i, true);
    }

    void end(size_t place, bool in_time) {
        const running_test test = running_[place];
        running_.erase(running_.begin() + static_cast<std::ptrdiff_t>(place));
        (void)kill(-test.process, SIGKILL); // what it started
        (void)kill(test.process, SIGKILL);
        int status = 0;
        must(waitpid(test.process, &status, 0), "waitpid");
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - test.start;
        const std::string wrong = verdict(status, in_time);
        printf("%zu/%zu Test %s.%s %s %.2f sec\n", ++ended_, count_, program_, test.name.c_str(),
               wrong.empty() ? "Passed" : wrong.c_str(), took.count());
        if (!wrong.empty()) {
            failed_++;
            show_output(test);
        }
        close(test.ended);
        close(test.output);
    }

    const char *program_;
    void (*prepare_)();
    std::chrono::seconds limit_;
    std::vector<std::string> waiting_;
    std::vector<running_test> running_; // those started first, first
    size_t count_ = 0;
    size_t ended_ = 0;
    size_t failed_ = 0;
};

// The number behind an option; nothing when it is not given.
std::optional<long> number_of(const char *option, int argc, char **argv) {
    for (int i = 1; i < argc; i++)
        if (std::string_view(argv[i]).starts_with(option))
            return std::max(1L, strtol(argv[i] + strlen(option), nullptr, 10));
    return std::nullopt;
}

} // namespace

int run_tests(int argc, char **argv, void (*prepare)()) {
    if (const auto jobs = number_of(EACH_ALONE, argc, argv)) {
        const std::chrono::seconds limit{number_of(AT_MOST, argc, argv).value_or(USUAL_SECONDS)};
        return runner(program_invocation_short_name, prepare, limit).run(static_cast<size_t>(*jobs));
    }
    if (prepare != nullptr && !testing::GTEST_FLAG(list_tests))
        prepare();
    return RUN_ALL_TESTS();
}
