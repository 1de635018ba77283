// Owners of descriptors and of what C interfaces hand out.
#include "core/handle.h"

#include "support/sandbox.h"

#include <gtest/gtest.h>

#include <fcntl.h>

namespace {

int open_null() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool is_open(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

int released;
int release_int(const int *value) {
    released = *value;
    return -1;
}

} // namespace

TEST(UniqueFd, OwnedDescriptorIsClosed) {
    const size_t before = open_descriptors();
    {
        const unique_fd fd(open_null());
        EXPECT_TRUE(fd);
        EXPECT_EQ(open_descriptors(), before + 1);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(UniqueFd, MinusOneIsNoDescriptor) {
    const unique_fd none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none.get(), -1);
}

TEST(UniqueFd, MovingHandsTheDescriptorOver) {
    unique_fd first(open_null());
    const int fd = first.get();
    const unique_fd second(std::move(first));
    EXPECT_EQ(second.get(), fd);
    EXPECT_TRUE(is_open(fd));
}

TEST(UniqueFd, AssigningClosesTheOldDescriptor) {
    unique_fd first(open_null());
    unique_fd second(open_null());
    const int old = first.get();
    const int kept = second.get();
    first = std::move(second);
    EXPECT_FALSE(is_open(old));
    EXPECT_EQ(first.get(), kept);
    EXPECT_TRUE(is_open(kept));
}

TEST(UniqueFd, ReleaseLeavesTheDescriptorOpen) {
    int fd = -1;
    {
        unique_fd owner(open_null());
        fd = owner.release();
        EXPECT_FALSE(owner);
    }
    EXPECT_TRUE(is_open(fd));
    close(fd);
}

TEST(UniqueFd, ResetReplacesTheDescriptor) {
    unique_fd owner(open_null());
    const int old = owner.get();
    const int next = open_null();
    owner.reset(next);
    EXPECT_FALSE(is_open(old));
    EXPECT_EQ(owner.get(), next);
    owner.reset();
    EXPECT_FALSE(is_open(next));
}

TEST(Handle, HandleReleasesAtItsEndAndIgnoresTheResult) {
    const int value = 42;
    released = 0;
    {
        const kolt_handle<const int, release_int> handle(&value);
        EXPECT_EQ(released, 0);
    }
    EXPECT_EQ(released, 42);
}

TEST(Handle, NullIsNotReleased) {
    released = 0;
    { const kolt_handle<const int, release_int> handle(nullptr); }
    EXPECT_EQ(released, 0);
}
