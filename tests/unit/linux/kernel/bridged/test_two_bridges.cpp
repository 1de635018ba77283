// A node with two bridges, each with a network of its own.
#include "bridged/calls.h"
#include "bridged/clients.h"
#include "linux/support/bridged_test.h"

#include <cerrno>

namespace {

constexpr kept_interface HOST_PORT = {.name = "p2", .type = KOLT_LINK_ETHERNET, .relay = 1, .path = 0};
constexpr kept_interface OTHERS_UPLINK = {.name = "p3", .type = KOLT_LINK_5G, .needha = 1};

class networks_test : public testing::Test {
protected:
    networks_test() {
        (void)ports_look(life_.get());
        for (const size_t place : {size_t{0}, size_t{1}}) {
            const auto joins = [&](one_node &node) { node.join({.ifindex = uplinks_.at(place)}); };
            life_.settle_after(joins, place);
        }
        EXPECT_EQ(clients_add(&life_.node(), CLIENT.data(), SECOND.data(), "p1"), 0);
        one_.end(2).send(ip_frame{}.bytes());
        EXPECT_TRUE(comes_true([this] { return life_->streams.read({&stream_, 1}) == 1; }));
        EXPECT_EQ(stream_.target, uplinks_[0]);
    }

    bridged_wires one_{3};          // br0 with p0, p1 and p2
    bridged_wires two_{1, 1500, 3}; // br3 with p3
    const std::array<uint32_t, 2> uplinks_{one_.port(1), two_.port(0)};
    bridged_life life_{{SLOW, FAST, HOST_PORT, OTHERS_UPLINK}, {"br0", "br3"}};
    kolt_stream_record stream_;
};

TEST_F(networks_test, HaveGroupsOfTheirOwn) {
    ASSERT_NE(life_.word(uplinks_[0]).flags & life_.word(uplinks_[1]).flags & KOLT_PORT_OPEN, 0);
    EXPECT_NE(life_.word(uplinks_[0]).group, 0);
    EXPECT_NE(life_.word(uplinks_[1]).group, 0);
    EXPECT_NE(life_.word(uplinks_[0]).group, life_.word(uplinks_[1]).group);
}

TEST_F(networks_test, KeepTheirStreamsApart) {
    const request_handlers calls = calls_of(life_.get());
    const stream_key key{
        .hash = stream_.key.hash, .src_port = 5000, .dst_port = 80, .stream_kind = 1, .carried_value = 0};
    EXPECT_EQ(calls.set_ha_entry(life_.get(), "br3", SERVER.data(), CLIENT.data(), key, "p3"), EHOSTUNREACH);
    EXPECT_EQ(life_->streams.record(stream_.slot).target, uplinks_[0]);
}

TEST_F(networks_test, LetNoFrameLeaveInTheOther) {
    life_->streams.repoint(stream_.slot, uplinks_[1]);
    (void)one_.end(1).count_arrived(1);
    one_.end(2).send(ip_frame{}.bytes());
    EXPECT_EQ(one_.end(1).receive(), ip_frame{}.bytes());
}

} // namespace
