// The ports' words and the HD table as the process sees them.
#include "linux/support/data_plane.h"

#include <gmock/gmock.h>

#include <vector>

namespace {

using hd_test = data_plane_test;

mac_address client(uint8_t number) {
    return {0x02, 0, 0, 0, 1, number};
}

TEST_F(hd_test, HasWhatWasSetUntilItIsRemoved) {
    EXPECT_EQ(0U, programs_.hd_find(client(1).data()));
    EXPECT_TRUE(programs_.hd_set(client(1).data(), one_));
    EXPECT_EQ(one_, programs_.hd_find(client(1).data()));
    EXPECT_TRUE(programs_.hd_set(client(1).data(), two_));
    EXPECT_EQ(two_, programs_.hd_find(client(1).data()));
    EXPECT_TRUE(programs_.hd_remove(client(1).data()));
    EXPECT_FALSE(programs_.hd_remove(client(1).data()));
    EXPECT_EQ(0U, programs_.hd_find(client(1).data()));
}

TEST_F(hd_test, ReadsAsManyEntriesAsFitAndTellsHowManyThereAre) {
    for (uint8_t number = 1; number <= 5; number++)
        ASSERT_TRUE(programs_.hd_set(client(number).data(), number));
    std::vector<kolt_hd_entry> entries(3);
    EXPECT_EQ(5U, programs_.hd_read(entries));
    entries.resize(8);
    EXPECT_EQ(5U, programs_.hd_read(entries));
    uint32_t sum = 0;
    for (size_t place = 0; place < 5; place++) {
        EXPECT_EQ(entries[place].ifindex, programs_.hd_find(entries[place].mac.data()));
        sum += entries[place].ifindex;
    }
    EXPECT_EQ(15U, sum);
}

TEST_F(hd_test, RepointsTheEntriesOfOnePortOnly) {
    for (uint8_t number = 0; number < 200; number++)
        ASSERT_TRUE(programs_.hd_set(client(number).data(), number < 150 ? one_ : 4000));
    EXPECT_EQ(150U, programs_.hd_repoint(one_, two_));
    EXPECT_EQ(0U, programs_.hd_repoint(one_, two_));
    EXPECT_EQ(two_, programs_.hd_find(client(0).data()));
    EXPECT_EQ(4000U, programs_.hd_find(client(199).data()));
}

TEST_F(hd_test, RefusesMoreEntriesThanItHoldsAndIsEmptyAfterAFlush) {
    size_t fitted = 0;
    for (uint32_t number = 0; number <= KOLT_MAX_HD; number++) {
        const mac_address mac = {0x02, 0, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
        fitted += programs_.hd_set(mac.data(), one_) ? 1 : 0;
    }
    EXPECT_EQ(static_cast<size_t>(KOLT_MAX_HD), fitted);
    EXPECT_EQ(static_cast<size_t>(KOLT_MAX_HD), programs_.hd_repoint(one_, two_));
    programs_.hd_flush();
    EXPECT_EQ(0U, programs_.hd_read({}));
}

TEST_F(hd_test, KeepsAPortsWordApartFromItsNeighbours) {
    const kolt_port word{.group = 3, .flags = KOLT_PORT_OPEN, .admits = 1, .accepts = 2, .class_ = 1};
    EXPECT_TRUE(programs_.set_port(one_, word));
    EXPECT_EQ(word, programs_.port(one_));
    EXPECT_EQ(kolt_port{}, programs_.port(one_ + 1));
    EXPECT_EQ(kolt_port{}, programs_.port(one_ - 1));
}

TEST_F(hd_test, RefusesAPortBeyondTheTable) {
    EXPECT_TRUE(programs_.set_port(KOLT_MAX_PORTS - 1, {.flags = KOLT_PORT_OPEN}));
    EXPECT_FALSE(programs_.set_port(KOLT_MAX_PORTS, {.flags = KOLT_PORT_OPEN}));
    EXPECT_FALSE(programs_.set_port(0, {.flags = KOLT_PORT_OPEN}));
    EXPECT_EQ(kolt_port{}, programs_.port(KOLT_MAX_PORTS));
}

} // namespace
