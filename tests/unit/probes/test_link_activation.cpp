// The frame that keeps a link awake, and how often it is tried.
#include "probe_test.h"

#include "probes/link_activation.h"

#include <arpa/inet.h>
#include <cstring>
#include <linux/if_packet.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint16_t ETHERTYPE = 0x893A;
constexpr mac_address PEER{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
constexpr mac_address OWN{0x02, 0x11, 0x22, 0x33, 0xAB, 0xCD};

std::string bytes_of(const mac_address &mac) {
    return {mac.begin(), mac.end()};
}

class LinkActivation : public probe {
protected:
    // An interface with a known MAC; its making leaves no trace in what the fakes recorded.
    static test_interface wlan(const std::string &name) {
        test_interface tap(name);
        tap.set_mac(OWN.data());
        netlink.other_sockets.clear();
        return tap;
    }

    static log_line sent(const std::string &name, int length) {
        return {LOG_DEBUG, "kolt_activate_link",
                "Dump: send dummy packet, ifname: " + name + ", if_mac: AB-CD len: " + std::to_string(length)};
    }
};

TEST_F(LinkActivation, FrameOf1024BytesIsSentToThePeer) {
    const test_interface tap = wlan("wlan0");
    EXPECT_EQ(kolt_activate_link("wlan0", PEER.data()), 1);
    const std::string frame = tap.sent_frame(ETHERTYPE);
    ASSERT_EQ(frame.size(), 1024U);
    EXPECT_EQ(frame.substr(0, 6), bytes_of(PEER));
    EXPECT_EQ(frame.substr(6, 6), bytes_of(OWN));
    EXPECT_EQ(frame.substr(12, 2), "\x89\x3A");
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(LinkActivation, SocketIsARawOneOfTheEtherType) {
    const test_interface tap = wlan("wlan0");
    EXPECT_EQ(kolt_activate_link("wlan0", PEER.data()), 1);
    EXPECT_EQ(netlink.other_sockets,
              (std::vector<fake_netlink::opened>{{AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETHERTYPE)},
                                                 {AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0}}));
}

TEST_F(LinkActivation, DestinationNamesTheInterfaceAndThePeer) {
    const test_interface tap("wlan1", 0x01020304);
    EXPECT_EQ(kolt_activate_link("wlan1", PEER.data()), 1);
    ASSERT_EQ(netlink.packets.size(), 1U);
    std::string expected(20, '\0');
    const uint16_t family = AF_PACKET;
    const uint32_t index = 0x01020304;
    memcpy(expected.data(), &family, 2);
    memcpy(expected.data() + 2, "\x89\x3A", 2);
    memcpy(expected.data() + 4, &index, 4);
    memcpy(expected.data() + 12, PEER.data(), 6);
    EXPECT_EQ(netlink.packets[0].address, expected);
    EXPECT_EQ(netlink.packets[0].bytes.size(), 1024U);
}

TEST_F(LinkActivation, AttemptIsLoggedAtDumpLevel) {
    const test_interface tap = wlan("wlan0");
    const at_log_level dump(3);
    EXPECT_EQ(kolt_activate_link("wlan0", PEER.data()), 1);
    EXPECT_THAT(logged(), ElementsAre(sent("wlan0", 1024)));
}

TEST_F(LinkActivation, AttemptIsNotLoggedBelowDumpLevel) {
    const test_interface tap = wlan("wlan0");
    const at_log_level debug(2);
    EXPECT_EQ(kolt_activate_link("wlan0", PEER.data()), 1);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(LinkActivation, FirstSendFailsSecondSucceedsAndThereIsNoThird) {
    const test_interface tap = wlan("wlan0");
    const at_log_level dump(3);
    netlink.packet_results = {-1}; // the second goes out
    EXPECT_EQ(kolt_activate_link("wlan0", PEER.data()), 1);
    EXPECT_THAT(logged(), ElementsAre(sent("wlan0", -1), sent("wlan0", 1024)));
    ASSERT_EQ(netlink.packets.size(), 2U);
    EXPECT_EQ(netlink.packets[0].bytes, netlink.packets[1].bytes);
    EXPECT_EQ(netlink.packets[0].address, netlink.packets[1].address);
    EXPECT_EQ(tap.sent_frame(ETHERTYPE), netlink.packets[1].bytes);
}

struct attempts_row {
    const char *name;
    std::vector<int> results;
    std::vector<int> logged;
};

class LinkAttempts : public probe_rows<attempts_row> {};

TEST_P(LinkAttempts, AttemptsEndAtTheFirstThatSendsAnything) {
    const test_interface tap("wlan0");
    const at_log_level dump(3);
    netlink.packet_results.assign(GetParam().results.begin(), GetParam().results.end());
    EXPECT_EQ(kolt_activate_link("wlan0", PEER.data()), 1);
    EXPECT_EQ(netlink.packets.size(), GetParam().logged.size());
    const lines texts = logged_texts("kolt_activate_link");
    ASSERT_EQ(texts.size(), GetParam().logged.size());
    for (size_t i = 0; i < texts.size(); i++)
        EXPECT_THAT(texts[i], testing::EndsWith(" len: " + std::to_string(GetParam().logged[i])));
}

INSTANTIATE_TEST_SUITE_P(LinkActivation, LinkAttempts,
                         testing::Values(attempts_row{"FirstSucceeds", {1024, 1024, 1024}, {1024}},
                                         attempts_row{"PartOfAFrameIsASuccess", {1, 1024, 1024}, {1}},
                                         attempts_row{"NothingSentIsNoSuccess", {0, 1024, 1024}, {0, 1024}},
                                         attempts_row{"ThirdSucceeds", {-1, 0, 1024, 1024}, {-1, 0, 1024}},
                                         attempts_row{"NeverMoreThanThree", {-1, -1, -1, 1024}, {-1, -1, -1}},
                                         attempts_row{"ThreeOfNothing", {0, 0, 0, 1024}, {0, 0, 0}}),
                         row_name<attempts_row>);

TEST_F(LinkActivation, UnknownInterfaceIsTriedThreeTimes) {
    const at_log_level dump(3);
    const int kept = dup(0);
    close(kept);
    EXPECT_EQ(kolt_activate_link("none0", PEER.data()), 1);
    EXPECT_EQ(logged_texts("kolt_get_bridge_mac"), lines{"Error: ioctl"});
    const lines texts = logged_texts("kolt_activate_link");
    ASSERT_EQ(texts.size(), 3U);
    for (const std::string &text : texts) {
        EXPECT_THAT(text, testing::StartsWith("Dump: send dummy packet, ifname: none0, if_mac: "));
        EXPECT_THAT(text, testing::EndsWith(" len: -1"));
    }
    EXPECT_EQ(close(kept + 1), 0) << "the one that the failed MAC query leaves open";
}

TEST_F(LinkActivation, NullArgumentsOpenNothing) {
    const at_log_level dump(3);
    EXPECT_EQ(kolt_activate_link(nullptr, PEER.data()), 0);
    EXPECT_EQ(kolt_activate_link("wlan0", nullptr), 0);
    EXPECT_EQ(kolt_activate_link(nullptr, nullptr), 0);
    EXPECT_THAT(netlink.other_sockets, IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(LinkActivation, MissingSocketIsLogged) {
    const test_interface tap = wlan("wlan0");
    const at_log_level dump(3);
    {
        const no_descriptors none;
        EXPECT_EQ(kolt_activate_link("wlan0", PEER.data()), 0);
    }
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_activate_link", "Error: create socket failed"}));
    EXPECT_THAT(netlink.packets, IsEmpty());
}

TEST_F(LinkActivation, LongNamesAreBounded) {
    const test_interface tap = wlan("abcdefghijklmno");
    const at_log_level dump(3);
    EXPECT_EQ(kolt_activate_link("abcdefghijklmno", PEER.data()), 1);
    EXPECT_THAT(logged(), ElementsAre(sent("abcdefghijklmno", 1024)));
    clear_log();
    // A field of sixteen characters without a terminator names no interface.
    const char field[32] = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p', '!'};
    EXPECT_EQ(kolt_activate_link(field, PEER.data()), 1);
    EXPECT_EQ(logged(), std::vector<log_line>(3, sent("abcdefghijklmnop", -1)));
}

} // namespace
