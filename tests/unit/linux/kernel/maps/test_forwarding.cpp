// Frames through a real bridge with guarded ports: what leaves where, and how often.
#include <gmock/gmock.h>

#include <stdexcept>

#include "linux/support/data_plane.h"

namespace {

using testing::IsEmpty;

constexpr uint32_t MTU = 9000;

// Ports 0 and 1 lead to one neighbour, port 2 to another; port 3 is an access port.
class forwarding_test : public testing::TestWithParam<kolt_hooking> {
protected:
    forwarding_test() : wires_(4, MTU) {
        if (programs_.open(PINS, &why_) != kolt_opened::FRESH || !streams_.open(programs_, 0, &why_))
            throw std::runtime_error(why_.text);
        open_port(0, 1);
        open_port(1, 1);
        open_port(2, 2);
        for (size_t place = 0; place < 3; place++)
            if (!programs_.attach(port(place), &why_, GetParam()))
                throw std::runtime_error(why_.text);
    }

    // Frames that go round belong to a socket of the test's namespace, and so keep it, and a processor, busy for ever.
    ~forwarding_test() override {
        for (size_t place = 0; place < 3; place++)
            programs_.set_port(port(place), {});
    }

    void open_port(size_t place, uint16_t group, uint8_t more_flags = 0) {
        programs_.set_port(port(place), {.group = group,
                                         .flags = static_cast<uint8_t>(KOLT_PORT_OPEN | more_flags),
                                         .admits = 1,
                                         .accepts = 1,
                                         .class_ = 0});
    }
    // The bridge learns that the client is behind the port.
    void client_at(size_t place) {
        end(place).send(ethernet_frame(SERVER, CLIENT, 0x9000));
        for (size_t other = 0; other < 4; other++)
            (void)end(other).count_arrived(20);
    }
    [[nodiscard]] uint32_t port(size_t place) const {
        return wires_.port(place);
    }
    [[nodiscard]] const wire_end &end(size_t place) const {
        return wires_.end(place);
    }

    bridged_wires wires_;
    kolt_programs programs_;
    kolt_streams streams_;
    kolt_reason why_;
};

const std::string PLACED_FRAME = ip_frame{}.bytes();
const std::string CIRCLING_FRAME = ethernet_frame(BROADCAST, SERVER, 0x9000);

TEST_P(forwarding_test, AGroupFrameLeavesByTheAcceptingPortsOnce) {
    programs_.set_port(port(1), {.group = 1, .flags = KOLT_PORT_OPEN, .admits = 1});
    end(3).send(CIRCLING_FRAME);
    EXPECT_EQ(CIRCLING_FRAME, end(0).receive());
    EXPECT_EQ(CIRCLING_FRAME, end(2).receive());
    EXPECT_EQ(0U, end(0).count_arrived());
    EXPECT_EQ(0U, end(1).count_arrived());
}

TEST_P(forwarding_test, NothingReturnsToTheNeighbourThatSentIt) {
    for (const std::string &frame : {CIRCLING_FRAME, ethernet_frame(CLIENT, SERVER, 0x9000)}) {
        end(0).send(frame);
        EXPECT_EQ(frame, end(2).receive());
        EXPECT_EQ(frame, end(3).receive());
        EXPECT_THAT(end(1).receive(50), IsEmpty());
    }
}

TEST_P(forwarding_test, AClosedPortIsSilentInBothDirections) {
    programs_.set_port(port(2), {.group = 2, .admits = 1, .accepts = 1});
    end(3).send(CIRCLING_FRAME);
    EXPECT_EQ(CIRCLING_FRAME, end(0).receive());
    EXPECT_THAT(end(2).receive(50), IsEmpty());
    end(2).send(CIRCLING_FRAME);
    EXPECT_THAT(end(3).receive(50), IsEmpty());
}

TEST_P(forwarding_test, AStreamLeavesByThePortItPointsTo) {
    open_port(0, 1, KOLT_PORT_NEED_HA);
    open_port(1, 1, KOLT_PORT_NEED_HA);
    client_at(0);
    ASSERT_TRUE(programs_.hd_set(CLIENT.data(), port(0)));
    end(3).send(PLACED_FRAME);
    EXPECT_EQ(PLACED_FRAME, end(0).receive());
    ASSERT_EQ(1U, streams_.count());
    EXPECT_EQ(port(0), streams_.record(0).target);
    streams_.repoint(0, port(1));
    for (int times = 0; times < 3; times++) {
        end(3).send(PLACED_FRAME);
        EXPECT_EQ(PLACED_FRAME, end(1).receive());
    }
    EXPECT_EQ(0U, end(0).count_arrived());
    EXPECT_EQ(0U, end(1).count_arrived());
    streams_.end_period();
    EXPECT_EQ(4U, streams_.record(0).tx_packets) << "each frame once";
    EXPECT_EQ(4 * PLACED_FRAME.size(), streams_.record(0).tx_bytes);
}

TEST_P(forwarding_test, AStreamOfAClosedPortGoesNowhere) {
    open_port(0, 1, KOLT_PORT_NEED_HA);
    client_at(0);
    ASSERT_TRUE(programs_.hd_set(CLIENT.data(), port(0)));
    end(3).send(PLACED_FRAME);
    EXPECT_EQ(PLACED_FRAME, end(0).receive());
    streams_.repoint(0, port(1));
    programs_.set_port(port(1), {.group = 1});
    end(3).send(PLACED_FRAME);
    EXPECT_EQ(PLACED_FRAME, end(0).receive()) << "the bridge's choice stands";
}

TEST_P(forwarding_test, AStreamFollowsItsOtherDirection) {
    open_port(0, 1, KOLT_PORT_FOLLOW);
    open_port(1, 1, KOLT_PORT_FOLLOW);
    client_at(0);
    const std::string up = ip_frame{}.answer().bytes();
    end(1).send(up);
    EXPECT_EQ(up, end(3).receive());
    client_at(0);
    end(3).send(PLACED_FRAME);
    EXPECT_EQ(PLACED_FRAME, end(1).receive());
    EXPECT_EQ(0U, end(0).count_arrived());
}

TEST_P(forwarding_test, AFrameInPagesIsReadToo) {
    open_port(0, 1, KOLT_PORT_NEED_HA);
    open_port(1, 1, KOLT_PORT_NEED_HA);
    client_at(0);
    ASSERT_TRUE(programs_.hd_set(CLIENT.data(), port(0)));
    for (const uint8_t version : {uint8_t{4}, uint8_t{6}}) {
        const std::string large = ip_frame{.version = version, .payload = 6000}.bytes();
        end(3).send_in_pages(large);
        EXPECT_TRUE(large == end(0).receive());
    }
    EXPECT_EQ(2U, streams_.count());
    const std::string up = ip_frame{.payload = 6000}.answer().bytes();
    end(0).send_in_pages(up);
    EXPECT_TRUE(up == end(3).receive());
    streams_.end_period();
    EXPECT_EQ(up.size(), streams_.record(0).rx_bytes);
}

TEST_P(forwarding_test, AFrameCutShortAnywhereIsForwardedWithoutAStream) {
    open_port(0, 1, KOLT_PORT_FOLLOW);
    for (const uint8_t version : {uint8_t{4}, uint8_t{6}})
        for (const uint8_t protocol : {uint8_t{6}, uint8_t{17}}) {
            const std::string whole = ip_frame{.version = version, .protocol = protocol, .payload = 0}.bytes();
            const size_t before = streams_.count();
            for (size_t size = 15; size < whole.size(); size++) {
                end(0).send(whole.substr(0, size));
                EXPECT_EQ(whole.substr(0, size), end(3).receive());
            }
            EXPECT_EQ(before, streams_.count());
            end(0).send(whole);
            EXPECT_EQ(whole, end(3).receive());
            EXPECT_EQ(before + 1, streams_.count());
        }
}

TEST_P(forwarding_test, ATaggedFrameIsForwardedWithoutAStream) {
    open_port(0, 1, KOLT_PORT_NEED_HA | KOLT_PORT_FOLLOW);
    open_port(2, 2, KOLT_PORT_FOLLOW);
    client_at(0);
    ASSERT_TRUE(programs_.hd_set(CLIENT.data(), port(0)));
    const std::string tagged =
        PLACED_FRAME.substr(0, 12) + std::string("\x81\x00\x00\x05", 4) + PLACED_FRAME.substr(12);
    end(2).send(tagged);
    EXPECT_FALSE(end(0).receive().empty());
    EXPECT_EQ(0U, streams_.count());
}

TEST_P(forwarding_test, AProbeComesBackFromAClosedPort) {
    programs_.set_port(port(0), {});
    const kolt_port_identity identity{.node = {9}, .mac = {2, 1, 2, 3, 4, 5}, .valid = 0};
    ASSERT_TRUE(programs_.set_identity(port(0), &identity));
    end(0).send(probe(CLIENT));
    const std::string echo = end(0).receive();
    ASSERT_EQ(probe(CLIENT).size(), echo.size());
    EXPECT_EQ(KOLT_NEIGHBOUR_ECHO, echo[15]);
    EXPECT_EQ(std::string("\2\1\2\3\4\5", 6), echo.substr(6, 6));
    EXPECT_EQ(probe(CLIENT).substr(16, 16), echo.substr(16, 16));
    for (size_t other = 1; other < 4; other++)
        EXPECT_EQ(0U, end(other).count_arrived(20));
}

TEST_P(forwarding_test, AHelloReachesItsListenerAndNobodyElse) {
    const std::string hello = probe(CLIENT, KOLT_NEIGHBOUR_HELLO);
    programs_.set_port(port(0), {});
    const wire_end listener("p0", KOLT_NEIGHBOUR_ETHERTYPE);
    end(0).send(hello);
    EXPECT_EQ(hello, listener.receive());
    for (size_t other = 0; other < 4; other++)
        EXPECT_EQ(0U, end(other).count_arrived(20));
    listener.send(hello);
    EXPECT_EQ(hello, end(0).receive());
}

// Wires 0 and 1 joined at their far ends by a bridge that floods: what split horizon does not stop goes round for ever.
TEST_P(forwarding_test, ACircleOfTwoLinksCarriesNothingRound) {
    make_bridge("br1");
    bring_up("br1");
    put_into_bridge("e0", "br1");
    put_into_bridge("e1", "br1");
    for (const char *far : {"e0", "e1"})
        wait_for_forwarding(far);
    programs_.set_port(port(1), {.group = 1, .flags = KOLT_PORT_OPEN});
    for (int times = 0; times < 100; times++)
        end(3).send(times % 2 == 0 ? CIRCLING_FRAME : ethernet_frame(CLIENT, SERVER, 0x9000));
    usleep(50000);
    const size_t arrived = end(0).count_arrived(20);
    EXPECT_LT(0U, arrived) << "nothing has come to the circle";
    EXPECT_GT(500U, arrived);
    EXPECT_GT(500U, end(1).count_arrived(20));
    EXPECT_GT(500U, end(3).count_arrived(20));
}

INSTANTIATE_TEST_SUITE_P(Ways, forwarding_test, testing::Values(kolt_hooking::CLSACT, kolt_hooking::TCX),
                         [](const auto &way) { return way.param == kolt_hooking::TCX ? "Tcx" : "Clsact"; });

} // namespace
