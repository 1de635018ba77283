// Reading the driver's station table: its blocks, their keys, and lines of any length.
#include "adaptors/rtk/driver_files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using StationTable = DriverFiles;

TEST_F(StationTable, EveryStationIsReadInOrder) {
    const std::string second = station_block{.hwaddr = "hwaddr: 66778899AABB",
                                             .state = "state: 17",
                                             .tx = "current_tx_rate: HE 1201",
                                             .rx = "current_rx_rate: 54",
                                             .rssi = "rssi: 61"}
                                   .text();
    EXPECT_THAT(stations_in(station_block{}.text() + second),
                ElementsAre(ONE_STATION, "66:77:88:99:AA:BB tx 1201 rx 54 rssi 61"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(StationTable, StationsAreThoseOfTheRadioThatTheTypeTells) {
    write_file("/proc/wlan0/sta_info", header("1") + station_block{.rssi = "rssi: 24"}.text());
    write_file("/proc/net/rtk_wifi6/wlan0/sta_info", header("1") + station_block{.rssi = "rssi: 50"}.text());
    EXPECT_THAT(read_stations("wlan0", KOLT_LINK_2G), ElementsAre("00:11:22:33:44:55 tx 866 rx 300 rssi 24"));
    for (const kolt_link_type type : {KOLT_LINK_ETHERNET, KOLT_LINK_PLC, KOLT_LINK_5G, KOLT_LINK_5G_2})
        EXPECT_THAT(read_stations("wlan0", type), ElementsAre("00:11:22:33:44:55 tx 866 rx 300 rssi 50")) << type;
}

TEST_F(StationTable, MissingFileHasNoStationAndNoMessage) {
    EXPECT_THAT(read_stations(), IsEmpty());
    EXPECT_THAT(started_commands, SizeIs(1));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(StationTable, EmptyFileHasNoStation) {
    write_stations("");
    EXPECT_THAT(read_stations(), IsEmpty());
}

TEST_F(StationTable, PipeThatCannotBeStartedIsLoggedWithItsCommand) {
    wlan_link links[WLAN_MAX_LINKS];
    {
        const no_descriptors none;
        EXPECT_EQ(wlan_get_links_rtk("wlan0", links, KOLT_LINK_5G_2), 0);
    }
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "wlan_get_links_rtk",
                                               "Error: popen cmd cat /proc/net/rtk_wifi6/wlan0/sta_info"}));
}

TEST_F(StationTable, NeitherTheActivityNorUnusedEntriesAreFilled) {
    write_stations(header("1") + station_block{}.text());
    wlan_link links[WLAN_MAX_LINKS];
    links[0].activity = 777;
    links[1] = {.mac = {9, 9, 9, 9, 9, 9}, .activity = 8, .tx_rate = 7, .rx_rate = 6, .rssi = 5};
    EXPECT_EQ(wlan_get_links_rtk("wlan0", links, KOLT_LINK_2G), 1);
    EXPECT_EQ(links[0].activity, 777);
    EXPECT_EQ(links[1].activity, 8);
    EXPECT_EQ(describe(links[1]), "09:09:09:09:09:09 tx 7 rx 6 rssi 5");
}

// ---- Blocks

TEST_F(StationTable, KeysMayStandInAnyOrder) {
    EXPECT_THAT(stations_in("rssi: 40\ncurrent_rx_rate: HT 300\ncurrent_tx_rate: VHT 866\nstate: 1\n"
                            "hwaddr: 001122334455\n"),
                ElementsAre(ONE_STATION));
}

TEST_F(StationTable, FileMayLackItsFinalLineFeed) {
    std::string text = station_block{}.text();
    text.pop_back();
    EXPECT_THAT(stations_in(text), ElementsAre(ONE_STATION));
}

TEST_F(StationTable, LinesWithoutAKeyArePassedOver) {
    EXPECT_THAT(stations_in("\nhwaddr: 001122334455\n\tlink_time: 44\n\nstate: 1\naid: 7\ncurrent_tx_rate: VHT 866\n"
                            "tx_bytes: 9\ncurrent_rx_rate: HT 300\n???\nrssi: 40\n"),
                ElementsAre(ONE_STATION));
}

TEST_F(StationTable, BlockWithoutRssiIsNeverStoredAndTheNextBlockDiscardsIt) {
    // The second block has nothing but the RSSI; with the first one's values it would be complete.
    EXPECT_THAT(stations_in(station_block{.rssi = ""}.text() + "stat_info...\nrssi: 40\n"), IsEmpty());
}

TEST_F(StationTable, BlockStartBehindOtherTextDiscardsToo) {
    EXPECT_THAT(stations_in(station_block{.rssi = ""}.text() + "2: stat_info... (wlan0)\nrssi: 40\n"), IsEmpty());
}

TEST_F(StationTable, PartsWithoutABlockStartBetweenThemMakeOneStation) {
    EXPECT_THAT(stations_in(station_block{.rssi = ""}.text() + "stat_info:\nrssi: 40\n"), ElementsAre(ONE_STATION));
}

TEST_F(StationTable, LaterValueOfABlockReplacesTheEarlierOne) {
    EXPECT_THAT(stations_in(station_block{.rssi = ""}.text() + "hwaddr: 0A0B0C0D0E0F\ncurrent_tx_rate: 6\n"
                                                               "current_rx_rate: 9\nrssi: 1\n"),
                ElementsAre("0A:0B:0C:0D:0E:0F tx 6 rx 9 rssi 1"));
}

TEST_F(StationTable, UnreadableLaterValueLeavesTheEarlierOne) {
    EXPECT_THAT(stations_in(station_block{.rssi = ""}.text() + "hwaddr: none\ncurrent_tx_rate: VHT\n"
                                                               "current_rx_rate:\nstate: down\nrssi: 40\n"),
                ElementsAre(ONE_STATION));
}

// Each key has to be told again after a station was stored, even where no block start stands between.
TEST_F(StationTable, StoredStationLeavesNothingToTheNextOne) {
    const std::string first = station_block{}.text();
    const std::string lines[] = {"hwaddr: 66778899AABB\n", "state: 1\n", "current_tx_rate: 11\n",
                                 "current_rx_rate: 12\n", "rssi: 13\n"};
    for (const std::string &missing : lines) {
        std::string second;
        for (const std::string &line : lines)
            second += line == missing ? "" : line;
        EXPECT_THAT(stations_in(first + second), ElementsAre(ONE_STATION)) << missing;
        EXPECT_THAT(stations_in(first + second + missing),
                    ElementsAre(ONE_STATION, "66:77:88:99:AA:BB tx 11 rx 12 rssi 13"))
            << missing;
    }
}

TEST_F(StationTable, UnassociatedStationIsNotStored) {
    EXPECT_THAT(stations_in(station_block{.state = "state: 2"}.text() + station_block{}.text()),
                ElementsAre(ONE_STATION));
}

TEST_F(StationTable, ValuesOfAnUnassociatedStationStayUntilOverwritten) {
    EXPECT_THAT(stations_in(station_block{.state = "state: 0"}.text() + "aid: 1\nrssi: 41\nstate: 1\n"),
                ElementsAre("00:11:22:33:44:55 tx 866 rx 300 rssi 41"));
}

TEST_F(StationTable, BlockStartClearsTheValuesOfAnUnassociatedStation) {
    EXPECT_THAT(stations_in(station_block{.state = "state: 0"}.text() + "stat_info...\nstate: 1\n"), IsEmpty());
}

TEST_F(StationTable, UnassociatedStationsDoNotCountAsAnnouncedOnes) {
    write_stations(header("1") + station_block{.state = "state: 0"}.text() + station_block{}.text());
    EXPECT_THAT(read_stations(), ElementsAre(ONE_STATION));
}

TEST_F(StationTable, FtStateIsNoState) {
    EXPECT_THAT(stations_in(station_block{.state = "ft_state: 1"}.text()), IsEmpty());
    EXPECT_THAT(stations_in(station_block{.state = "ft_state: 1\nstate: 2\nft_state: 1"}.text()), IsEmpty());
    EXPECT_THAT(stations_in(station_block{.state = "state: 1\nft_state: 0"}.text()), ElementsAre(ONE_STATION));
}

// The line is ignored entirely, so nothing behind the key is seen either.
TEST_F(StationTable, FtStateHidesTheRestOfItsLine) {
    EXPECT_THAT(stations_in(station_block{.state = "ft_state: 1 state: 1"}.text()), IsEmpty());
    EXPECT_THAT(stations_in(station_block{.state = "state: 1 ft_state: 1"}.text()), IsEmpty());
    EXPECT_THAT(stations_in(station_block{.rssi = "ft_state: 1 rssi: 40"}.text()), IsEmpty());
    EXPECT_THAT(stations_in(station_block{.tx = "ft_state: 1 current_tx_rate: 866"}.text()), IsEmpty());
    EXPECT_THAT(stations_in(station_block{.rssi = ""}.text() + "ft_state: 1 stat_info...\nrssi: 40\n"),
                ElementsAre(ONE_STATION));
}

// ---- Several keys in one line: the first of the fixed order acts, wherever it stands.

struct order_row {
    const char *name;
    std::string line; // replaces the block's line of the key that must not act
    bool acts;        // whether that key acts all the same
    std::string station_block::*replaced;
};

TEST_F(StationTable, FirstKeyOfTheOrderActsAlone) {
    const order_row rows[] = {
        {"hwaddr before state", "state: 1 hwaddr: 001122334455", false, &station_block::state},
        {"hwaddr before tx", "current_tx_rate: 866 hwaddr: 001122334455", false, &station_block::tx},
        {"hwaddr before rx", "current_rx_rate: 300 hwaddr: 001122334455", false, &station_block::rx},
        {"hwaddr before rssi", "rssi: 40 hwaddr: 001122334455", false, &station_block::rssi},
        {"hwaddr before ft_state", "ft_state: 0 hwaddr: 001122334455", true, &station_block::hwaddr},
        {"unreadable hwaddr before state", "state: 1 hwaddr: x", false, &station_block::state},
        {"state before tx", "current_tx_rate: 866 state: 1", false, &station_block::tx},
        {"state before rx", "current_rx_rate: 300 state: 1", false, &station_block::rx},
        {"state before rssi", "rssi: 40 state: 1", false, &station_block::rssi},
        {"state acts from behind", "rssi: 40 state: 1", true, &station_block::state},
        {"tx before rx", "current_rx_rate: HT 300 current_tx_rate: VHT 866", false, &station_block::rx},
        {"tx acts from behind", "current_rx_rate: HT 300 current_tx_rate: VHT 866", true, &station_block::tx},
        {"tx before rssi", "rssi: 40 current_tx_rate: VHT 866", false, &station_block::rssi},
        {"rx before rssi", "rssi: 40 current_rx_rate: HT 300", false, &station_block::rssi},
        {"rx acts from behind", "rssi: 40 current_rx_rate: HT 300", true, &station_block::rx},
        {"rssi before block start", "stat_info... rssi: 40", true, &station_block::rssi},
    };
    for (const order_row &row : rows) {
        station_block block;
        block.*row.replaced = row.line;
        const std::vector<std::string> expected(row.acts ? 1 : 0, ONE_STATION);
        EXPECT_EQ(stations_in(block.text()), expected) << row.name;
    }
}

// ---- Long lines

TEST_F(StationTable, LineLongerThan255CharactersIsReadInPieces) {
    const std::string whole_in_second_piece = std::string(255, 'x') + "rssi: 40";
    EXPECT_THAT(stations_in(station_block{.rssi = "\n" + whole_in_second_piece}.text()), ElementsAre(ONE_STATION));
}

TEST_F(StationTable, KeyThatIsCutByThePieceIsNoKey) {
    EXPECT_THAT(stations_in(station_block{.rssi = "\n" + std::string(253, 'x') + "rssi: 40"}.text()), IsEmpty());
}

TEST_F(StationTable, NumberThatIsCutByThePieceEndsThere) {
    EXPECT_THAT(stations_in(station_block{.rssi = "\n" + std::string(248, 'x') + "rssi: 40"}.text()),
                ElementsAre("00:11:22:33:44:55 tx 866 rx 300 rssi 4"));
}

TEST_F(StationTable, LinesAndWordsOfAnyLengthAreSurvived) {
    const std::string word(5000, 'W');
    EXPECT_THAT(stations_in(station_block{.hwaddr = "hwaddr: " + word}.text() +
                            station_block{.tx = "current_tx_rate: " + word + " 866"}.text() + word + word + "\n" +
                            station_block{}.text()),
                ElementsAre(ONE_STATION));
}

TEST_F(StationTable, NumbersOfAnySizeAreSurvived) {
    const std::string huge = "99999999999999999999999999";
    const std::string blocks =
        station_block{.state = "state: " + huge}.text() + station_block{.tx = "current_tx_rate: " + huge}.text() +
        station_block{.rx = "current_rx_rate: HT -" + huge}.text() + station_block{.rssi = "rssi: " + huge}.text();
    EXPECT_THAT(stations_in(blocks + station_block{.rssi = "rssi: 77"}.text()),
                testing::Contains("00:11:22:33:44:55 tx 866 rx 300 rssi 77"));
}

TEST_F(StationTable, ZeroBytesAreSurvived) {
    const std::string zeros(3, '\0');
    EXPECT_THAT(stations_in(zeros + "\n" + station_block{.state = "state: 1" + zeros + "x"}.text()),
                ElementsAre(ONE_STATION));
}

} // namespace
