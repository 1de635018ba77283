// The word of a port and the record that it stands for.
#include <gtest/gtest.h>

#include "kernel/programs.h"

TEST(PortWords, KeepEveryField) {
    const kolt_port port{.group = 0xabcd, .flags = 0x5, .admits = 0x2, .accepts = 0x1, .class_ = 1};
    EXPECT_EQ(0x1125abcdU, kolt_port_word(port));
    EXPECT_EQ(port, kolt_port_of_word(0x1125abcdU));
}

TEST(PortWords, AreZeroForAnAccessPort) {
    EXPECT_EQ(0U, kolt_port_word({}));
    EXPECT_EQ(kolt_port{}, kolt_port_of_word(0));
}

TEST(PortWords, LeaveNeighbouringFieldsAloneWhenOneIsTooLarge) {
    const kolt_port port{.group = 0, .flags = 0xf0, .admits = 0xf0, .accepts = 0xf0, .class_ = 4};
    EXPECT_EQ(0U, kolt_port_word(port));
}
