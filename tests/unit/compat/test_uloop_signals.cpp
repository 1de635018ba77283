// The event loop's signals and children.
#include "support.h"

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class UloopSignals : public LoopTest {
protected:
    // Calls `step` once, from the loop.
    void in_loop(std::function<void()> step) {
        action = std::move(step);
        timer.cb = [](uloop_timeout *) { action(); };
        uloop_timeout_set(&timer, 0);
    }
    static void (*handler_of(int number))(int) {
        struct sigaction current = {};
        sigaction(number, nullptr, &current);
        return current.sa_handler;
    }
    uloop_timeout timer = {};
    static std::function<void()> action;
};

std::function<void()> UloopSignals::action;

TEST_F(UloopSignals, TermEndsTheLoopAndRunReturnsItsNumber) {
    in_loop([] { raise(SIGTERM); });
    EXPECT_EQ(uloop_run(), SIGTERM);
}

TEST_F(UloopSignals, IntEndsTheLoopAndRunReturnsItsNumber) {
    in_loop([] { raise(SIGINT); });
    EXPECT_EQ(uloop_run(), SIGINT);
}

TEST_F(UloopSignals, SignalFromOutsideWakesTheWaitingLoop) {
    pid_t child = 0;
    in_loop([&child] {
        child = fork();
        if (child == 0) {
            usleep(20000);
            kill(getppid(), SIGTERM);
            _exit(0);
        }
    });
    EXPECT_EQ(uloop_run(), SIGTERM);
    waitpid(child, nullptr, 0);
}

TEST_F(UloopSignals, NextRunStartsAfresh) {
    in_loop([] { raise(SIGTERM); });
    EXPECT_EQ(uloop_run(), SIGTERM);
    in_loop([] { uloop_end(); });
    EXPECT_EQ(uloop_run(), 0);
}

TEST_F(UloopSignals, HandlersAreInPlaceFromInitAndUndoneByDone) {
    EXPECT_NE(handler_of(SIGTERM), SIG_DFL);
    EXPECT_NE(handler_of(SIGINT), SIG_DFL);
    uloop_done();
    EXPECT_EQ(handler_of(SIGTERM), SIG_DFL);
    EXPECT_EQ(handler_of(SIGINT), SIG_DFL);
    EXPECT_EQ(handler_of(SIGCHLD), SIG_DFL);
}

TEST_F(UloopSignals, DoneGivesBackWhatWasInForceBefore) {
    uloop_done();
    const auto own = +[](int) {};
    signal(SIGTERM, own);
    ASSERT_EQ(uloop_init(), 0);
    EXPECT_NE(handler_of(SIGTERM), own);
    uloop_done();
    EXPECT_EQ(handler_of(SIGTERM), own);
    signal(SIGTERM, SIG_DFL);
}

TEST_F(UloopSignals, DoneLeavesAloneAHandlerThatCameLater) {
    const auto own = +[](int) {};
    signal(SIGTERM, own);
    uloop_done();
    EXPECT_EQ(handler_of(SIGTERM), own);
    signal(SIGTERM, SIG_DFL);
}

TEST_F(UloopSignals, ChildrenAreReapedFromTheLoop) {
    pid_t child = -1;
    in_loop([&] {
        child = fork();
        if (child == 0)
            _exit(7);
    });
    EXPECT_EQ(uloop_run_timeout(0), 0);
    ASSERT_GT(child, 0);
    EXPECT_TRUE(eventually([&] {
        EXPECT_EQ(uloop_run_timeout(0), 0);
        return kill(child, 0) != 0;
    }));
    EXPECT_EQ(waitpid(child, nullptr, WNOHANG), -1);
}

TEST_F(UloopSignals, ChildIsNotReapedBetweenItsEndAndTheNextTurnOfTheLoop) {
    const pid_t child = fork();
    if (child == 0)
        _exit(7);
    siginfo_t info = {};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 7);
    EXPECT_EQ(uloop_run_timeout(0), 0);
}

TEST_F(UloopSignals, CommandRunInACallbackKeepsItsStatusAndOutput) {
    int status = -1;
    std::string output;
    in_loop([&] {
        FILE *pipe = popen("echo out; exit 3", "r");
        char line[16] = {};
        while (fgets(line, sizeof(line), pipe))
            output += line;
        status = pclose(pipe);
        uloop_end();
    });
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(output, "out\n");
    EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST_F(UloopSignals, ManyChildrenAreAllReaped) {
    std::vector<pid_t> children;
    for (int i = 0; i < 20; i++) {
        const pid_t child = fork();
        if (child == 0)
            _exit(0);
        children.push_back(child);
    }
    EXPECT_TRUE(eventually([&] {
        EXPECT_EQ(uloop_run_timeout(0), 0);
        for (const pid_t child : children) {
            if (kill(child, 0) == 0)
                return false;
        }
        return true;
    }));
}

} // namespace
