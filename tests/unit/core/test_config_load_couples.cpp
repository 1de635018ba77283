// The backhaul couples of the configuration file.
#include "config_file.h"

namespace {

std::string file_with(const std::string &param, const std::string &couples) {
    return R"({"param": {)" + param + R"(}, "backhual": {)" + couples + "}}";
}

constexpr char COUPLE_VLAN_IDS[] = R"("eth_vlan_id": 3, "plc_vlan_guest_id": 50, "plc_vlan_backhaul_id": 10)";

struct couple_row {
    const char *name;
    const char *entry;
    const char *lan;
    const char *guest;
    const char *line;
};
class Couple : public testing::TestWithParam<couple_row> {};

struct skipped_row {
    const char *name;
    const char *param;
    const char *entry;
};
class SkippedCouple : public testing::TestWithParam<skipped_row> {};

class Couples : public testing::Test {
protected:
    Couples() {
        clear_log();
    }
};

} // namespace

TEST_P(Couple, CoupleIsStoredAndAnnounced) {
    clear_log();
    const auto record = loaded(file_with(COUPLE_VLAN_IDS, GetParam().entry));
    ASSERT_EQ(record->couple_num, 1U);
    EXPECT_EQ(field(record->couples[0].lan), GetParam().lan);
    EXPECT_EQ(field(record->couples[0].guest), GetParam().guest);
    EXPECT_THAT(logged(), testing::ElementsAre(log_line{6, "config_load", GetParam().line}));
}

INSTANTIATE_TEST_SUITE_P(
    Entries, Couple,
    testing::Values(
        couple_row{"Plain", R"("eth0": {"couple": "eth1"})", "eth0", "eth1", "Info: backhual lan:eth0, guest:eth1"},
        couple_row{"ExchangeFiveUsesThePlcGuestId", R"("plc0": {"couple": "plc1", "exchange": 5})", "plc0", "plc50",
                   "Info: backhual lan:plc0, guest:plc50"},
        couple_row{"AnyOtherExchangeUsesTheEthernetId", R"("eth0": {"couple": "eth1", "exchange": 4})", "eth0", "eth3",
                   "Info: backhual lan:eth0, guest:eth3"},
        couple_row{"ExchangeAsText", R"("plc0": {"couple": "plc1", "exchange": "5"})", "plc0", "plc50",
                   "Info: backhual lan:plc0, guest:plc50"},
        couple_row{"KeyExchangeBuildsTheLanNameFromTheCouple", R"("other": {"couple": "plc1", "key_exchange": 4})",
                   "plc10", "plc1", "Info: backhaul lan: plc10, guest: plc1"},
        couple_row{"BothExchanges", R"("other": {"couple": "plc1", "exchange": 5, "key_exchange": 4})", "plc10",
                   "plc50", "Info: backhaul lan: plc10, guest: plc50"},
        couple_row{"NullExchangesAreMissing", R"("eth0": {"couple": "eth1", "exchange": null, "key_exchange": null})",
                   "eth0", "eth1", "Info: backhual lan:eth0, guest:eth1"},
        couple_row{"NamesAreBoundAt16", R"("abcdefghijklmnopq": {"couple": "qponmlkjihgfedcba"})", "abcdefghijklmnop",
                   "qponmlkjihgfedcb", "Info: backhual lan:abcdefghijklmnop, guest:qponmlkjihgfedcb"},
        couple_row{"EmptyTexts", R"("": {"couple": ""})", "", "", "Info: backhual lan:, guest:"},
        couple_row{"EmptyCoupleTextExchanged", R"("x": {"couple": "", "exchange": 5, "key_exchange": 4})", "10", "50",
                   "Info: backhaul lan: 10, guest: 50"},
        couple_row{"LongCoupleTextExchanged", R"("x": {"couple": "abcdefghijklmX", "exchange": 5, "key_exchange": 4})",
                   "abcdefghijklm10", "abcdefghijklm50", "Info: backhaul lan: abcdefghijklm10, guest: abcdefghijklm50"},
        couple_row{"NumberAsCouple", R"("eth0": {"couple": 12})", "eth0", "12", "Info: backhual lan:eth0, guest:12"}),
    [](const auto &row) { return row.param.name; });

TEST_P(SkippedCouple, SkippedCoupleIsNeitherStoredNorCountedNorAnnounced) {
    clear_log();
    const auto record =
        loaded(file_with(GetParam().param, std::string(GetParam().entry) + R"(, "next": {"couple": "one"})"));
    ASSERT_EQ(record->couple_num, 1U); // the walk goes on
    EXPECT_EQ(field(record->couples[0].lan), "next");
    EXPECT_EQ(field(record->couples[0].guest), "one");
    EXPECT_EQ(record->couples[1].guest[0], '\0');
    EXPECT_THAT(logged_texts(), testing::ElementsAre("Info: backhual lan:next, guest:one"));
}

INSTANTIATE_TEST_SUITE_P(Entries, SkippedCouple,
                         testing::Values(skipped_row{"ExchangeFiveWithoutThePlcGuestId", R"("eth_vlan_id": 3)",
                                                     R"("plc0": {"couple": "plc1", "exchange": 5})"},
                                         skipped_row{"OtherExchangeWithoutTheEthernetId", R"("plc_vlan_guest_id": 50)",
                                                     R"("eth0": {"couple": "eth1", "exchange": 1})"},
                                         skipped_row{"KeyExchangeOtherThanFour", COUPLE_VLAN_IDS,
                                                     R"("plc0": {"couple": "plc1", "key_exchange": 5})"},
                                         skipped_row{"KeyExchangeZero", COUPLE_VLAN_IDS,
                                                     R"("plc0": {"couple": "plc1", "key_exchange": 0})"},
                                         skipped_row{"KeyExchangeWithoutThePlcBackhaulId", R"("plc_vlan_guest_id": 50)",
                                                     R"("plc0": {"couple": "plc1", "key_exchange": 4})"},
                                         skipped_row{"NoCouple", COUPLE_VLAN_IDS, R"("plc0": {"exchange": 5})"},
                                         skipped_row{"NullCouple", COUPLE_VLAN_IDS, R"("plc0": {"couple": null})"},
                                         skipped_row{"NoObject", COUPLE_VLAN_IDS, R"("plc0": 5)"}),
                         [](const auto &row) { return row.param.name; });

TEST_F(Couples, LinesAreWrittenOnlyAtInfoLevel) {
    const at_log_level scope(0);
    EXPECT_EQ(loaded(file_with("", R"("a": {"couple": "b"})"))->couple_num, 1U);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Couples, CouplesKeepTheOrderOfTheFile) {
    const auto record = loaded(file_with("", R"("z": {"couple": "1"}, "a": {"couple": "2"})"));
    ASSERT_EQ(record->couple_num, 2U);
    EXPECT_EQ(field(record->couples[0].lan), "z");
    EXPECT_EQ(field(record->couples[1].lan), "a");
}

TEST_F(Couples, NameOf16CharactersDoesNotRunIntoItsNeighbour) {
    const auto record = loaded(file_with("", R"("abcdefghijklmnop": {"couple": "guest"})"));
    EXPECT_EQ(field(record->couples[0].lan), "abcdefghijklmnop");
    EXPECT_EQ(field(record->couples[0].guest), "guest");
    EXPECT_THAT(logged_texts(), testing::ElementsAre("Info: backhual lan:abcdefghijklmnop, guest:guest"));
}

TEST_F(Couples, ExchangedNameThatDoesNotFitStaysInsideItsField) {
    const auto record = loaded(file_with(
        COUPLE_VLAN_IDS, R"("x": {"couple": "abcdefghijklmnopqrstuvwxyz", "exchange": 5, "key_exchange": 4})"));
    ASSERT_EQ(record->couple_num, 1U);
    EXPECT_EQ(field(record->couples[0].lan).substr(0, 15), "abcdefghijklmno");
    EXPECT_EQ(field(record->couples[0].guest).substr(0, 15), "abcdefghijklmno");
    EXPECT_EQ(record->couples[1].lan[0], '\0');
}

TEST_F(Couples, SixteenCouplesFitWithoutTheFullLine) {
    const auto record = loaded(file_with("", members("p", 16, R"({"couple": "g"})")));
    EXPECT_EQ(record->couple_num, 16U);
    EXPECT_EQ(field(record->couples[15].lan), "p15");
    EXPECT_THAT(logged_texts(), testing::Not(testing::Contains("Info: too many couple backhuals")));
}

TEST_F(Couples, SeventeenthCoupleIsDroppedWithOneInfoLine) {
    const auto record = loaded(file_with("", members("p", 18, R"({"couple": "g"})")));
    EXPECT_EQ(record->couple_num, 16U);
    ASSERT_EQ(logged().size(), 17U);
    EXPECT_EQ(logged().back(), (log_line{6, "config_load", "Info: too many couple backhuals"}));
}

TEST_F(Couples, SeventeenthCoupleIsDroppedSilentlyAtLevelZero) {
    const at_log_level scope(0);
    EXPECT_EQ(loaded(file_with("", members("p", 17, R"({"couple": "g"})")))->couple_num, 16U);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Couples, CountIsLeftAloneByTheLoader) {
    config record;
    record.couple_num = 15;
    load_text(&record, file_with("", R"("a": {"couple": "b"}, "c": {"couple": "d"})"));
    EXPECT_EQ(record.couple_num, 16U);
    EXPECT_EQ(record.couples[0].lan[0], '\0');
    EXPECT_EQ(field(record.couples[15].lan), "a");
    EXPECT_THAT(logged_texts(),
                testing::ElementsAre("Info: backhual lan:a, guest:b", "Info: too many couple backhuals"));
}
