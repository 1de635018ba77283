// What the station table reader takes from a single line.
#include "adaptors/rtk/driver_files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct line_row {
    const char *name;
    std::string line;     // stands in for the block's line of its key
    std::string expected; // of the only station; empty when there is none
};

void PrintTo(const line_row &row, std::ostream *out) {
    *out << row.name << ": " << row.line;
}

class StationLine : public DriverFiles, public testing::WithParamInterface<line_row> {
protected:
    static void expect_station(const station_block &block) {
        const std::vector<std::string> expected(GetParam().expected.empty() ? 0 : 1, GetParam().expected);
        EXPECT_EQ(stations_in(block.text()), expected);
        EXPECT_THAT(logged(), IsEmpty()) << "malformed lines are skipped silently";
    }
};

std::string with_mac(const std::string &mac) {
    return mac + " tx 866 rx 300 rssi 40";
}

class HwaddrLine : public StationLine {};
INSTANTIATE_TEST_SUITE_P(
    Rows, HwaddrLine,
    testing::Values(line_row{"LowerCase", "hwaddr: abcdef012345", with_mac("AB:CD:EF:01:23:45")},
                    line_row{"UpperCase", "hwaddr: ABCDEF012345", with_mac("AB:CD:EF:01:23:45")},
                    line_row{"AllZero", "hwaddr: 000000000000", with_mac("00:00:00:00:00:00")},
                    line_row{"AllOnes", "hwaddr: ffffffffffff", with_mac("FF:FF:FF:FF:FF:FF")},
                    line_row{"NoBlank", "hwaddr:abcdef012345", with_mac("AB:CD:EF:01:23:45")},
                    line_row{"Tab", "hwaddr:\tabcdef012345", with_mac("AB:CD:EF:01:23:45")},
                    line_row{"TextBefore", "sta hwaddr: abcdef012345", with_mac("AB:CD:EF:01:23:45")},
                    line_row{"TextBehind", "hwaddr: abcdef012345 (WDS)", with_mac("AB:CD:EF:01:23:45")},
                    line_row{"MoreDigits", "hwaddr: abcdef01234567", with_mac("AB:CD:EF:01:23:45")},
                    line_row{"LastOctetOfOneDigit", "hwaddr: abcdef01234", with_mac("AB:CD:EF:01:23:04")},
                    line_row{"FiveOctets", "hwaddr: abcdef0123", ""}, line_row{"Empty", "hwaddr:", ""},
                    line_row{"ColonForm", "hwaddr: ab:cd:ef:01:23:45", ""},
                    line_row{"NoHexDigit", "hwaddr: abcdeg012345", ""},
                    line_row{"OtherCaseOfTheKey", "Hwaddr: abcdef012345", ""},
                    line_row{"BlankBeforeTheColon", "hwaddr : abcdef012345", ""}),
    row_name);

TEST_P(HwaddrLine, StationNeedsAnAddressOfSixOctets) {
    expect_station({.hwaddr = GetParam().line});
}

class StateLine : public StationLine {};
INSTANTIATE_TEST_SUITE_P(
    Rows, StateLine,
    testing::Values(line_row{"Zero", "state: 0", ""}, line_row{"One", "state: 1", ONE_STATION},
                    line_row{"Two", "state: 2", ""}, line_row{"Three", "state: 3", ONE_STATION},
                    line_row{"AllButBitZero", "state: 2147483646", ""},
                    line_row{"AllBits", "state: 2147483647", ONE_STATION},
                    line_row{"MinusOne", "state: -1", ONE_STATION}, line_row{"MinusTwo", "state: -2", ""},
                    line_row{"NoBlank", "state:1", ONE_STATION}, line_row{"TextBehind", "state: 1f", ONE_STATION},
                    line_row{"Hexadecimal", "state: 0x1", ""}, line_row{"NoNumber", "state:", ""},
                    line_row{"Word", "state: up", ""}, line_row{"InsideAnotherKey", "power_state: 1", ONE_STATION},
                    line_row{"FtState", "ft_state: 1", ""}, line_row{"OtherCase", "State: 1", ""}),
    row_name);

TEST_P(StateLine, BitZeroOfTheStateTellsWhetherTheStationCounts) {
    expect_station({.state = GetParam().line});
}

std::string with_tx(const std::string &rate) {
    return "00:11:22:33:44:55 tx " + rate + " rx 300 rssi 40";
}

// What may stand behind the key of a rate.
const line_row RATES[] = {
    {"ModeWordAndNumber", "VHT 866", "866"},
    {"NumberAlone", "54", "54"},
    {"Zero", "0", "0"},
    {"NumberWithUnit", "866Mbps", "866"},
    {"NumberAndUnit", "866 Mbps", "866"},
    {"ModeWordAndNumberWithUnit", "HE 1201Mbps", "1201"},
    {"TwoNumbers", "54 6", "6"}, // the first one is a mode word as good as any
    {"ModeWordOf200Characters", std::string(200, 'M') + " 866", "866"},
    {"ModeWordOfOneCharacter", "B 11", "11"},
    {"SeveralBlanks", " \t VHT \t 866", "866"},
    {"Largest", "HE 65535", "65535"},
    {"Truncated", "HE 65536", "0"},
    {"TruncatedFurther", "70000", "4464"},
    {"Negative", "HE -1", "65535"},
    {"ModeWordAlone", "VHT", ""},
    {"TwoModeWords", "VHT NSS2 866", ""},
    {"Nothing", "", ""},
};

class RateLine : public StationLine {};
INSTANTIATE_TEST_SUITE_P(Rows, RateLine, testing::ValuesIn(RATES), row_name);

TEST_P(RateLine, LastWordOfTheRateLineIsTheTransmitRate) {
    const std::vector<std::string> expected(GetParam().expected.empty() ? 0 : 1, with_tx(GetParam().expected));
    EXPECT_EQ(stations_in(station_block{.tx = "current_tx_rate: " + GetParam().line}.text()), expected);
    EXPECT_EQ(stations_in(station_block{.tx = "current_tx_rate:" + GetParam().line}.text()), expected);
}

TEST_P(RateLine, LastWordOfTheRateLineIsTheReceiveRate) {
    const std::vector<std::string> expected(GetParam().expected.empty() ? 0 : 1,
                                            "00:11:22:33:44:55 tx 866 rx " + GetParam().expected + " rssi 40");
    EXPECT_EQ(stations_in(station_block{.rx = "current_rx_rate: " + GetParam().line}.text()), expected);
    EXPECT_EQ(stations_in(station_block{.rx = "current_rx_rate:" + GetParam().line}.text()), expected);
}

std::string with_rssi(const std::string &rssi) {
    return "00:11:22:33:44:55 tx 866 rx 300 rssi " + rssi;
}

class RssiLine : public StationLine {};
INSTANTIATE_TEST_SUITE_P(
    Rows, RssiLine,
    testing::Values(line_row{"Zero", "rssi: 0", with_rssi("0")}, line_row{"Largest", "rssi: 255", with_rssi("255")},
                    line_row{"Truncated", "rssi: 256", with_rssi("0")},
                    line_row{"TruncatedFurther", "rssi: 300", with_rssi("44")},
                    line_row{"Negative", "rssi: -56", with_rssi("200")}, line_row{"NoBlank", "rssi:7", with_rssi("7")},
                    line_row{"WithUnit", "rssi: 40% (-60 dBm)", with_rssi("40")},
                    line_row{"InsideAnotherKey", "avg_rssi: 33", with_rssi("33")}, line_row{"NoNumber", "rssi:", ""},
                    line_row{"Word", "rssi: n/a", ""}, line_row{"WithoutColon", "rssi 40", ""}),
    row_name);

TEST_P(RssiLine, RssiLineGivesTheRssi) {
    expect_station({.rssi = GetParam().line});
}

using StationTable = DriverFiles;

TEST_F(StationTable, LinesMayEndWithCarriageReturns) {
    std::string text;
    for (const char character : station_block{}.text())
        text += character == '\n' ? std::string("\r\n") : std::string(1, character);
    EXPECT_THAT(stations_in(text), ElementsAre(ONE_STATION));
}

} // namespace
