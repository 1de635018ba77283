// Ports that get another name while they are in the bridge.
#include "bridged/ports.h"
#include "linux/support/bridged_test.h"

namespace {

class renaming_test : public bridged_test {
protected:
    const uint32_t slow_ = port(SLOW_LINK);
    const uint32_t fast_ = port(FAST_LINK);
    const uint32_t hosts_ = port(HOSTS);

    // Waits until the node knows the port by the name.
    void rename(const std::string &from, const std::string &to) {
        rename_interface(from, to);
        EXPECT_TRUE(life_.hear_until([&] { return known_as(to) != 0; })) << to;
        EXPECT_EQ(known_as(from), 0U);
    }
    uint32_t known_as(const std::string &name) {
        const node_port *port = node_find_port(&life_.node(), name.c_str());
        return port != nullptr ? port->ifindex : 0;
    }
    [[nodiscard]] bool is_link(uint32_t ifindex) {
        return tree_slot(life_.node().links, ifindex) != NO_SLOT;
    }
};

TEST_F(renaming_test, PortThatGetsTheNameOfALinkIsGuarded) {
    rename("p1", "x1");
    rename("p3", "p1");
    EXPECT_EQ(known_as("p1"), hosts_);
    EXPECT_TRUE(kolt_programs::attached(hosts_));
    EXPECT_TRUE(is_link(hosts_));
    EXPECT_TRUE(is_kept("port.p1"));
}

TEST_F(renaming_test, PortThatLosesTheNameOfALinkIsGivenBack) {
    join();
    rename("p1", "x1");
    EXPECT_EQ(known_as("x1"), fast_);
    EXPECT_FALSE(kolt_programs::attached(fast_));
    EXPECT_FALSE(is_link(fast_));
    EXPECT_FALSE(is_kept("port.p1"));
    EXPECT_EQ(life_.port(fast_).flags, bridge_port_flags{}) << "it leads to hosts now";
    EXPECT_EQ(life_.word(slow_).accepts, 3) << "the other one has its work at once";
}

TEST_F(renaming_test, LinkThatBecomesAnotherOneStaysGuardedAndBeginsClosed) {
    join();
    ASSERT_EQ(life_.word(fast_).flags & KOLT_PORT_OPEN, KOLT_PORT_OPEN);
    rename("p2", "x2");
    rename("p1", "p2");
    EXPECT_TRUE(kolt_programs::attached(fast_));
    EXPECT_TRUE(is_link(fast_));
    EXPECT_EQ(life_.word(fast_).flags & KOLT_PORT_OPEN, 0);
    EXPECT_FALSE(is_kept("port.p1"));
    EXPECT_TRUE(is_kept("port.p2"));
}

TEST_F(renaming_test, LinkThatBecameAnotherOneIsPutBackAsItWasFound) {
    take_out_of_bridge("p1");
    ASSERT_TRUE(life_.hear_until([this] { return known_as("p1") == 0; }));
    put_into_bridge("p1", "br0");
    ASSERT_EQ(bridge_port_set(life_->rtnl, fast_, AS_FOUND), 0);
    ASSERT_TRUE(life_.hear_until([this] { return known_as("p1") != 0; }));
    rename("p2", "x2");
    rename("p1", "p2");
    EXPECT_NE(life_.port(fast_).flags, AS_FOUND);
    EXPECT_TRUE(ports_release(life_.get()));
    EXPECT_EQ(life_.port(fast_).flags, AS_FOUND);
}

TEST_F(renaming_test, NameThatWasNotAnnouncedIsFound) {
    rename_interface("p1", "x1");
    ports_look(life_.get());
    EXPECT_EQ(known_as("x1"), fast_);
    EXPECT_FALSE(kolt_programs::attached(fast_));
}

} // namespace
