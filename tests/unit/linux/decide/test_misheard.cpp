// A frame in a neighbour's name that the neighbour did not send, or that was broken on the way.
#include "linux/decide/support_node.h"

#include <gtest/gtest.h>

namespace {

// What a frame said in the child's name once must not stand for ever: nobody can take it back.
class MisheardChild : public testing::Test {
protected:
    MisheardChild() {
        node_.port(10, RELAY);
        node_.puppets.push_back(child_on(10));
        node_.pass(200);
        EXPECT_EQ(node_.role(10), ROLE_DOWNLINK);
    }

    void expect_back_after_memory(puppet misheard) {
        misheard.parent = 0;
        node_.hello(misheard);
        node_.pass(19000);
        EXPECT_NE(node_.role(10), ROLE_DOWNLINK) << "the latest word holds, and late ones come";
        node_.pass(2000);
        EXPECT_EQ(node_.role(10), ROLE_DOWNLINK);
    }

    one_node node_;
};

TEST_F(MisheardChild, LaterStateIsForgottenWhenItIsNotSaidAgain) {
    puppet later = child_on(10);
    later.version += 1000;
    expect_back_after_memory(later);
}

TEST_F(MisheardChild, OtherLifeIsForgottenWhenItIsNotHeardAgain) {
    puppet other = child_on(10);
    other.incarnation += 1;
    expect_back_after_memory(other);
}

// Two neighbours in the same tree: what was said in the parent's name once makes it a stranger, and the other one must
// not be compared with it then.
class MisheardParent : public testing::Test {
protected:
    MisheardParent() {
        node_.port(10, NONRELAY);
        node_.port(11, NONRELAY);
        node_.join(parent_);
        node_.puppets.push_back(other_);
        node_.pass(200);
        EXPECT_EQ(node_.state.parent, BEST);
    }

    void expect_back_after_memory(const puppet &misheard) {
        node_.hello(misheard);
        node_.pass(21000);
        for (int i = 0; i < 100 && node_.state.parent != BEST; i++) {
            node_.sent.clear();
            node_.pass(100);
            for (const join_record &asked : node_.joins_sent(parent_.ifindex))
                node_.hello(parent_, {{.kind = JOIN_GRANT, .origin = asked.origin, .token = asked.token}});
        }
        EXPECT_EQ(node_.state.parent, BEST);
    }

    puppet parent_{.ifindex = 10};
    puppet other_{.ifindex = 11, .id = OTHER, .version = 5, .parent = BEST, .hops = 1};
    one_node node_;
};

TEST_F(MisheardParent, LaterStateIsForgottenWhenItIsNotSaidAgain) {
    puppet later = parent_;
    later.version += 1000;
    expect_back_after_memory(later);
}

TEST_F(MisheardParent, OtherLifeIsForgottenWhenItIsNotHeardAgain) {
    puppet other = parent_;
    other.incarnation += 1;
    expect_back_after_memory(other);
}

} // namespace
