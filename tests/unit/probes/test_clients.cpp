// The clients that a forwarding table tells.
#include "client_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Clients : public client_probe {};

TEST_F(Clients, ForwardingEntriesOfThePortsAreClientsInTableOrder) {
    const test_interface eth0("eth0", 11);
    const test_interface wlan0("wlan0", 12);
    ports_.add("wlan0", 0, 1, KOLT_LINK_5G);
    ports_.add("eth0", 0, 0, KOLT_LINK_ETHERNET);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 11));
    platform.add_entry(FDB_CODE, raw_fdb(OTHER, 12));
    EXPECT_THAT(fdb_clients(), ElementsAre(client{FIRST, KOLT_LINK_ETHERNET, 0, 11, NO_HD},
                                           client{OTHER, KOLT_LINK_5G, 1, 12, NO_HD}));
    EXPECT_THAT(platform.calls, ElementsAre("bridgeAllocTableBuf(80000, br-lan)",
                                            "bridgeTableAction(br-lan, 2, 5000, 0)", "bridgeFreeTableBuf()"));
    EXPECT_THAT(logged(), IsEmpty());
}

constexpr auto NO_LINK_TYPE = static_cast<kolt_link_type>(4294967295);

TEST_F(Clients, TypeAndRelayFlagArePassedOnAsTheyAre) {
    const test_interface eth0("eth0", 11);
    ports_.add("eth0", 0, 200, NO_LINK_TYPE);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 11));
    EXPECT_THAT(fdb_clients(), ElementsAre(client{FIRST, NO_LINK_TYPE, 200, 11, NO_HD}));
}

TEST_F(Clients, PortNumbersHaveAHighAndALowByte) {
    const test_interface low("eth0", 3);
    const test_interface high("eth1", 0x1203);
    ports_.add("eth0", 0, 0);
    ports_.add("eth1", 0, 0);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 0x1203));
    platform.add_entry(FDB_CODE, raw_fdb(OTHER, 0x0312));
    platform.add_entry(FDB_CODE, raw_fdb(OTHER, 3));
    EXPECT_THAT(fdb_clients(), ElementsAre(client{FIRST, KOLT_LINK_ETHERNET, 0, 0x1203, NO_HD},
                                           client{OTHER, KOLT_LINK_ETHERNET, 0, 3, NO_HD}));
}

TEST_F(Clients, PortsBeyondSixteenBitsNeverMatch) {
    const test_interface eth0("eth0", 0x10005);
    ports_.add("eth0", 0, 0);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 5));
    EXPECT_THAT(fdb_clients(), IsEmpty());
}

TEST_F(Clients, LocalEntriesAreSkipped) {
    const test_interface eth0("eth0", 11);
    ports_.add("eth0", 0, 0);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 11, 1));
    platform.add_entry(FDB_CODE, raw_fdb(OTHER, 11, 0));
    EXPECT_THAT(fdb_clients(), ElementsAre(client{OTHER, KOLT_LINK_ETHERNET, 0, 11, NO_HD}));
}

TEST_F(Clients, OnlyALocalFlagOfOneIsLocal) {
    const test_interface eth0("eth0", 11);
    ports_.add("eth0", 0, 0);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 11, 2));
    platform.add_entry(FDB_CODE, raw_fdb(OTHER, 11, 255));
    EXPECT_EQ(fdb_clients().size(), 2U);
}

TEST_F(Clients, EntriesOfOtherPortsAreSkipped) {
    const test_interface eth0("eth0", 11);
    const test_interface eth1("eth1", 12);
    ports_.add("eth0", 0, 0);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 12));
    platform.add_entry(FDB_CODE, raw_fdb(OTHER, 13));
    EXPECT_THAT(fdb_clients(), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Clients, PortsAreFoundByTheKernelsIndexNotByTheHeldOne) {
    const test_interface eth0("eth0", 11);
    ports_.add("eth0", 99, 0);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 99));
    platform.add_entry(FDB_CODE, raw_fdb(OTHER, 11));
    EXPECT_THAT(fdb_clients(), ElementsAre(client{OTHER, KOLT_LINK_ETHERNET, 0, 11, NO_HD}));
}

TEST_F(Clients, PortThatTheKernelDoesNotKnowHasTheIndexZero) {
    ports_.add("none0", 0, 0, KOLT_LINK_2G);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 0));
    EXPECT_THAT(fdb_clients(), ElementsAre(client{FIRST, KOLT_LINK_2G, 0, 0, NO_HD}));
}

TEST_F(Clients, NamesThatFillTheirFieldAreBounded) {
    ports_.add("abcdefghijklmnop", 0x21212121, 0);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 11));
    EXPECT_THAT(fdb_clients(), IsEmpty());
}

TEST_F(Clients, InterfaceThatIsListedTwiceGivesTwoClients) {
    const test_interface eth0("eth0", 11);
    ports_.add("eth0", 0, 0, KOLT_LINK_PLC);
    ports_.add("eth0", 0, 1, KOLT_LINK_2G);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 11));
    platform.add_entry(FDB_CODE, raw_fdb(OTHER, 11));
    EXPECT_THAT(fdb_clients(),
                ElementsAre(client{FIRST, KOLT_LINK_PLC, 0, 11, NO_HD}, client{FIRST, KOLT_LINK_2G, 1, 11, NO_HD},
                            client{OTHER, KOLT_LINK_PLC, 0, 11, NO_HD}, client{OTHER, KOLT_LINK_2G, 1, 11, NO_HD}));
}

TEST_F(Clients, SameMacTwiceGivesTwoClients) {
    const test_interface eth0("eth0", 11);
    ports_.add("eth0", 0, 0);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 11));
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 11));
    EXPECT_EQ(fdb_clients().size(), 2U);
}

TEST_F(Clients, StreamRecordsAreNotTouched) {
    const test_interface eth0("eth0", 11);
    ports_.add("eth0", 0, 0);
    memset(static_cast<void *>((*array_)[0].ha), 0x5A, sizeof(*array_)[0].ha);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 11));
    EXPECT_EQ(fdb_clients().size(), 1U);
    const auto *bytes = reinterpret_cast<const char *>((*array_)[0].ha);
    EXPECT_EQ(std::string(bytes, sizeof(*array_)[0].ha), std::string(size_t{20} * 72, 0x5A));
}

TEST_F(Clients, OnlyTheFirst256ForwardingEntriesAreExamined) {
    const test_interface eth0("eth0", 11);
    ports_.add("eth0", 0, 0);
    // Of 300 entries, every other one is of another port, so that what is cut is the table and not the list.
    for (uint32_t i = 0; i < 300; i++)
        platform.add_entry(FDB_CODE, raw_fdb(numbered_mac(i), i % 2 == 0 ? 99 : 11));
    const std::vector<client> clients = fdb_clients();
    ASSERT_EQ(clients.size(), 128U);
    EXPECT_EQ(clients.front().mac, numbered_mac(1));
    EXPECT_EQ(clients.back().mac, numbered_mac(255));
}

TEST_F(Clients, LocalEntriesCountAmongThe256) {
    const test_interface eth0("eth0", 11);
    ports_.add("eth0", 0, 0);
    for (uint32_t i = 0; i < 254; i++)
        platform.add_entry(FDB_CODE, raw_fdb(numbered_mac(i), 11, 1));
    for (uint32_t i = 254; i < 300; i++)
        platform.add_entry(FDB_CODE, raw_fdb(numbered_mac(i), 11));
    EXPECT_THAT(fdb_clients(), ElementsAre(client{numbered_mac(254), KOLT_LINK_ETHERNET, 0, 11, NO_HD},
                                           client{numbered_mac(255), KOLT_LINK_ETHERNET, 0, 11, NO_HD}));
}

struct many_row {
    const char *name;
    uint32_t entries;
    uint32_t interfaces; // how often the port is listed
    uint32_t clients;
};

class ManyClients : public probe_rows<many_row, client_probe> {};

TEST_P(ManyClients, ClientListIsCutAt255) {
    const test_interface eth0("eth0", 11);
    for (uint32_t i = 0; i < GetParam().interfaces; i++)
        ports_.add("eth0", 0, 0);
    for (uint32_t i = 0; i < GetParam().entries; i++)
        platform.add_entry(FDB_CODE, raw_fdb(numbered_mac(i), 11));
    const std::vector<client> clients = fdb_clients();
    ASSERT_EQ(clients.size(), GetParam().clients);
    for (uint32_t i = 0; i < clients.size(); i++)
        EXPECT_EQ(clients[i].mac, numbered_mac(i / GetParam().interfaces)) << i;
    if (clients.size() == 255) {
        EXPECT_EQ((*array_)[255].port, 0U) << "the last record was written";
    }
}

INSTANTIATE_TEST_SUITE_P(Clients, ManyClients,
                         testing::Values(many_row{"Below", 254, 1, 254}, many_row{"At", 255, 1, 255},
                                         many_row{"OfTheFullRange", 256, 1, 255},
                                         many_row{"OfThreeHundredEntries", 300, 1, 255},
                                         many_row{"MoreThanOneAnEntry", 128, 2, 255},
                                         many_row{"ManyAnEntry", 256, 128, 255}),
                         row_name<many_row>);

TEST_F(Clients, ForwardingTableThatCannotBeFetchedIsLogged) {
    platform.fail("bridgeTableAction");
    EXPECT_THAT(fdb_clients(), IsEmpty());
    EXPECT_THAT(logged(), ElementsAre(error("kolt_get_fdb_client_list", "get fdb table")));
}

TEST_F(Clients, ForwardingTableWithoutABufferIsLoggedByFetcherAndCaller) {
    platform.fail("bridgeAllocTableBuf");
    EXPECT_THAT(fdb_clients(), IsEmpty());
    EXPECT_THAT(logged(), ElementsAre(error("kolt_get_duon_bridge_table", "alloac buffer error"),
                                      error("kolt_get_fdb_client_list", "get fdb table")));
}

TEST_F(Clients, ForwardingTableOfManyEntriesIsReadAfterARetry) {
    const test_interface eth0("eth0", 11);
    ports_.add("eth0", 0, 0);
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 11));
    for (uint32_t i = 0; i < 5199; i++)
        platform.add_entry(FDB_CODE, raw_fdb(numbered_mac(i), 99));
    EXPECT_THAT(fdb_clients(), ElementsAre(client{FIRST, KOLT_LINK_ETHERNET, 0, 11, NO_HD}));
}

TEST_F(Clients, EmptyPortListHasNoClients) {
    platform.add_entry(FDB_CODE, raw_fdb(FIRST, 0));
    EXPECT_THAT(fdb_clients(), IsEmpty());
}

} // namespace
