// What may pass a port, by its word and that of the port that a frame came in by.
#include "linux/support/data_plane.h"

namespace {

using passing_test = data_plane_test;

const std::string BROADCAST_FRAME = ethernet_frame(BROADCAST, SERVER, 0x0806);
const std::string MULTICAST_FRAME = ethernet_frame({0x01, 0, 0x5e, 0, 0, 1}, SERVER, 0x0800);
const std::string UNICAST_FRAME = ethernet_frame(CLIENT, SERVER, 0x9000);

constexpr uint8_t CLASSES[] = {0, 1};
constexpr uint8_t RIGHTS[] = {0, 1, 2, 3};

mac_address link_local(uint8_t last) {
    return {0x01, 0x80, 0xc2, 0, 0, last};
}

TEST_F(passing_test, NothingPassesAPortWithoutAWord) {
    for (const std::string &frame : {BROADCAST_FRAME, MULTICAST_FRAME, UNICAST_FRAME, ip_frame{}.bytes()}) {
        EXPECT_EQ(DROPPED, arrive(frame, one_));
        EXPECT_EQ(DROPPED, leave(frame, one_));
        EXPECT_EQ(DROPPED, leave(frame, one_, two_));
    }
}

TEST_F(passing_test, WhatAClosedPortKeepsOutIsCountedButForFramesOfTheLink) {
    for (const std::string &frame : {BROADCAST_FRAME, MULTICAST_FRAME, UNICAST_FRAME, ip_frame{}.bytes()})
        EXPECT_EQ(DROPPED, arrive(frame, one_));
    EXPECT_EQ(PASSED, arrive(ethernet_frame(link_local(0x0e), SERVER, 0x88b5), one_));
    EXPECT_EQ(DROPPED, leave(BROADCAST_FRAME, one_));
    EXPECT_EQ(4U, programs_.foreign(one_));
    EXPECT_EQ(0U, programs_.foreign(two_));
    EXPECT_EQ(0U, programs_.foreign(KOLT_MAX_PORTS));
}

TEST_F(passing_test, WhatComesToAnOpenPortIsNotCountedAsKeptOut) {
    programs_.set_port(one_, {.flags = KOLT_PORT_OPEN});
    EXPECT_EQ(PASSED, arrive(UNICAST_FRAME, one_));
    EXPECT_EQ(DROPPED, arrive(BROADCAST_FRAME, one_));
    EXPECT_EQ(0U, programs_.foreign(one_));
}

TEST_F(passing_test, RightsWithoutOpenAreWorthNothing) {
    programs_.set_port(one_, {.group = 1, .flags = 0xe, .admits = 0xf, .accepts = 0xf});
    for (const std::string &frame : {BROADCAST_FRAME, MULTICAST_FRAME, UNICAST_FRAME, ip_frame{}.bytes()}) {
        EXPECT_EQ(DROPPED, arrive(frame, one_));
        EXPECT_EQ(DROPPED, leave(frame, one_));
    }
}

TEST_F(passing_test, UnicastPassesAnOpenPortWithoutRights) {
    programs_.set_port(one_, {.flags = KOLT_PORT_OPEN});
    EXPECT_EQ(PASSED, arrive(UNICAST_FRAME, one_));
    EXPECT_EQ(PASSED, leave(UNICAST_FRAME, one_));
    EXPECT_EQ(DROPPED, arrive(BROADCAST_FRAME, one_));
    EXPECT_EQ(DROPPED, leave(BROADCAST_FRAME, one_));
}

TEST_F(passing_test, GroupFramesComeInByTheClassOfThePort) {
    for (const uint8_t class_ : CLASSES)
        for (const uint8_t admits : RIGHTS) {
            programs_.set_port(one_, {.flags = KOLT_PORT_OPEN, .admits = admits, .class_ = class_});
            const action expected = (admits >> class_ & 1) != 0 ? PASSED : DROPPED;
            EXPECT_EQ(expected, arrive(BROADCAST_FRAME, one_)) << int{class_} << " " << int{admits};
            EXPECT_EQ(expected, arrive(MULTICAST_FRAME, one_)) << int{class_} << " " << int{admits};
        }
}

TEST_F(passing_test, GroupFramesLeaveByTheClassOfThePortTheyCameInBy) {
    for (const uint8_t class_ : CLASSES)
        for (const uint8_t accepts : RIGHTS) {
            programs_.set_port(one_, {.flags = KOLT_PORT_OPEN, .accepts = accepts, .class_ = 1});
            programs_.set_port(two_, {.flags = KOLT_PORT_OPEN, .class_ = class_});
            const action expected = (accepts >> class_ & 1) != 0 ? PASSED : DROPPED;
            EXPECT_EQ(expected, leave(BROADCAST_FRAME, one_, two_)) << int{class_} << " " << int{accepts};
        }
}

TEST_F(passing_test, TheNodesOwnGroupFramesAreOfClassZero) {
    programs_.set_port(one_, {.flags = KOLT_PORT_OPEN, .accepts = 1});
    EXPECT_EQ(PASSED, leave(BROADCAST_FRAME, one_));
    programs_.set_port(one_, {.flags = KOLT_PORT_OPEN, .accepts = 2});
    EXPECT_EQ(DROPPED, leave(BROADCAST_FRAME, one_));
}

TEST_F(passing_test, NothingGoesBackIntoTheGroupItCameFrom) {
    open_port(one_, 0, 7);
    open_port(two_, 0, 7);
    for (const std::string &frame : {BROADCAST_FRAME, UNICAST_FRAME, ip_frame{}.bytes()})
        EXPECT_EQ(DROPPED, leave(frame, one_, two_));
    open_port(two_, 0, 8);
    for (const std::string &frame : {BROADCAST_FRAME, UNICAST_FRAME, ip_frame{}.bytes()})
        EXPECT_EQ(PASSED, leave(frame, one_, two_));
}

TEST_F(passing_test, PortsWithoutAGroupAreNotOne) {
    open_port(one_);
    open_port(two_);
    EXPECT_EQ(PASSED, leave(UNICAST_FRAME, one_, two_));
}

TEST_F(passing_test, AnIndexBeyondTheTableIsAnAccessPort) {
    open_port(one_, 0, 7);
    EXPECT_EQ(PASSED, leave(BROADCAST_FRAME, one_, KOLT_MAX_PORTS));
    EXPECT_EQ(PASSED, leave(BROADCAST_FRAME, one_, 0x7fffffff));
}

TEST_F(passing_test, FramesOfTheLinkPassAClosedPort) {
    for (uint8_t last = 1; last <= 0x0f; last++) {
        EXPECT_EQ(PASSED, arrive(ethernet_frame(link_local(last), SERVER, 0x88cc), one_)) << int{last};
        EXPECT_EQ(PASSED, leave(ethernet_frame(link_local(last), SERVER, 0x88cc), one_)) << int{last};
    }
}

TEST_F(passing_test, AddressesBesideThoseOfTheLinkAreOrdinary) {
    for (const mac_address &to : {link_local(0), link_local(0x10), mac_address{0x01, 0x80, 0xc2, 0, 1, 0x0e},
                                  mac_address{0x03, 0x80, 0xc2, 0, 0, 0x0e}}) {
        EXPECT_EQ(DROPPED, arrive(ethernet_frame(to, SERVER, 0x88cc), one_));
        EXPECT_EQ(DROPPED, leave(ethernet_frame(to, SERVER, 0x88cc), one_));
    }
}

TEST_F(passing_test, FramesOfTheLinkAreNotForwarded) {
    open_port(one_);
    open_port(two_);
    EXPECT_EQ(PASSED, leave(BROADCAST_FRAME, one_, two_));
    for (uint8_t last = 1; last <= 0x0f; last++) {
        const std::string frame = ethernet_frame(link_local(last), SERVER, 0x88cc);
        EXPECT_EQ(DROPPED, leave(frame, one_, two_)) << int{last};
        EXPECT_EQ(PASSED, leave(frame, one_)) << int{last} << ": the node's own";
    }
}

struct probe_case {
    const char *name;
    size_t offset;
    uint8_t value;
};

class probe_test : public data_plane_test {
protected:
    void answer_at(uint32_t port) {
        ASSERT_TRUE(programs_.set_identity(port, &identity_));
    }
    const kolt_port_identity identity_{
        .node = {0, 1, 2, 3, 4, 5, 6, 7}, .mac = {2, 0xaa, 0xbb, 0xcc, 0xdd, 0xee}, .valid = 0};
};

TEST_F(probe_test, IsEchoedOnAClosedPort) {
    answer_at(one_);
    const std::string sent = probe(SERVER);
    const outcome result = run(kolt_direction::INGRESS, sent, one_);
    EXPECT_EQ(REDIRECTED, result.what);
    std::string expected = with_byte(sent, 15, KOLT_NEIGHBOUR_ECHO);
    expected.replace(6, 6, "\x02\xaa\xbb\xcc\xdd\xee");
    expected.replace(32, 8, std::string("\0\1\2\3\4\5\6\7", 8));
    EXPECT_EQ(expected, result.frame);
}

TEST_F(probe_test, PassesWhereThePortHasNoIdentity) {
    answer_at(two_);
    EXPECT_EQ(PASSED, arrive(probe(SERVER), one_));
    EXPECT_EQ(REDIRECTED, arrive(probe(SERVER), two_));
    ASSERT_TRUE(programs_.set_identity(two_, nullptr));
    EXPECT_EQ(PASSED, arrive(probe(SERVER), two_));
}

// A process that dies leaves what it answers with.
TEST_F(probe_test, IsEchoedThoughManyInterfacesWentUnseen) {
    answer_at(two_);
    for (uint32_t gone = 1000; gone < 1010 + KOLT_MAX_LINKS; gone++)
        ASSERT_TRUE(programs_.set_identity(gone, &identity_)) << gone;
    answer_at(one_);
    EXPECT_EQ(REDIRECTED, arrive(probe(SERVER), one_));
    EXPECT_EQ(REDIRECTED, arrive(probe(SERVER), two_));
}

TEST_F(probe_test, IsLeftAloneWhenItIsSomethingElse) {
    answer_at(one_);
    const probe_case cases[] = {
        {"hello", 15, KOLT_NEIGHBOUR_HELLO},
        {"echo", 15, KOLT_NEIGHBOUR_ECHO},
        {"no kind", 15, 0},
        {"other version", 14, 2},
        {"other ethertype", 12, 0x89},
        {"other ethertype's end", 13, 0xb6},
        {"other address", 5, 0x03},
    };
    for (const probe_case &row : cases) {
        const std::string frame = with_byte(probe(SERVER), row.offset, row.value);
        const outcome result = run(kolt_direction::INGRESS, frame, one_);
        EXPECT_EQ(PASSED, result.what) << row.name;
        EXPECT_EQ(frame, result.frame) << row.name;
    }
}

TEST_F(probe_test, IsLeftAloneWhenItIsCutShort) {
    answer_at(one_);
    const std::string whole = probe(SERVER);
    for (size_t size = 14; size < sizeof(kolt_neighbour_head); size++)
        EXPECT_EQ(PASSED, arrive(whole.substr(0, size), one_)) << size;
    EXPECT_EQ(REDIRECTED, arrive(whole.substr(0, sizeof(kolt_neighbour_head)), one_));
}

} // namespace
