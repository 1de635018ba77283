// The roles of Ethernet ports: which has a mesh neighbour, which carries the backhaul traffic.
#include "probe_test.h"

#include "core/config.h"
#include "probes/uci_options.h"

#include <cstring>
#include <syslog.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char NODE_PACKAGE[] = "/etc/config/tolmux";

void write_option(const std::string &option, const std::string &value) {
    write_file(NODE_PACKAGE, "config tolmux 'tolmux'\n\toption " + option + " '" + value + "'\n");
}

struct neighbour_row {
    const char *name;
    const char *mask;
    const char *port;
    int expected;
};

class EthNeighbour : public probe_rows<neighbour_row> {};

TEST_P(EthNeighbour, PortHasANeighbourWhenItsBitIsSet) {
    remove_file("/var/state/tolmux");
    write_option("eth_HasNeigh", GetParam().mask);
    platform.eths = {"eth0", "eth1", "eth2", "eth3", "eth4", "eth5", "eth6", "eth7", "eth8", "eth9"};
    platform.eth_port_num = 10;
    EXPECT_EQ(kolt_check_eth_has_neigh(GetParam().port), GetParam().expected);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(platform.calls, (lines{"uci_get_profile_eths(10)", "uci_get_eth_port_num()"}));
}

INSTANTIATE_TEST_SUITE_P(
    UciOptions, EthNeighbour,
    testing::Values(
        neighbour_row{"FiveMarksPort0", "5", "eth0", 1}, neighbour_row{"FiveDoesNotMarkPort1", "5", "eth1", 0},
        neighbour_row{"FiveMarksPort2", "5", "eth2", 1}, neighbour_row{"FiveDoesNotMarkPort3", "5", "eth3", 0},
        neighbour_row{"LastBit", "512", "eth9", 1}, neighbour_row{"LastBitIsNotTheOneBefore", "512", "eth8", 0},
        neighbour_row{"AllButTheLastBit", "511", "eth9", 0}, neighbour_row{"Zero", "0", "eth0", 0},
        neighbour_row{"NoNumber", "x1", "eth0", 0},
        neighbour_row{"NumberEndsAtTheFirstOtherCharacter", "2x", "eth1", 1},
        neighbour_row{"DecimalOnly", "0x2", "eth1", 0}, neighbour_row{"LeadingZerosAreDecimal", "010", "eth1", 1},
        neighbour_row{"LeadingBlank", " 4", "eth2", 1}, neighbour_row{"MinusOneMarksAll", "-1", "eth6", 1}),
    row_name<neighbour_row>);

class EthPorts : public probe {
protected:
    void SetUp() override {
        remove_file("/var/state/tolmux");
        remove_file(NODE_PACKAGE);
        platform.eths = {"eth0", "eth1", "eth2"};
        platform.eth_port_num = 3;
    }

    static log_line unknown(const std::string &name) {
        return {LOG_ERR, "kolt_check_eth_has_neigh", "Error: can't find ifname[" + name + "] in eth_ifname"};
    }
};

TEST_F(EthPorts, NullNameHasNoNeighbour) {
    write_option("eth_HasNeigh", "255");
    EXPECT_EQ(kolt_check_eth_has_neigh(nullptr), 0);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_THAT(platform.calls, IsEmpty());
}

TEST_F(EthPorts, NoPortHasANeighbourAndNobodyIsAskedWithoutTheOption) {
    EXPECT_EQ(kolt_check_eth_has_neigh("eth0"), 0);
    EXPECT_THAT(logged(),
                ElementsAre(log_line{LOG_ERR, "uci_get_value", "Error: fail to get ptr tolmux.tolmux.eth_HasNeigh "}));
    EXPECT_THAT(platform.calls, IsEmpty());
}

TEST_F(EthPorts, FailingProfileMeansNoNeighbour) {
    write_option("eth_HasNeigh", "255");
    for (const int result : {1, -1}) {
        platform.fail("uci_get_profile_eths", result);
        EXPECT_EQ(kolt_check_eth_has_neigh("eth0"), 0) << result;
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(EthPorts, FailingPortCountMeansNoNeighbour) {
    write_option("eth_HasNeigh", "255");
    for (const int result : {1, -1}) {
        platform.fail("uci_get_eth_port_num", result);
        EXPECT_EQ(kolt_check_eth_has_neigh("eth0"), 0) << result;
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(EthPorts, UnknownNameIsJudgedByTheBitAtThePortCount) {
    write_option("eth_HasNeigh", "8");
    EXPECT_EQ(kolt_check_eth_has_neigh("eth7"), 1);
    write_option("eth_HasNeigh", "7");
    EXPECT_EQ(kolt_check_eth_has_neigh("eth7"), 0);
    EXPECT_THAT(logged(), ElementsAre(unknown("eth7"), unknown("eth7")));
}

TEST_F(EthPorts, NamesFromThePortCountOnAreUnknown) {
    platform.eth_port_num = 2;
    write_option("eth_HasNeigh", "4");
    EXPECT_EQ(kolt_check_eth_has_neigh("eth2"), 1) << "bit 2, as for any unknown name";
    write_option("eth_HasNeigh", "3");
    EXPECT_EQ(kolt_check_eth_has_neigh("eth2"), 0);
    EXPECT_THAT(logged(), ElementsAre(unknown("eth2"), unknown("eth2")));
}

TEST_F(EthPorts, UnknownNameBesideTenPortsHasNoNeighbour) {
    platform.eths = {"eth0", "eth1", "eth2", "eth3", "eth4", "eth5", "eth6", "eth7", "eth8", "eth9"};
    platform.eth_port_num = 10;
    write_option("eth_HasNeigh", "2047");
    EXPECT_EQ(kolt_check_eth_has_neigh("eth10"), 0);
    EXPECT_THAT(logged(), ElementsAre(unknown("eth10")));
}

TEST_F(EthPorts, UnknownNameBesideNinePortsIsJudgedByTheLastBit) {
    platform.eths = {"eth0", "eth1", "eth2", "eth3", "eth4", "eth5", "eth6", "eth7", "eth8"};
    platform.eth_port_num = 9;
    write_option("eth_HasNeigh", "512");
    EXPECT_EQ(kolt_check_eth_has_neigh("eth10"), 1);
    EXPECT_THAT(logged(), ElementsAre(unknown("eth10")));
}

TEST_F(EthPorts, OddPortCountsAreBounded) {
    write_option("eth_HasNeigh", "-1");
    for (const int count : {11, 32, 1000000, -1, -2147483647}) {
        platform.eth_port_num = count;
        EXPECT_EQ(kolt_check_eth_has_neigh("eth7"), 0) << count;
    }
    EXPECT_EQ(logged(), std::vector<log_line>(5, unknown("eth7")));
}

TEST_F(EthPorts, PortsWithinTheProfileAreFoundBesideAnOddPortCount) {
    platform.eth_port_num = 11;
    write_option("eth_HasNeigh", "2");
    EXPECT_EQ(kolt_check_eth_has_neigh("eth1"), 1);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(EthPorts, NamesAreComparedOverSixteenCharacters) {
    platform.eths = {"0123456789abcdef", "eth1"};
    platform.eth_port_num = 2;
    write_option("eth_HasNeigh", "1");
    EXPECT_EQ(kolt_check_eth_has_neigh("0123456789abcdefg"), 1);
    EXPECT_EQ(kolt_check_eth_has_neigh("0123456789abcdef"), 1);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(kolt_check_eth_has_neigh("0123456789abcde"), 0);
    EXPECT_THAT(logged(), ElementsAre(unknown("0123456789abcde")));
}

TEST_F(EthPorts, FirstOfTwoEqualNamesCounts) {
    platform.eths = {"eth0", "eth1", "eth1"};
    write_option("eth_HasNeigh", "2");
    EXPECT_EQ(kolt_check_eth_has_neigh("eth1"), 1);
    write_option("eth_HasNeigh", "4");
    EXPECT_EQ(kolt_check_eth_has_neigh("eth1"), 0);
}

// Ports as name, type, group and relay flag, and the relay flags that are left.
struct port {
    const char *name;
    kolt_link_type type;
    uint8_t group;
    uint8_t relay;
    uint8_t left;
};

struct traffic_row {
    const char *name;
    const char *interface;
    std::vector<port> ports;
};

class EthTraffic : public probe_rows<traffic_row> {};

TEST_P(EthTraffic, TrafficPortClearsTheRelayFlagsOfItsGroup) {
    remove_file("/var/state/tolmux");
    write_option("TrafficEthInterface", GetParam().interface);
    config settings;
    std::vector<config_interface *> ports;
    for (size_t i = 0; i < GetParam().ports.size(); i++) {
        const port &row = GetParam().ports[i];
        config_interface &record = settings.interfaces[i];
        memcpy(record.name, row.name, strnlen(row.name, sizeof record.name));
        record.type = row.type;
        record.compat_group = row.group;
        record.relay = row.relay;
        ports.push_back(&record);
    }
    EXPECT_EQ(update_eth_traffic_ports(ports), 1);
    for (size_t i = 0; i < ports.size(); i++)
        EXPECT_EQ(ports[i]->relay, GetParam().ports[i].left) << GetParam().ports[i].name;
    EXPECT_THAT(logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(UciOptions, EthTraffic,
                         testing::Values(traffic_row{"OnlyItsGroup",
                                                     "eth1",
                                                     {{"eth0", KOLT_LINK_ETHERNET, 1, 1, 1},
                                                      {"eth1", KOLT_LINK_ETHERNET, 2, 1, 0},
                                                      {"eth2", KOLT_LINK_ETHERNET, 2, 1, 0}}},
                                         traffic_row{"OnlyEthernetPorts",
                                                     "eth1",
                                                     {{"eth1", KOLT_LINK_ETHERNET, 2, 1, 0},
                                                      {"plc0", KOLT_LINK_PLC, 2, 1, 1},
                                                      {"wlan0", KOLT_LINK_2G, 2, 1, 1},
                                                      {"wlan1", KOLT_LINK_5G, 2, 1, 1},
                                                      {"wlan2", KOLT_LINK_5G_2, 2, 1, 1}}},
                                         traffic_row{"AnyRelayFlagButZero",
                                                     "eth1",
                                                     {{"eth1", KOLT_LINK_ETHERNET, 2, 2, 0},
                                                      {"eth2", KOLT_LINK_ETHERNET, 2, 255, 0},
                                                      {"eth3", KOLT_LINK_ETHERNET, 2, 0, 0}}},
                                         traffic_row{"PortsBeforeIt",
                                                     "eth3",
                                                     {{"eth0", KOLT_LINK_ETHERNET, 7, 1, 0},
                                                      {"eth1", KOLT_LINK_ETHERNET, 6, 1, 1},
                                                      {"eth3", KOLT_LINK_ETHERNET, 7, 1, 0}}},
                                         traffic_row{
                                             "OfAnotherType",
                                             "wlan0",
                                             {{"wlan0", KOLT_LINK_2G, 3, 1, 1}, {"eth0", KOLT_LINK_ETHERNET, 3, 1, 0}}},
                                         traffic_row{"FirstOfTwoEqualNames",
                                                     "eth1",
                                                     {{"eth1", KOLT_LINK_ETHERNET, 2, 1, 0},
                                                      {"eth1", KOLT_LINK_ETHERNET, 3, 1, 1},
                                                      {"eth2", KOLT_LINK_ETHERNET, 3, 1, 1}}},
                                         traffic_row{"NameIsComparedExactly",
                                                     "eth1",
                                                     {{"eth10", KOLT_LINK_ETHERNET, 2, 1, 1},
                                                      {"eth", KOLT_LINK_ETHERNET, 3, 1, 1},
                                                      {"ETH1", KOLT_LINK_ETHERNET, 4, 1, 1}}},
                                         traffic_row{"UnknownNameMeansGroupZero",
                                                     "eth9",
                                                     {{"eth0", KOLT_LINK_ETHERNET, 0, 1, 0},
                                                      {"eth1", KOLT_LINK_ETHERNET, 1, 1, 1},
                                                      {"plc0", KOLT_LINK_PLC, 0, 1, 1}}},
                                         traffic_row{"LongNameMeansGroupZero",
                                                     "a_name_of_more_than_23_characters",
                                                     {{"eth0", KOLT_LINK_ETHERNET, 0, 1, 0}}},
                                         traffic_row{"NameOfSixteenCharacters",
                                                     "0123456789abcdef",
                                                     {{"eth0", KOLT_LINK_ETHERNET, 2, 1, 0},
                                                      {"0123456789abcdef", KOLT_LINK_ETHERNET, 2, 1, 0},
                                                      {"0123456789abcde", KOLT_LINK_ETHERNET, 0, 1, 1}}},
                                         traffic_row{"NoPorts", "eth1", {}}),
                         row_name<traffic_row>);

TEST_F(EthPorts, TrafficPortsStayAsTheyAreWithoutTheOption) {
    config settings;
    config_interface *ports[] = {&settings.interfaces[0]};
    settings.interfaces[0].relay = 1;
    EXPECT_EQ(update_eth_traffic_ports(ports), 0);
    EXPECT_EQ(settings.interfaces[0].relay, 1);
    EXPECT_THAT(logged_texts(), ElementsAre("Error: fail to get ptr tolmux.tolmux.TrafficEthInterface "));
}

TEST_F(EthPorts, TrafficPortsBeyondTheCountStayAsTheyAre) {
    write_option("TrafficEthInterface", "eth0");
    config settings;
    config_interface *ports[] = {&settings.interfaces[0], &settings.interfaces[1]};
    for (config_interface *record : ports)
        record->relay = 1;
    EXPECT_EQ(update_eth_traffic_ports(port_span(ports).first(1)), 1);
    EXPECT_EQ(settings.interfaces[0].relay, 0);
    EXPECT_EQ(settings.interfaces[1].relay, 1);
}

} // namespace
