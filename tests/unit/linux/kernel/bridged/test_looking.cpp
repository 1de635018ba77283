// Looking at all ports: what is found that was not announced, when the kernel does not list them to the end, or lists
// more than there is room for.
#include "bridged/ports.h"
#include "lib/records.h"
#include "linux/support/bridged_test.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdio>
#include <net/if.h>
#include <vector>

using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;
using testing::StrEq;

using each_link = callback_ref<void(const link_info &)>;

// In place of the kernel's list, which neither fails nor grows as a test wants it.
int asked_links_dump(rtnl_socket &rtnl,
                     each_link each) asm("__wrap__Z10links_dumpR11rtnl_socket12callback_refIFvRK9link_infoEE");
int real_links_dump(rtnl_socket &rtnl,
                    each_link each) asm("__real__Z10links_dumpR11rtnl_socket12callback_refIFvRK9link_infoEE");

// In place of telling the libraries, of which there are none here.
int told_event(requests_server *server, int32_t protocol, uint16_t type, const void *payload,
               size_t size) asm("__wrap__Z19requests_send_eventP15requests_serveritPKvm");

namespace {
std::vector<uint16_t> told;
size_t more_ports = 0;   // of br0, told before those that there are
size_t cut_off_from = 0; // lists, counted from 1, that end with an error before their last interface; 0 for none
size_t lists = 0;
} // namespace

int asked_links_dump(rtnl_socket &rtnl, each_link each) {
    constexpr uint32_t HIGH = 100000;
    const uint32_t bridge = if_nametoindex("br0");
    for (uint32_t i = 0; i < more_ports; i++) {
        link_info link{.index = HIGH + i, .master = bridge, .up = true, .carrier = true, .ethernet = true};
        (void)snprintf(link.name.data(), link.name.size(), "host%u", i);
        each(link);
    }
    const bool cut_off = ++lists >= cut_off_from && cut_off_from != 0;
    if (!cut_off)
        return real_links_dump(rtnl, each);
    const auto without_ports = [&](const link_info &link) {
        if (link.master == 0)
            each(link);
    };
    EXPECT_EQ(real_links_dump(rtnl, without_ports), 0);
    return ETIMEDOUT;
}

int told_event(requests_server * /*server*/, int32_t protocol, uint16_t type, const void * /*payload*/,
               size_t /*size*/) {
    EXPECT_EQ(protocol, PROTOCOL_BRIDGE_EVENTS);
    told.push_back(type);
    return 1;
}

namespace {

class looking_test : public bridged_test {
protected:
    looking_test() {
        join();
        clear_log();
        lists = 0;
        life_->requests = reinterpret_cast<requests_server *>(&somebody_listens_);
        told.clear();
    }
    ~looking_test() override {
        more_ports = cut_off_from = 0;
    }
    void expect_all_kept() {
        for (const size_t place : {SLOW_LINK, FAST_LINK, CHILD_LINK, HOSTS})
            EXPECT_NE(node_find_port_index(&life_.node(), port(place)), nullptr) << place;
        for (const size_t place : {SLOW_LINK, FAST_LINK, CHILD_LINK})
            EXPECT_TRUE(kolt_programs::attached(port(place))) << place;
        EXPECT_EQ(life_.node().links.parent, node_mac(BEST));
        EXPECT_EQ(life_.word(port(FAST_LINK)).accepts, 3);
    }

private:
    char somebody_listens_ = 0;
};

TEST_F(looking_test, APortThatIsFoundGoneIsTold) {
    take_out_of_bridge("p1");
    EXPECT_TRUE(ports_look(life_.get()));
    EXPECT_THAT(told, ElementsAre(BRIDGE_EVENT_PORT_LEFT));
    EXPECT_TRUE(ports_look(life_.get()));
    EXPECT_THAT(told, SizeIs(1));
}

TEST_F(looking_test, ABridgeThatIsFoundGoneIsForgotten) {
    remove_interface("br0");
    EXPECT_TRUE(ports_look(life_.get()));
    EXPECT_EQ(life_.node().ifindex, 0U);
    EXPECT_FALSE(is_kept("tree.br0")) << "another bridge of that name is none of it";
    EXPECT_FALSE(kolt_programs::attached(port(FAST_LINK)));
    EXPECT_THAT(told, SizeIs(PORTS));
    EXPECT_THAT(told, Each(BRIDGE_EVENT_PORT_LEFT));
}

TEST_F(looking_test, NobodyIsLetGoByAListThatIsCutOff) {
    for (const size_t from : {size_t{1}, size_t{2}}) { // that of the bridges, or that of the ports
        lists = 0;
        cut_off_from = from;
        EXPECT_FALSE(ports_look(life_.get()));
        expect_all_kept();
        EXPECT_THAT(logged_texts(), ElementsAre(StrEq("Error: cannot list the interfaces: Connection timed out")));
        clear_log();
    }
}

TEST_F(looking_test, AnotherLookFollowsOneThatFailed) {
    cut_off_from = 1;
    EXPECT_FALSE(ports_look(life_.get()));
    cut_off_from = 0;
    take_out_of_bridge("p1");
    uloop_timeout &next = life_->watches.look;
    EXPECT_TRUE(next.pending);
    next.cb(&next);
    EXPECT_EQ(node_find_port_index(&life_.node(), port(FAST_LINK)), nullptr);
    EXPECT_FALSE(kolt_programs::attached(port(FAST_LINK)));
}

TEST_F(looking_test, AnotherLookFollowsThatAfterAnOverrun) {
    ports_overrun(life_.get());
    take_out_of_bridge("p1");
    uloop_timeout &next = life_->watches.look;
    ASSERT_TRUE(next.pending);
    uloop_timeout_cancel(&next);
    next.cb(&next);
    EXPECT_EQ(node_find_port_index(&life_.node(), port(FAST_LINK)), nullptr);
    EXPECT_FALSE(next.pending) << "once";
}

TEST_F(looking_test, NobodyIsLetGoByALongList) {
    more_ports = 600;
    EXPECT_TRUE(ports_look(life_.get()));
    expect_all_kept();
}

TEST_F(looking_test, ALinkHasItsPlaceHoweverManyHostsThereAre) {
    more_ports = MAX_NODE_PORTS + 10;
    EXPECT_TRUE(ports_look(life_.get()));
    take_out_of_bridge("p1");
    EXPECT_TRUE(ports_look(life_.get()));
    put_into_bridge("p1", "br0");
    EXPECT_TRUE(ports_look(life_.get()));
    EXPECT_NE(node_find_port(&life_.node(), "p1"), nullptr);
    EXPECT_TRUE(kolt_programs::attached(port(FAST_LINK)));
    EXPECT_EQ(node_find_port(&life_.node(), "host130"), nullptr);
}

} // namespace
