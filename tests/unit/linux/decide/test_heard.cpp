// Links whose echoes are late while frames come in: a full queue, or one direction that is lost.
#include "linux/decide/support_node.h"

#include <gtest/gtest.h>

namespace {

// A node with a neighbour whose kernel answers no probe any more.
class Heard : public testing::Test {
protected:
    Heard() {
        node_.port(11, NONRELAY);
        node_.puppets.push_back({.ifindex = 11});
        node_.pass(500);
        node_.puppets[0].echoes = false;
    }
    // Half a second in which frames come in all the time.
    void hear() {
        for (int i = 0; i < 10; i++) {
            node_.pass(50);
            tree_port_heard(&node_.state, 11, node_.now);
        }
    }
    [[nodiscard]] bool alive() const {
        return node_.state.ports[0].alive;
    }

    one_node node_;
};

TEST_F(Heard, LinkWithoutEchoesDies) {
    node_.pass(500);
    EXPECT_FALSE(alive());
}

TEST_F(Heard, LinkWithLateEchoesLivesWhileBothEndsHearEachOther) {
    hear();
    EXPECT_TRUE(alive());
    node_.pass(500);
    EXPECT_FALSE(alive()) << "nothing is heard any more";
}

TEST_F(Heard, LinkOnWhichTheNeighbourNoLongerHearsUsDies) {
    node_.puppets[0].link_flags = 0;
    hear();
    EXPECT_FALSE(alive());
}

TEST_F(Heard, NeighbourThatDecidesNothingDoesNotVouchForItsLink) {
    node_.puppets[0].talks = false;
    hear(); // it takes as long again until that is noticed
    hear();
    EXPECT_FALSE(alive());
}

TEST_F(Heard, DeadLinkIsNotRevivedByWhatIsHeard) {
    node_.pass(500);
    hear();
    EXPECT_FALSE(alive());
}

TEST_F(Heard, UnknownPortIsLeftAlone) {
    tree_port_heard(&node_.state, 12, node_.now);
    EXPECT_TRUE(alive());
}

} // namespace
