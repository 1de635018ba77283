// What an earlier process has left on interfaces that are no links of the next one.
#include "bridged/leftovers.h"

#include "linux/support/next_life_test.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <fstream>
#include <net/if.h>

namespace {

// Ports that the process before has had as links, and that are none for this one.
class left_over_test : public next_life_test {
protected:
    left_over_test() {
        EXPECT_EQ(rtnl_.open(), 0);
        EXPECT_EQ(bridge_port_set(rtnl_, fast_, AS_FOUND), 0);
        first_life(place);
    }
    void next(const std::vector<kept_interface> &interfaces, const char *bridge = "br0") {
        life_ = std::make_unique<bridged_life>(interfaces, std::vector{bridge});
        EXPECT_TRUE(ports_look(life_->get()));
    }
    // Nothing of the link is left; it is in a bridge, or not.
    void expect_given_back(bool in_bridge = true) {
        EXPECT_FALSE(kolt_programs::attached(fast_));
        EXPECT_FALSE(is_kept("port.p1"));
        EXPECT_EQ(life_->get()->programs.hd_find(CLIENT.data()), 0U);
        bridge_port described;
        EXPECT_EQ(bridge_port_get(rtnl_, fast_, &described) == 0, in_bridge);
        EXPECT_EQ(described.flags, in_bridge ? AS_FOUND : bridge_port_flags{});
    }
    const uint32_t fast_ = port(FAST_LINK);
    rtnl_socket rtnl_;
    std::unique_ptr<bridged_life> life_;
};

TEST_F(left_over_test, OneThatIsForHostsNowIsGivenBackAtTheStart) {
    next({SLOW, DOWNWARD});
    EXPECT_TRUE(leftovers_give_back(life_->get(), LEFTOVERS_OF_KEPT));
    EXPECT_EQ(life_->port(fast_).flags, AS_FOUND);
    EXPECT_FALSE(kolt_programs::attached(fast_));
    EXPECT_FALSE(is_kept("port.p1"));
    EXPECT_TRUE(kolt_programs::attached(port(SLOW_LINK)));
    EXPECT_EQ(life_->word(port(SLOW_LINK)).accepts, 3);
    EXPECT_EQ(life_->entry(CLIENT).port, port(SLOW_LINK)) << "its clients have moved";
    clear_log();
    EXPECT_TRUE(leftovers_give_back(life_->get(), LEFTOVERS_OF_KEPT));
    EXPECT_THAT(logged(), testing::IsEmpty()) << "there is nothing left";
}

TEST_F(left_over_test, OneThatLeftItsBridgeIsGivenBackAtTheStart) {
    take_out_of_bridge("p1");
    next({SLOW, FAST, DOWNWARD});
    EXPECT_TRUE(leftovers_give_back(life_->get(), LEFTOVERS_OF_KEPT));
    EXPECT_FALSE(kolt_programs::attached(fast_));
    EXPECT_FALSE(is_kept("port.p1"));
    EXPECT_EQ(life_->word(fast_), kolt_port{});
}

TEST_F(left_over_test, ThoseOfABridgeThatIsRefusedNowStayAtTheStart) {
    std::ofstream("/sys/class/net/br0/bridge/stp_state") << 1;
    next({SLOW, FAST, DOWNWARD});
    EXPECT_TRUE(leftovers_give_back(life_->get(), LEFTOVERS_OF_KEPT));
    EXPECT_TRUE(kolt_programs::attached(fast_));
    EXPECT_TRUE(is_kept("port.p1"));
}

TEST_F(left_over_test, OneThatIsForHostsNowIsReleasedWithTheOthers) {
    next({SLOW, DOWNWARD});
    EXPECT_TRUE(ports_release(life_->get()));
    expect_given_back();
}

TEST_F(left_over_test, OneThatLeftItsBridgeIsReleasedWithTheOthers) {
    take_out_of_bridge("p1");
    next({SLOW, FAST, DOWNWARD});
    EXPECT_TRUE(ports_release(life_->get()));
    expect_given_back(false);
}

TEST_F(left_over_test, ThoseOfABridgeThatIsNotConfiguredAnyMoreAreReleased) {
    next({}, "br9");
    EXPECT_TRUE(ports_release(life_->get()));
    expect_given_back();
    fdb_record entry;
    EXPECT_EQ(fdb_find(rtnl_, if_nametoindex("br0"), CLIENT, &entry), ENOENT);
    EXPECT_FALSE(is_kept("port.p0") || is_kept("port.p2") || is_kept("tree.br0"));
}

TEST_F(left_over_test, ThoseOfABridgeThatIsRefusedNowAreReleased) {
    std::ofstream("/sys/class/net/br0/bridge/stp_state") << 1;
    next({SLOW, FAST, DOWNWARD});
    EXPECT_TRUE(kolt_programs::attached(fast_));
    EXPECT_TRUE(ports_release(life_->get()));
    expect_given_back();
}

TEST_F(left_over_test, OneThatHasAnotherNameIsReleasedWithTheOthers) {
    rename_interface("p1", "x1");
    next({SLOW, FAST, DOWNWARD});
    EXPECT_TRUE(ports_release(life_->get()));
    EXPECT_FALSE(kolt_programs::attached(fast_));
    EXPECT_FALSE(is_kept("port.p1"));
}

} // namespace
