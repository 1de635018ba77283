// What a child says of the streams that it has moved.
#include "bridged/neighbours.h"
#include "linux/support/bridged_test.h"

#include <netinet/in.h>

namespace {

constexpr size_t OTHER_CHILD = 3; // in the place of the port for hosts
constexpr node_id CHILD = 0x0001020000000090;
constexpr node_id SECOND_CHILD = 0x0001020000000091;

// Two links to one child, one to another, and one upwards.
class notices_test : public testing::Test {
protected:
    notices_test() {
        (void)ports_look(life_.get());
        life_.settle_after([this](one_node &node) {
            tree_set_follow(&node.state, true, node.now);
            node.puppets = {hello(CHILD, 1, 51), hello(CHILD, 2, 52), hello(SECOND_CHILD, OTHER_CHILD, 53)};
            node.pass(1000);
        });
    }
    [[nodiscard]] uint32_t port(size_t place) const {
        return wires_.port(place);
    }
    [[nodiscard]] puppet hello(node_id who, size_t place, uint32_t far_port) {
        const node_id self = life_.node().links.id;
        return {.ifindex = port(place),
                .id = who,
                .port = far_port,
                .root = self,
                .parent = node_mac(self),
                .hops = 1,
                .link_flags = LINK_ALIVE | LINK_UPWARD};
    }
    // A stream that has come by the link, and goes back by it.
    void stream_by(size_t place, uint16_t number) {
        const size_t before = life_->streams.count();
        wires_.end(place).send(ip_frame{.to = SERVER, .from = CLIENT, .src_port = number}.bytes());
        EXPECT_TRUE(comes_true([&] { return life_->streams.count() == before + 1; }));
    }
    // The port by which it leaves.
    uint32_t way_of(uint16_t number) {
        std::array<kolt_stream_record, 64> records;
        const size_t count = std::min(records.size(), life_->streams.read(records));
        for (size_t i = 0; i < count; i++) {
            if (be16toh(records[i].key.dst_port) == number)
                return records[i].target;
        }
        return 0;
    }
    static stream_notice moved(uint16_t number, uint8_t type) {
        return {
            .src = CLIENT, .dst = SERVER, .src_port = number, .dst_port = 80, .protocol = IPPROTO_UDP, .type = type};
    }
    void say(size_t place, node_id who, uint32_t far_port, const std::vector<stream_notice> &notices) {
        neighbour_frame frame;
        frame.node = who;
        frame.port = far_port;
        frame.root = life_.node().links.id;
        frame.parent = node_mac(frame.root);
        frame.link_flags = LINK_ALIVE | LINK_UPWARD;
        for (const stream_notice &notice : notices)
            frame.streams.at(frame.stream_count++) = notice;
        std::array<uint8_t, FRAME_MAX_SIZE> bytes;
        const size_t size = frame_encode(frame, CLIENT.data(), bytes);
        wires_.end(place).send({reinterpret_cast<const char *>(bytes.data()), size});
    }
    // One turn of the loop for the port.
    void turn(size_t place) {
        node_port *port = node_find_port_index(&life_.node(), this->port(place));
        port->watch.cb(&port->watch, ULOOP_READ);
    }

    bridged_wires wires_{PORTS};
    bridged_life life_{{{.name = "p0", .type = KOLT_LINK_5G},
                        {.name = "p1", .type = KOLT_LINK_5G, .relay = 1},
                        {.name = "p2", .type = KOLT_LINK_2G, .relay = 1},
                        {.name = "p3", .type = KOLT_LINK_5G, .relay = 1}}};
};

TEST_F(notices_test, MoveTheChildsStreamToItsOtherLink) {
    stream_by(1, 5000);
    EXPECT_EQ(way_of(5000), port(1));
    say(2, CHILD, 52, {moved(5000, KOLT_LINK_2G)});
    turn(2);
    EXPECT_EQ(way_of(5000), port(2));
    say(2, CHILD, 52, {moved(5000, KOLT_LINK_PLC)});
    turn(2);
    EXPECT_EQ(way_of(5000), port(2)) << "there is no such link";
}

TEST_F(notices_test, MoveNoStreamOfAnotherChild) {
    stream_by(1, 5000);
    say(OTHER_CHILD, SECOND_CHILD, 53, {moved(5000, KOLT_LINK_2G)});
    turn(OTHER_CHILD);
    EXPECT_EQ(way_of(5000), port(1));
    say(OTHER_CHILD, SECOND_CHILD, 53, {moved(5000, KOLT_LINK_5G)});
    turn(OTHER_CHILD);
    EXPECT_EQ(way_of(5000), port(1));
}

TEST_F(notices_test, MoreThanAChildCanKeepAreIgnoredInOneTurn) {
    stream_by(1, 5000);
    stream_by(1, 5001);
    const std::vector<stream_notice> others(FRAME_STREAMS, moved(6000, KOLT_LINK_2G));
    for (size_t said = 0; said < TREE_NOTICES - FRAME_STREAMS; said += FRAME_STREAMS)
        say(2, CHILD, 52, others);
    std::vector<stream_notice> last(FRAME_STREAMS - 1, moved(6000, KOLT_LINK_2G));
    last.push_back(moved(5000, KOLT_LINK_2G));
    say(2, CHILD, 52, last);
    say(2, CHILD, 52, {moved(5001, KOLT_LINK_2G)});
    turn(2);
    EXPECT_EQ(way_of(5000), port(2));
    EXPECT_EQ(way_of(5001), port(1));
    say(2, CHILD, 52, {moved(5001, KOLT_LINK_2G)});
    turn(2);
    EXPECT_EQ(way_of(5001), port(2)) << "in the next turn there is time again";
}

} // namespace
