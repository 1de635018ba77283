// The ports that clients are pinned to, and who is behind a relay port.
#include "client_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class HdClients : public client_probe {};

TEST_F(HdClients, HdPortIsThatOfTheFirstEntryOfTheClient) {
    const mac_address macs[] = {FIRST, OTHER, numbered_mac(1)};
    for (size_t i = 0; i < 3; i++) {
        memcpy((*array_)[i].mac, macs[i].data(), 6);
        (*array_)[i].hd_port = NO_HD;
    }
    platform.add_entry(HD_CODE, raw_hd(OTHER, FIRST, 70001)); // the second MAC is nobody's key
    platform.add_entry(HD_CODE, raw_hd(FIRST, OTHER, 70002));
    platform.add_entry(HD_CODE, raw_hd(OTHER, OTHER, 70003));
    EXPECT_EQ(kolt_get_hd_client_list("br-lan", array_->data(), 3), 1);
    EXPECT_EQ((*array_)[0].hd_port, 70002U);
    EXPECT_EQ((*array_)[1].hd_port, 70001U);
    EXPECT_EQ((*array_)[2].hd_port, NO_HD);
    EXPECT_THAT(platform.calls, ElementsAre("bridgeAllocTableBuf(120000, br-lan)",
                                            "bridgeTableAction(br-lan, 1, 5000, 0)", "bridgeFreeTableBuf()"));
}

TEST_F(HdClients, HdPortsBeyondTheCountStayAsTheyAre) {
    memcpy((*array_)[0].mac, FIRST.data(), 6);
    memcpy((*array_)[1].mac, FIRST.data(), 6);
    platform.add_entry(HD_CODE, raw_hd(FIRST, OTHER, 5));
    EXPECT_EQ(kolt_get_hd_client_list("br-lan", array_->data(), 1), 1);
    EXPECT_EQ((*array_)[0].hd_port, 5U);
    EXPECT_EQ((*array_)[1].hd_port, 0U);
    EXPECT_EQ(kolt_get_hd_client_list("br-lan", array_->data(), 0), 1);
}

TEST_F(HdClients, HdPortsOf255ClientsAreSet) {
    for (uint32_t i = 0; i < 256; i++) {
        memcpy((*array_)[i].mac, numbered_mac(i).data(), 6);
        (*array_)[i].hd_port = NO_HD;
        platform.add_entry(HD_CODE, raw_hd(numbered_mac(i), OTHER, 1000 + i));
    }
    EXPECT_EQ(kolt_get_hd_client_list("br-lan", array_->data(), 255), 1);
    for (uint32_t i = 0; i < 255; i++)
        EXPECT_EQ((*array_)[i].hd_port, 1000 + i);
    EXPECT_EQ((*array_)[255].hd_port, NO_HD);
}

TEST_F(HdClients, HdTableThatCannotBeFetchedIsLogged) {
    platform.fail("bridgeTableAction");
    EXPECT_EQ(kolt_get_hd_client_list("br-lan", array_->data(), 1), 0);
    EXPECT_THAT(logged(), ElementsAre(error("kolt_get_hd_client_list", "get hd table")));
}

TEST_F(HdClients, ClientListIsTheForwardingTableWithHdPorts) {
    const test_interface eth0("eth0", 11);
    ports_.add("eth0", 0, 1, KOLT_LINK_2G);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 11));
    platform.add_entry(FDB_CODE, raw_fdb(OTHER, 11));
    platform.add_entry(HD_CODE, raw_hd(OTHER, FIRST, 77));
    EXPECT_THAT(all_clients(),
                ElementsAre(client{FIRST, KOLT_LINK_2G, 1, 11, NO_HD}, client{OTHER, KOLT_LINK_2G, 1, 11, 77}));
    EXPECT_THAT(platform.calls,
                ElementsAre("bridgeAllocTableBuf(80000, br-lan)", "bridgeTableAction(br-lan, 2, 5000, 0)",
                            "bridgeFreeTableBuf()", "bridgeAllocTableBuf(120000, br-lan)",
                            "bridgeTableAction(br-lan, 1, 5000, 0)", "bridgeFreeTableBuf()"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(HdClients, ClientListIsReturnedEvenWithoutHdPorts) {
    const test_interface eth0("eth0", 11);
    ports_.add("eth0", 0, 0);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 11));
    platform.fail("bridgeTableAction", 1, 2);
    EXPECT_THAT(all_clients(), ElementsAre(client{FIRST, KOLT_LINK_ETHERNET, 0, 11, NO_HD}));
    EXPECT_THAT(logged(), ElementsAre(error("kolt_get_hd_client_list", "get hd table"),
                                      error("kolt_get_client_list", "update hd & hc port")));
}

TEST_F(HdClients, ClientListIsEmptyWithoutTheForwardingTable) {
    platform.fail("bridgeTableAction", 1, 1);
    EXPECT_THAT(all_clients(), IsEmpty());
    EXPECT_EQ(logged().front(), error("kolt_get_fdb_client_list", "get fdb table"));
}

struct relay_row {
    const char *name;
    mac_address mac;
    int expected;
};

class RelayStream : public probe_rows<relay_row, client_probe> {};

TEST_P(RelayStream, StreamOfAClientWithARelayFlagIsARelayStream) {
    const mac_address macs[] = {numbered_mac(0), numbered_mac(1), numbered_mac(2),
                                numbered_mac(3), numbered_mac(3), numbered_mac(4)};
    const uint8_t relays[] = {1, 0, 2, 0, 1, 1};
    for (size_t i = 0; i < 6; i++) {
        memcpy((*array_)[i].mac, macs[i].data(), 6);
        (*array_)[i].relay = relays[i];
    }
    const kolt_client_list list{5, array_->data()};
    EXPECT_EQ(kolt_check_relay_stream(&list, GetParam().mac.data()), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Clients, RelayStream,
                         testing::Values(relay_row{"RelayFlagOne", numbered_mac(0), 1},
                                         relay_row{"RelayFlagZero", numbered_mac(1), 0},
                                         relay_row{"AnyRelayFlagButZero", numbered_mac(2), 1},
                                         relay_row{"AnyClientWithTheMac", numbered_mac(3), 1},
                                         relay_row{"BehindTheCount", numbered_mac(4), 0},
                                         relay_row{"NotListed", numbered_mac(5), 0}),
                         row_name<relay_row>);

TEST_F(HdClients, RelayStreamOfNullArgumentsIsNone) {
    (*array_)[0].relay = 1;
    const kolt_client_list list{1, array_->data()};
    const mac_address zero{};
    EXPECT_EQ(kolt_check_relay_stream(&list, zero.data()), 1);
    EXPECT_EQ(kolt_check_relay_stream(nullptr, zero.data()), 0);
    EXPECT_EQ(kolt_check_relay_stream(&list, nullptr), 0);
    EXPECT_EQ(kolt_check_relay_stream(nullptr, nullptr), 0);
}

} // namespace
