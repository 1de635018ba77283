// The event loop's descriptors.
#include "support.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// A watcher that counts its calls and ends the loop.
struct Watcher {
    uloop_fd fd = {};
    int calls = 0;
    unsigned events = 0;
    std::function<void()> then = [] { uloop_end(); };

    explicit Watcher(int number) {
        fd.fd = number;
        fd.cb = [](uloop_fd *self, unsigned ready) {
            auto *watcher = reinterpret_cast<Watcher *>(self);
            watcher->calls++;
            watcher->events = ready;
            watcher->then();
        };
    }
};

class Uloop : public LoopTest {
protected:
    Uloop() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        here = Fd(ends[0]);
        there = Fd(ends[1]);
    }
    static bool non_blocking(int fd) {
        return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0;
    }
    Fd here;
    Fd there;
};

TEST_F(Uloop, FlagsHaveTheirValues) {
    EXPECT_EQ(ULOOP_READ, 1);
    EXPECT_EQ(ULOOP_WRITE, 2);
    EXPECT_EQ(ULOOP_EDGE_TRIGGER, 4);
    EXPECT_EQ(ULOOP_BLOCKING, 8);
}

TEST_F(Uloop, InitMayBeCalledAgainWhileTheLoopExists) {
    Watcher watcher(here.get());
    ASSERT_EQ(uloop_fd_add(&watcher.fd, ULOOP_READ), 0);
    EXPECT_EQ(uloop_init(), 0);
    ASSERT_TRUE(send_bytes(there.get(), "x"));
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(watcher.calls, 1);
}

TEST_F(Uloop, InitMayBeCalledAgainAfterDone) {
    uloop_done();
    EXPECT_EQ(uloop_init(), 0);
    Watcher watcher(here.get());
    ASSERT_EQ(uloop_fd_add(&watcher.fd, ULOOP_READ), 0);
    ASSERT_TRUE(send_bytes(there.get(), "x"));
    EXPECT_EQ(uloop_run(), 0);
}

TEST_F(Uloop, DoneTwiceIsHarmless) {
    uloop_done();
    uloop_done();
}

TEST_F(Uloop, AddMakesTheDescriptorNonBlocking) {
    Watcher watcher(here.get());
    EXPECT_EQ(uloop_fd_add(&watcher.fd, ULOOP_READ), 0);
    EXPECT_TRUE(non_blocking(here.get()));
    EXPECT_TRUE(watcher.fd.registered);
    EXPECT_EQ(watcher.fd.flags, ULOOP_READ);
}

TEST_F(Uloop, AddLeavesTheDescriptorAloneWithBlocking) {
    Watcher watcher(here.get());
    EXPECT_EQ(uloop_fd_add(&watcher.fd, ULOOP_READ | ULOOP_BLOCKING), 0);
    EXPECT_FALSE(non_blocking(here.get()));
}

TEST_F(Uloop, AddOfAWatchedDescriptorOnlyChangesWhatItIsWatchedFor) {
    Watcher watcher(here.get());
    ASSERT_EQ(uloop_fd_add(&watcher.fd, ULOOP_READ | ULOOP_BLOCKING), 0);
    ASSERT_EQ(uloop_fd_add(&watcher.fd, ULOOP_WRITE), 0);
    EXPECT_FALSE(non_blocking(here.get()));
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(watcher.events, static_cast<unsigned>(ULOOP_WRITE));
}

TEST_F(Uloop, AddForNeitherDirectionRemoves) {
    Watcher watcher(here.get());
    ASSERT_EQ(uloop_fd_add(&watcher.fd, ULOOP_READ), 0);
    EXPECT_EQ(uloop_fd_add(&watcher.fd, 0), 0);
    EXPECT_FALSE(watcher.fd.registered);
}

TEST_F(Uloop, AddOfADescriptorThatIsNoneFails) {
    for (const int flags : {ULOOP_READ, ULOOP_READ | ULOOP_BLOCKING}) {
        Watcher watcher(-1);
        EXPECT_LT(uloop_fd_add(&watcher.fd, static_cast<unsigned>(flags)), 0);
        EXPECT_FALSE(watcher.fd.registered);
    }
}

TEST_F(Uloop, AddOfARegularFileFails) {
    TempDir dir;
    dir.write("file", "x");
    const Fd file(open(dir.path("file").c_str(), O_RDONLY | O_CLOEXEC));
    Watcher watcher(file.get());
    EXPECT_LT(uloop_fd_add(&watcher.fd, ULOOP_READ), 0);
}

TEST_F(Uloop, AddWithoutALoopFails) {
    uloop_done();
    Watcher watcher(here.get());
    EXPECT_LT(uloop_fd_add(&watcher.fd, ULOOP_READ), 0);
}

TEST_F(Uloop, DeleteOfAnUnregisteredWatcherReturnsZero) {
    Watcher watcher(here.get());
    EXPECT_EQ(uloop_fd_delete(&watcher.fd), 0);
    Watcher none(-1);
    EXPECT_EQ(uloop_fd_delete(&none.fd), 0);
}

TEST_F(Uloop, DeletedWatcherIsNotCalled) {
    Watcher watcher(here.get());
    ASSERT_EQ(uloop_fd_add(&watcher.fd, ULOOP_READ), 0);
    EXPECT_EQ(uloop_fd_delete(&watcher.fd), 0);
    EXPECT_FALSE(watcher.fd.registered);
    ASSERT_TRUE(send_bytes(there.get(), "x"));
    EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_EQ(watcher.calls, 0);
}

TEST_F(Uloop, CallbackMayDeleteAnotherWatcherThatIsReadyToo) {
    ASSERT_TRUE(send_bytes(there.get(), "x"));
    ASSERT_TRUE(send_bytes(here.get(), "x"));
    Watcher one(here.get());
    Watcher two(there.get());
    one.then = [&] { uloop_fd_delete(&two.fd), uloop_end(); };
    two.then = [&] { uloop_fd_delete(&one.fd), uloop_end(); };
    ASSERT_EQ(uloop_fd_add(&one.fd, ULOOP_READ), 0);
    ASSERT_EQ(uloop_fd_add(&two.fd, ULOOP_READ), 0);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(uloop_run_timeout(0), 0);
    const auto [deleted, kept] = one.fd.registered ? std::pair(&two, &one) : std::pair(&one, &two);
    EXPECT_EQ(deleted->calls, 0);
    EXPECT_GE(kept->calls, 1);
}

TEST_F(Uloop, ReadyWatchersAllGetTheirTurn) {
    ASSERT_TRUE(send_bytes(there.get(), "x"));
    ASSERT_TRUE(send_bytes(here.get(), "x"));
    Watcher one(here.get());
    Watcher two(there.get());
    int calls = 0;
    one.then = two.then = [&] {
        if (++calls == 10)
            uloop_end();
    };
    ASSERT_EQ(uloop_fd_add(&one.fd, ULOOP_READ), 0);
    ASSERT_EQ(uloop_fd_add(&two.fd, ULOOP_READ), 0);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_GE(one.calls, 4);
    EXPECT_GE(two.calls, 4);
}

TEST_F(Uloop, EdgeTriggerReportsTheSameBytesOnce) {
    Watcher watcher(here.get());
    watcher.then = [] {};
    ASSERT_EQ(uloop_fd_add(&watcher.fd, ULOOP_READ | ULOOP_EDGE_TRIGGER), 0);
    ASSERT_TRUE(send_bytes(there.get(), "x"));
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_EQ(watcher.calls, 1);
}

TEST_F(Uloop, EndOfThePeerSetsEof) {
    Watcher watcher(here.get());
    ASSERT_EQ(uloop_fd_add(&watcher.fd, ULOOP_READ), 0);
    EXPECT_FALSE(watcher.fd.eof);
    ASSERT_EQ(shutdown(there.get(), SHUT_WR), 0);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_TRUE(watcher.fd.eof);
    EXPECT_FALSE(watcher.fd.error);
    EXPECT_TRUE(watcher.fd.registered);
}

TEST_F(Uloop, HungUpDescriptorIsTakenOutBeforeItsOnlyCall) {
    Watcher watcher(here.get());
    watcher.then = [&] { EXPECT_FALSE(watcher.fd.registered); };
    ASSERT_EQ(uloop_fd_add(&watcher.fd, ULOOP_READ), 0);
    there = Fd();
    for (int i = 0; i < 5; i++)
        EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_TRUE(watcher.fd.error);
    EXPECT_TRUE(watcher.fd.eof);
    EXPECT_EQ(watcher.events, static_cast<unsigned>(ULOOP_READ));
    EXPECT_EQ(watcher.calls, 1);
}

TEST_F(Uloop, FailedDescriptorIsTakenOutAndMayBeAddedAgain) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const Fd write_end(ends[1]);
    ASSERT_EQ(close(ends[0]), 0); // nobody reads: an error of the pipe, without a hang-up
    Watcher watcher(write_end.get());
    watcher.then = [] {};
    for (int calls = 1; calls <= 2; calls++) {
        ASSERT_EQ(uloop_fd_add(&watcher.fd, ULOOP_WRITE), 0);
        EXPECT_FALSE(watcher.fd.error);
        for (int i = 0; i < 3; i++)
            EXPECT_EQ(uloop_run_timeout(0), 0);
        EXPECT_TRUE(watcher.fd.error);
        EXPECT_FALSE(watcher.fd.registered);
        EXPECT_EQ(watcher.calls, calls);
    }
}

TEST_F(Uloop, RunReturnsZeroAfterEnd) {
    Watcher watcher(here.get());
    ASSERT_EQ(uloop_fd_add(&watcher.fd, ULOOP_WRITE), 0);
    EXPECT_EQ(uloop_run(), 0);
}

TEST_F(Uloop, RunClearsTheEndThatCameBeforeIt) {
    Watcher watcher(here.get());
    ASSERT_EQ(uloop_fd_add(&watcher.fd, ULOOP_WRITE), 0);
    uloop_end();
    EXPECT_TRUE(uloop_cancelled);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(watcher.calls, 1);
}

TEST_F(Uloop, RunWithATimeoutMakesOnePass) {
    Watcher watcher(here.get());
    watcher.then = [] {};
    ASSERT_EQ(uloop_fd_add(&watcher.fd, ULOOP_WRITE), 0);
    EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_EQ(watcher.calls, 1);
    ASSERT_EQ(uloop_fd_delete(&watcher.fd), 0);
    EXPECT_EQ(uloop_run_timeout(1), 0);
}

TEST_F(Uloop, RunWithoutALoopReturnsAtOnce) {
    uloop_done();
    EXPECT_EQ(uloop_run(), 0);
}

} // namespace
