// Which link of a bundle carries group frames.
#include "decide/bundle.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

constexpr uint8_t ETHERNET = 0;
constexpr uint8_t PLC = 1;
constexpr uint8_t RADIO_2G = 2;
constexpr uint8_t RADIO_5G = 3;
constexpr uint8_t RADIO_5G_2 = 4;

// The links stand in the slots 3, 4, 5 and so on.
constexpr int FIRST = 3;

class Bundle : public testing::Test {
protected:
    void add(uint8_t type, bool permit = false, uint8_t bcast_class = 0) {
        wishes_.push_back({.type = type, .class_ = bcast_class, .group = PORT_NONRELAY, .permit = permit});
    }
    bundle links() {
        bundle made{};
        for (size_t i = 0; i < wishes_.size(); i++)
            made[FIRST + i] = &wishes_[i];
        return made;
    }
    int choose(int in_use = NO_SLOT, unsigned bcast_class = 0) {
        const int slot = bundle_choose(links(), bcast_class, in_use);
        return slot == NO_SLOT ? NO_SLOT : slot - FIRST;
    }
    std::vector<port_wish> wishes_;
};

TEST_F(Bundle, NoLinkIsChosenWithoutAny) {
    EXPECT_EQ(choose(), NO_SLOT);
    EXPECT_EQ(bundle_backup(links(), NO_SLOT), NO_SLOT);
}

TEST_F(Bundle, BestTypeIsChosenWhereNothingIsPermitted) {
    for (const uint8_t type : {uint8_t{9}, PLC, RADIO_2G, RADIO_5G, RADIO_5G_2, ETHERNET}) {
        add(type);
        EXPECT_EQ(choose(), static_cast<int>(wishes_.size()) - 1) << int{type};
    }
}

TEST_F(Bundle, FirstPortIsChosenAmongEqualTypes) {
    add(RADIO_5G);
    add(RADIO_5G);
    EXPECT_EQ(choose(), 0);
}

TEST_F(Bundle, PermittedLinkComesBeforeABetterType) {
    add(ETHERNET);
    add(PLC, true);
    add(RADIO_2G, true);
    EXPECT_EQ(choose(), 2);
}

TEST_F(Bundle, LinkInUseStaysWhileItIsPermitted) {
    add(ETHERNET, true);
    add(PLC, true);
    EXPECT_EQ(choose(FIRST + 1), 1);
    wishes_[1].permit = false;
    EXPECT_EQ(choose(FIRST + 1), 0);
}

TEST_F(Bundle, LinkInUseThatIsLostIsReplaced) {
    add(RADIO_5G, true);
    EXPECT_EQ(choose(FIRST + 7), 0);
}

TEST_F(Bundle, EachClassHasItsOwnLink) {
    add(ETHERNET, false, 0);
    add(PLC, false, 1);
    EXPECT_EQ(choose(NO_SLOT, 0), 0);
    EXPECT_EQ(choose(NO_SLOT, 1), 1);
}

TEST_F(Bundle, ClassWithoutALinkTakesTheOthers) {
    add(RADIO_5G, true, 1);
    EXPECT_EQ(choose(NO_SLOT, 0), 0);
    wishes_[0].class_ = 0;
    EXPECT_EQ(choose(NO_SLOT, 1), 0);
}

TEST_F(Bundle, BackupIsTheBestOfTheOthers) {
    add(RADIO_5G);
    add(ETHERNET);
    add(RADIO_5G_2);
    EXPECT_EQ(bundle_backup(links(), FIRST + 1), FIRST + 2);
    EXPECT_EQ(bundle_backup(links(), FIRST + 2), FIRST + 1);
    EXPECT_EQ(bundle_backup(links(), NO_SLOT), FIRST + 1);
}

} // namespace
