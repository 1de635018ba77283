// What is remembered of the kernel's interfaces.
#include "core/handle.h"
#include "path_selection/paths_test.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace {

class InterfaceCache : public Paths {};

TEST_F(InterfaceCache, CacheAnswersAsTheKernelDoes) {
    interface_cache cache;
    const uint32_t index = add_interface("wlan0.1");
    EXPECT_STREQ(cache.name_of(index), "wlan0.1");
    EXPECT_EQ(cache.index_of("wlan0.1"), index);
    EXPECT_EQ(cache.name_of(54321), nullptr);
    EXPECT_EQ(cache.name_of(0), nullptr);
    EXPECT_EQ(cache.index_of("wlan9.1"), 0U);
    EXPECT_EQ(cache.index_of(""), 0U);
}

TEST_F(InterfaceCache, AnswerIsKeptUntilItIsForgotten) {
    interface_cache cache;
    const uint32_t index = add_interface("wlan0.1");
    EXPECT_STREQ(cache.name_of(index), "wlan0.1");
    EXPECT_EQ(cache.index_of("wlan0.1"), index);
    drop_interface("wlan0.1");
    EXPECT_STREQ(cache.name_of(index), "wlan0.1");
    EXPECT_EQ(cache.index_of("wlan0.1"), index);
    cache.after_wait();
    EXPECT_EQ(cache.name_of(index), nullptr);
    EXPECT_EQ(cache.index_of("wlan0.1"), 0U);
}

TEST_F(InterfaceCache, WhatTheKernelDidNotKnowIsAskedForAgain) {
    interface_cache cache;
    EXPECT_EQ(cache.index_of("wlan0.1"), 0U);
    EXPECT_EQ(cache.name_of(54321), nullptr);
    const uint32_t index = add_interface("wlan0.1");
    EXPECT_EQ(cache.index_of("wlan0.1"), index);
    EXPECT_STREQ(cache.name_of(index), "wlan0.1");
}

TEST_F(InterfaceCache, SixteenCharactersOfAFieldAreRead) {
    interface_cache cache;
    struct {
        char name[16];
        char behind[4];
    } field;
    memcpy(field.name, "abcdefghijklmnop", 16);
    memcpy(field.behind, "qrs", 4);
    EXPECT_EQ(cache.index_of(field.name), 0U);
    EXPECT_EQ(cache.index_of("abcdefghijklmnopqrs"), 0U) << "found again as the same 16 characters";
    const uint32_t index = add_interface("abcdefghijklmno");
    EXPECT_EQ(cache.index_of("abcdefghijklmno"), index);
}

TEST_F(InterfaceCache, CacheStaysRightWithMoreInterfacesThanItHasRoomFor) {
    interface_cache cache;
    const uint32_t lo = if_nametoindex("lo");
    ASSERT_EQ(cache.index_of("lo"), lo);
    for (uint32_t i = 0; i < 400; i++) {
        EXPECT_EQ(cache.index_of(("none" + std::to_string(i)).c_str()), 0U);
        EXPECT_EQ(cache.name_of(50000 + i), nullptr);
    }
    const uint32_t first = add_interface("wlan0.1");
    const uint32_t second = add_interface("wlan1.1");
    for (int round = 0; round < 3; round++) {
        EXPECT_EQ(cache.index_of("wlan0.1"), first);
        EXPECT_EQ(cache.index_of("wlan1.1"), second);
        EXPECT_STREQ(cache.name_of(first), "wlan0.1");
        EXPECT_STREQ(cache.name_of(second), "wlan1.1");
        EXPECT_EQ(cache.index_of("lo"), lo);
        EXPECT_EQ(cache.name_of(50399), nullptr);
    }
}

// A socket to which the kernel's link notifications come, or, without the group, none of them.
class link_socket {
public:
    explicit link_socket(uint32_t groups) : fd_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {
        sockaddr_nl own{};
        own.nl_family = AF_NETLINK;
        own.nl_groups = groups;
        EXPECT_EQ(bind(fd_.get(), reinterpret_cast<const sockaddr *>(&own), sizeof own), 0);
    }
    [[nodiscard]] int fd() const {
        return fd_.get();
    }

private:
    unique_fd fd_;
};

TEST_F(InterfaceCache, AnswerOutlivesAWaitInWhichTheKernelToldOfNoChange) {
    const link_socket deaf(0);
    interface_cache cache(deaf.fd());
    const uint32_t index = add_interface("wlan0.1");
    EXPECT_STREQ(cache.name_of(index), "wlan0.1");
    drop_interface("wlan0.1"); // of which the socket is not told
    cache.after_wait();
    EXPECT_STREQ(cache.name_of(index), "wlan0.1");
}

TEST_F(InterfaceCache, AnswerEndsWithAWaitInWhichTheInterfaceWasDeleted) {
    const uint32_t index = add_interface("wlan0.1");
    const link_socket told(RTMGRP_LINK);
    interface_cache cache(told.fd());
    EXPECT_STREQ(cache.name_of(index), "wlan0.1");
    EXPECT_EQ(cache.index_of("wlan0.1"), index);
    drop_interface("wlan0.1");
    cache.after_wait();
    EXPECT_EQ(cache.name_of(index), nullptr);
    EXPECT_EQ(cache.index_of("wlan0.1"), 0U);
}

TEST_F(InterfaceCache, AnswerEndsWithAWaitInWhichTheInterfaceGotAnotherName) {
    test_interface interface("wlan0.1");
    const uint32_t index = interface.index();
    {
        const link_socket told(RTMGRP_LINK);
        interface_cache cache(told.fd());
        EXPECT_STREQ(cache.name_of(index), "wlan0.1");
        EXPECT_EQ(cache.index_of("wlan0.1"), index);
        interface.rename("wlan9.1");
        cache.after_wait();
        EXPECT_STREQ(cache.name_of(index), "wlan9.1");
        EXPECT_EQ(cache.index_of("wlan0.1"), 0U);
    }
}

TEST_F(InterfaceCache, NotificationIsLeftForWhoeverWatchesTheSocket) {
    const link_socket told(RTMGRP_LINK);
    interface_cache cache(told.fd());
    add_interface("wlan0.1");
    cache.after_wait();
    cache.after_wait();
    char message[4096];
    EXPECT_GT(recv(told.fd(), message, sizeof message, MSG_DONTWAIT), 0);
}

} // namespace
