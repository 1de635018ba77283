// What the rest of the node is told of its links: when, and when again.
#include "bridged/report.h"

#include "linux/decide/support_node.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char TOLD[] = "/tmp/told"; // a line an event, of whichever process
constexpr char NO_BUS[] = "/tmp/no-bus";
constexpr char RUN_FOLDER[] = "/tmp/run";

// The members in the order in which they are listed here.
std::string line_of(const char *event, blob_attr *message) {
    constexpr blobmsg_policy MEMBERS[] = {{"mode", BLOBMSG_TYPE_STRING},        {"LINK_WIFI_2G", BLOBMSG_TYPE_INT32},
                                          {"LINK_WIFI_5G", BLOBMSG_TYPE_INT32}, {"LINK_WIFI_5G_2", BLOBMSG_TYPE_INT32},
                                          {"LINK_PLC", BLOBMSG_TYPE_INT32},     {"LINK_ETH", BLOBMSG_TYPE_INT32}};
    blob_attr *found[std::size(MEMBERS)] = {};
    (void)blobmsg_parse(MEMBERS, std::size(MEMBERS), found, blob_data(message),
                        static_cast<unsigned>(blob_len(message)));
    std::string line = event;
    for (size_t i = 0; i < std::size(MEMBERS); i++) {
        if (found[i] != nullptr)
            line += std::string(" ") + MEMBERS[i].name + "=" +
                    (MEMBERS[i].type == BLOBMSG_TYPE_STRING ? blobmsg_get_string(found[i])
                                                            : std::to_string(blobmsg_get_u32(found[i])));
    }
    return line;
}

} // namespace

// In place of the bus. What is told is told by child processes, of which only files come back.
extern "C" {
ubus_context *__wrap_ubus_connect(const char *path);
int __wrap_ubus_send_event(ubus_context *ctx, const char *id, blob_attr *data);

ubus_context *__wrap_ubus_connect(const char * /*path*/) {
    static ubus_context context;
    return access(NO_BUS, F_OK) == 0 ? nullptr : &context;
}

int __wrap_ubus_send_event(ubus_context * /*ctx*/, const char *id, blob_attr *data) {
    std::ofstream(TOLD, std::ios::app) << line_of(id, data) << std::endl;
    return 0;
}
}

namespace {

constexpr char NO_LINK[] = "kolt.link_state LINK_WIFI_2G=0 LINK_WIFI_5G=0 LINK_WIFI_5G_2=0 LINK_PLC=0 LINK_ETH=0";
constexpr char ONE_LINK[] = "kolt.link_state LINK_WIFI_2G=0 LINK_WIFI_5G=1 LINK_WIFI_5G_2=0 LINK_PLC=0 LINK_ETH=0";
constexpr char BY_WIRE[] = "kolt.link_state LINK_WIFI_2G=0 LINK_WIFI_5G=1 LINK_WIFI_5G_2=0 LINK_PLC=0 LINK_ETH=1";
constexpr char CONFIGURE[] = "kolt.configure mode=current";

class Report : public testing::Test {
protected:
    Report() {
        (void)uloop_init();
        EXPECT_EQ(mkdir(RUN_FOLDER, 0755), 0);
        self_->settings.run_folder = RUN_FOLDER;
        bus_open(&self_->bus, RUN_FOLDER);
        self_->bridge_count = 1;
        self_->bridges[0].owner = self_.get();
        add_port(0, 10, "wlan1.1", KOLT_LINK_5G);
        add_port(1, 11, "eth0", KOLT_LINK_ETHERNET);
        report_links(self_.get());
        (void)told();
    }
    ~Report() override {
        bus_stop(&self_->bus);
        uloop_done();
    }

    void add_port(size_t place, uint32_t ifindex, const char *name, kolt_link_type type) {
        node_port &port = self_->bridges[0].ports.at(place);
        port.ifindex = ifindex;
        kolt_copy_name(port.name, name);
        config_interface &interface = self_->configured.interfaces[self_->configured.interface_num++];
        kolt_copy_name(interface.name, name);
        interface.type = type;
        node_.port(ifindex, {.type = static_cast<uint8_t>(type), .class_ = 0, .group = PORT_NONRELAY});
    }
    void report() {
        self_->bridges[0].links = node_.state;
        report_links(self_.get());
    }
    // Another process goes on, which does not know what the bus was told.
    void begin_again() {
        bus_stop(&self_->bus);
        self_->bus = {};
        self_->reported = self_->told = {};
        report();
        EXPECT_THAT(told(), IsEmpty()) << "the start is not complete";
        report_all(self_.get());
    }
    // A parent by the radio, and one link more to it by wire.
    void join() {
        node_.join({.ifindex = 10});
    }
    void add_wire() {
        node_.puppets.push_back({.ifindex = 11, .port = 51});
        node_.pass(300);
    }

    // Lets the child processes end, at most for `ms`; returns what they have told since the last time.
    std::vector<std::string> told(int ms = 1000) {
        for (int turn = 0; turn < ms && self_->bus.child_pid != 0; turn++) {
            (void)uloop_run_timeout(0);
            usleep(1000);
        }
        std::vector<std::string> lines;
        std::ifstream file(TOLD);
        for (std::string line; std::getline(file, line);)
            lines.push_back(line);
        (void)unlink(TOLD);
        return lines;
    }

    std::unique_ptr<bridged> self_ = std::make_unique<bridged>();
    one_node node_;
};

TEST_F(Report, NodeWithoutLinksHasNothingToTell) {
    report();
    EXPECT_THAT(told(), IsEmpty());
    EXPECT_EQ(self_->bus.child_pid, 0);
}

TEST_F(Report, AllIsToldAtTheFirstStart) {
    bus_forget(RUN_FOLDER);
    report_all(self_.get());
    EXPECT_THAT(told(), ElementsAre(CONFIGURE, NO_LINK));
}

TEST_F(Report, LinkIsToldWhenItComesAndWhenItGoes) {
    join();
    report();
    EXPECT_THAT(told(), ElementsAre(ONE_LINK));
    report();
    EXPECT_THAT(told(), IsEmpty()) << "nothing has changed";
    node_.puppets[0].talks = node_.puppets[0].echoes = false;
    node_.pass(500);
    report();
    EXPECT_THAT(told(), ElementsAre(NO_LINK));
}

TEST_F(Report, EthernetUplinkHasKoltProgramItsBridgesAnew) {
    join();
    report();
    (void)told();
    add_wire();
    report();
    EXPECT_THAT(told(), ElementsAre(CONFIGURE, BY_WIRE));
    EXPECT_TRUE(kolt_name_equal(self_->reported.ethernet_uplink, "eth0"));
    EXPECT_EQ(self_->reported.ethernet_neighbours, 1U);
}

// Or kolt would program its bridges, upon which it would be told again, for ever.
TEST_F(Report, NothingIsToldAgainWhenAFileCannotBeWritten) {
    ASSERT_EQ(mkdir("/tmp/wifi_runtime_info.5g", 0755), 0);
    join();
    report();
    add_wire();
    report();
    EXPECT_THAT(told(), ElementsAre(ONE_LINK, CONFIGURE, BY_WIRE));
    report();
    EXPECT_THAT(told(), IsEmpty());
    ASSERT_EQ(rmdir("/tmp/wifi_runtime_info.5g"), 0);
    report();
    EXPECT_EQ(access("/tmp/wifi_runtime_info.5g", F_OK), 0) << "it is written as soon as that is possible";
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Report, AnotherModeHasKoltProgramItsBridgesAnew) {
    self_->mode = KOLT_MODE_FAP;
    report();
    EXPECT_THAT(told(), ElementsAre(CONFIGURE, NO_LINK));
}

TEST_F(Report, NeighbourThatIsNoParentIsNoLinkUpwards) {
    node_.puppets = {{.ifindex = 10,
                      .id = WORSE,
                      .root = OWN_ID,
                      .parent = node_mac(OWN_ID),
                      .hops = 1,
                      .link_flags = LINK_ALIVE | LINK_UPWARD}};
    node_.pass(300);
    ASSERT_EQ(node_.role(10), ROLE_DOWNLINK);
    report();
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Report, TellsWhetherTheParentIsTheRoot) {
    join();
    report();
    EXPECT_TRUE(self_->reported.links[KOLT_LINK_5G].to_root);
    const uint8_t best[] = {2, 0, 0, 0, 0, 1};
    EXPECT_EQ(kolt_mac_equal(self_->reported.parent, best), 1);
    EXPECT_EQ(kolt_mac_equal(self_->reported.root, best), 1);
    EXPECT_EQ(kolt_mac_equal(self_->reported.links[KOLT_LINK_5G].neighbour, best), 1);
}

TEST_F(Report, OnlyTheLatestStateIsToldWhenTheBusIsBack) {
    std::ofstream(NO_BUS) << "";
    join();
    report();
    EXPECT_THAT(told(), IsEmpty());
    EXPECT_TRUE(self_->bus.retry.pending);
    add_wire();
    report();
    EXPECT_EQ(self_->bus.child_pid, 0) << "it is not tried more often than every second";
    ASSERT_EQ(unlink(NO_BUS), 0);
    (void)uloop_timeout_set(&self_->bus.retry, 0);
    (void)uloop_run_timeout(0);
    EXPECT_THAT(told(), ElementsAre(CONFIGURE, BY_WIRE));
}

TEST_F(Report, WhatComesWhileAChildTellsIsToldAfterIt) {
    join();
    report();
    add_wire();
    report();
    EXPECT_THAT(told(), ElementsAre(ONE_LINK, CONFIGURE, BY_WIRE));
}

TEST_F(Report, WhatAProcessThatTellsInVainWasNotGivenIsToldToo) {
    std::ofstream(NO_BUS) << "";
    join();
    report();
    add_wire();
    report();
    EXPECT_THAT(told(), IsEmpty());
    ASSERT_EQ(unlink(NO_BUS), 0);
    (void)uloop_timeout_set(&self_->bus.retry, 0);
    (void)uloop_run_timeout(0);
    EXPECT_THAT(told(), ElementsAre(CONFIGURE, BY_WIRE));
}

TEST_F(Report, LinksThatTheProcessBeforeHasToldAreNotToldAgain) {
    join();
    report();
    EXPECT_THAT(told(), ElementsAre(ONE_LINK));
    begin_again();
    EXPECT_THAT(told(), ElementsAre(CONFIGURE));
}

TEST_F(Report, LinksThatHaveChangedSinceAreTold) {
    join();
    report();
    EXPECT_THAT(told(), ElementsAre(ONE_LINK));
    add_wire();
    begin_again();
    EXPECT_THAT(told(), ElementsAre(CONFIGURE, BY_WIRE));
}

TEST_F(Report, LinksThatTheProcessBeforeHasToldInVainAreTold) {
    std::ofstream(NO_BUS) << "";
    join();
    report();
    EXPECT_THAT(told(), IsEmpty());
    ASSERT_EQ(unlink(NO_BUS), 0);
    begin_again();
    EXPECT_THAT(told(), ElementsAre(CONFIGURE, ONE_LINK));
}

TEST_F(Report, ConfigurationWithoutABridgeHasNoLinks) {
    self_->bridge_count = 0;
    join();
    report();
    EXPECT_THAT(told(), IsEmpty());
}

} // namespace
