// How many stations are read: as many as the header announces, and no more than there is room for.
#include "adaptors/rtk/driver_files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using StationTable = DriverFiles;

struct header_row {
    const char *name;
    std::string line;
    size_t stations; // of the three that follow
};

void PrintTo(const header_row &row, std::ostream *out) {
    *out << row.name;
}

class StationTableHeader : public DriverFiles, public testing::WithParamInterface<header_row> {};
INSTANTIATE_TEST_SUITE_P(
    Rows, StationTableHeader,
    testing::Values(header_row{"AnnouncesThree", "-- STA info table -- (active: 3)\n", 3},
                    header_row{"AnnouncesOne", "-- STA info table -- (active: 1)\n", 1},
                    header_row{"AnnouncesMoreThanThereAre", "-- STA info table -- (active: 16)\n", 3},
                    header_row{"AnnouncesMoreThanFit", "-- STA info table -- (active: 2147483647)\n", 3},
                    header_row{"AnnouncesZero", "-- STA info table -- (active: 0)\n", 0},
                    header_row{"AnnouncesFewerThanZero", "-- STA info table -- (active: -1)\n", 0},
                    header_row{"AnnouncesTheSmallestNumber", "-- STA info table -- (active: -2147483648)\n", 0},
                    header_row{"HasBlanksAndTabsBefore", " \t -- STA info table -- (active: 2)\n", 2},
                    header_row{"HasTextBefore", "wlan0: -- STA info table -- (active: 2)\n", 2},
                    header_row{"HasTextBehind", "-- STA info table -- (active: 2) of 32\n", 2},
                    header_row{"LacksTheClosingBracket", "-- STA info table -- (active: 2\n", 2},
                    header_row{"HasNoBlankBeforeTheNumber", "-- STA info table -- (active:2)\n", 2},
                    header_row{"HasNoNumber", "-- STA info table -- (active: )\n", 0},
                    header_row{"HasAWordForTheNumber", "-- STA info table -- (active: two)\n", 0},
                    header_row{"EndsBehindTheTitle", "-- STA info table --\n", 0},
                    header_row{"HasAnotherTitle", "-- STA table -- (active: 2)\n", 0},
                    header_row{"HasAnotherCase", "-- sta info table -- (active: 2)\n", 0},
                    header_row{"StandsInTheSecondLine", "\n-- STA info table -- (active: 2)\n", 0},
                    header_row{"IsMissing", "", 0}),
    row_name);

TEST_P(StationTableHeader, HeaderTellsHowManyStationsAreReadAtMost) {
    const std::string block = station_block{}.text();
    write_stations(GetParam().line + block + block + block);
    EXPECT_THAT(read_stations(), SizeIs(GetParam().stations));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(StationTable, ReadingStopsAtSixteenStations) {
    std::string table = header("20");
    std::vector<std::string> expected;
    for (int i = 0; i < 20; i++) {
        table += station_block{.rssi = "rssi: " + std::to_string(i)}.text();
        if (i < 16)
            expected.push_back("00:11:22:33:44:55 tx 866 rx 300 rssi " + std::to_string(i));
    }
    write_stations(table);
    EXPECT_EQ(read_stations(), expected);
}

TEST_F(StationTable, ExactlySixteenStationsAreHeld) {
    std::string table = header("16");
    for (int i = 0; i < 16; i++)
        table += station_block{}.text();
    write_stations(table);
    EXPECT_THAT(read_stations(), SizeIs(16));
}

TEST_F(StationTable, AnnouncedNumbersOfAnySizeAreSurvived) {
    for (const char *count :
         {"4294967295", "4294967297", "99999999999999999999999999", "-99999999999999999999999999"}) {
        write_stations(header(count) + station_block{}.text());
        EXPECT_THAT(read_stations(), testing::AnyOf(IsEmpty(), ElementsAre(ONE_STATION))) << count;
    }
}

TEST_F(StationTable, HeaderBeyondTheFirst255CharactersIsNone) {
    const std::string title = "-- STA info table -- (active: 2)";
    write_stations(std::string(255 - title.size(), 'x') + title + "\n" + station_block{}.text());
    EXPECT_THAT(read_stations(), SizeIs(1));
    write_stations(std::string(256 - std::string("-- STA info table --").size(), 'x') + title + "\n" +
                   station_block{}.text());
    EXPECT_THAT(read_stations(), IsEmpty());
}

} // namespace
