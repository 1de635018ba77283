// A file that somebody writes to, cuts or replaces between its opening and the end of its reading.
#include "probe_test.h"

#include "core/json_file.h"
#include "probes/node_state.h"

#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <syslog.h>
#include <thread>
#include <unistd.h>

namespace {

using testing::AnyOf;
using testing::Each;
using testing::Eq;

constexpr char TEXT[] = R"({"work_mode": "RE"})";

class ChangingFile : public probe {
protected:
    ChangingFile() {
        write_file(WORK_MODE, TEXT);
        opened_ = kolt_open_state_file(WORK_MODE);
    }
    ~ChangingFile() override {
        remove_file(WORK_MODE);
    }
    std::string rest() const {
        char bytes[100];
        const ssize_t got = kolt_read_up_to(opened_.get(), bytes, sizeof bytes);
        return got < 0 ? "failed" : std::string(bytes, static_cast<size_t>(got));
    }
    unique_fd opened_;
};

TEST_F(ChangingFile, CutToNothingAfterItsOpeningHasNothing) {
    ASSERT_EQ(truncate(WORK_MODE, 0), 0);
    EXPECT_EQ(rest(), "");
}

TEST_F(ChangingFile, CutShortAfterItsOpeningHasWhatIsLeft) {
    ASSERT_EQ(truncate(WORK_MODE, 5), 0);
    EXPECT_EQ(rest(), R"({"wor)");
}

TEST_F(ChangingFile, ReplacedAfterItsOpeningIsStillTheOldOne) {
    write_file("/tmp/next", "{}");
    ASSERT_EQ(rename("/tmp/next", WORK_MODE), 0);
    EXPECT_EQ(rest(), TEXT);
}

TEST_F(ChangingFile, RemovedAfterItsOpeningIsStillThere) {
    remove_file(WORK_MODE);
    EXPECT_EQ(rest(), TEXT);
}

// As fast as it can: cut, written anew in two pieces, grown over what is read of a file, and replaced.
void change(const std::atomic<bool> *ended) {
    const std::string too_long(KOLT_STATE_FILE_LIMIT, ' ');
    while (!*ended) {
        const unique_fd file(open(WORK_MODE, O_WRONLY | O_TRUNC | O_CLOEXEC));
        ASSERT_EQ(write(file.get(), TEXT, 9), 9);
        ASSERT_EQ(write(file.get(), TEXT + 9, sizeof TEXT - 10), static_cast<ssize_t>(sizeof TEXT - 10));
        ASSERT_EQ(write(file.get(), too_long.data(), too_long.size()), static_cast<ssize_t>(too_long.size()));
        ASSERT_EQ(ftruncate(file.get(), sizeof TEXT - 1), 0);
        write_file("/tmp/next", TEXT);
        ASSERT_EQ(rename("/tmp/next", WORK_MODE), 0);
    }
}

TEST_F(ChangingFile, IsReadWholeOrIsNoneThatParses) {
    std::atomic<bool> ended = false;
    std::thread writer(change, &ended);
    int whole = 0;
    for (int i = 0; i < 2000; i++) {
        const kolt_work_mode mode = kolt_get_work_mode();
        EXPECT_THAT(mode, AnyOf(Eq(KOLT_MODE_RE), Eq(KOLT_MODE_UNKNOWN)));
        whole += mode == KOLT_MODE_RE ? 1 : 0;
    }
    ended = true;
    writer.join();
    EXPECT_EQ(logged().size(), 2000U - static_cast<size_t>(whole));
    EXPECT_THAT(logged(), Each(Eq(log_line{LOG_ERR, "kolt_get_work_mode", "Error: parse work_mode"})));
    EXPECT_EQ(kolt_get_work_mode(), KOLT_MODE_RE) << "the last one is whole";
}

} // namespace
