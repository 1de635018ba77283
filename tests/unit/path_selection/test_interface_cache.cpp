#include "path_selection/paths_test.h"

namespace {

class InterfaceCache : public Paths {};

TEST_F(InterfaceCache, AnswersAsTheKernelDoes) {
    const uint32_t index = add_interface("wlan0.1");
    EXPECT_STREQ(ps_interface_name(index), "wlan0.1");
    EXPECT_EQ(ps_interface_index("wlan0.1"), index);
    EXPECT_EQ(ps_interface_name(54321), nullptr);
    EXPECT_EQ(ps_interface_name(0), nullptr);
    EXPECT_EQ(ps_interface_index("wlan9.1"), 0U);
    EXPECT_EQ(ps_interface_index(""), 0U);
}

TEST_F(InterfaceCache, KeepsAnAnswerUntilItIsForgotten) {
    const uint32_t index = add_interface("wlan0.1");
    EXPECT_STREQ(ps_interface_name(index), "wlan0.1");
    EXPECT_EQ(ps_interface_index("wlan0.1"), index);
    drop_interface("wlan0.1");
    EXPECT_STREQ(ps_interface_name(index), "wlan0.1");
    EXPECT_EQ(ps_interface_index("wlan0.1"), index);
    ps_forget_interfaces();
    EXPECT_EQ(ps_interface_name(index), nullptr);
    EXPECT_EQ(ps_interface_index("wlan0.1"), 0U);
}

TEST_F(InterfaceCache, AsksAgainForWhatTheKernelDidNotKnow) {
    EXPECT_EQ(ps_interface_index("wlan0.1"), 0U);
    EXPECT_EQ(ps_interface_name(54321), nullptr);
    const uint32_t index = add_interface("wlan0.1");
    EXPECT_EQ(ps_interface_index("wlan0.1"), index);
    EXPECT_STREQ(ps_interface_name(index), "wlan0.1");
}

TEST_F(InterfaceCache, ReadsSixteenCharactersOfAField) {
    struct {
        char name[16];
        char behind[4];
    } field;
    memcpy(field.name, "abcdefghijklmnop", 16);
    memcpy(field.behind, "qrs", 4);
    EXPECT_EQ(ps_interface_index(field.name), 0U);
    EXPECT_EQ(ps_interface_index("abcdefghijklmnopqrs"), 0U) << "found again as the same 16 characters";
    const uint32_t index = add_interface("abcdefghijklmno");
    EXPECT_EQ(ps_interface_index("abcdefghijklmno"), index);
}

TEST_F(InterfaceCache, StaysRightWithMoreInterfacesThanItHasRoomFor) {
    const uint32_t lo = if_nametoindex("lo");
    ASSERT_EQ(ps_interface_index("lo"), lo);
    for (uint32_t i = 0; i < 400; i++) {
        EXPECT_EQ(ps_interface_index(("none" + std::to_string(i)).c_str()), 0U);
        EXPECT_EQ(ps_interface_name(50000 + i), nullptr);
    }
    const uint32_t first = add_interface("wlan0.1");
    const uint32_t second = add_interface("wlan1.1");
    for (int round = 0; round < 3; round++) {
        EXPECT_EQ(ps_interface_index("wlan0.1"), first);
        EXPECT_EQ(ps_interface_index("wlan1.1"), second);
        EXPECT_STREQ(ps_interface_name(first), "wlan0.1");
        EXPECT_STREQ(ps_interface_name(second), "wlan1.1");
        EXPECT_EQ(ps_interface_index("lo"), lo);
        EXPECT_EQ(ps_interface_name(50399), nullptr);
    }
}

} // namespace
