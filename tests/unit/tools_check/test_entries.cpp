// Interfaces and couples: their names, and why some are left out.
#include "core/config_load.h"
#include "core/json.h"
#include "report_support.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char ETH0[] = R"("eth0": {"type": "ethernet"})";

std::string name_of(const check_report &report, size_t i) {
    const char *name = report.record.interfaces[i].name;
    return {name, strnlen(name, KOLT_NAME_SIZE)};
}

std::string many(size_t count, const std::string &value) {
    std::string text;
    for (size_t i = 0; i < count; i++)
        text += (i == 0 ? "\"x" : ", \"x") + std::to_string(i) + "\": " + value;
    return text;
}

std::vector<std::string> left_out(const check_report &report) {
    std::vector<std::string> entries;
    for (const check_left_out &entry : report.left_out)
        entries.push_back(std::string(entry.section) + " " + entry.key);
    return entries;
}

} // namespace

TEST(Interface, FinalNameIsTheLoaders) {
    const auto report =
        check_inspect(file_with(R"("plc_vlan_guest_id": 20)", R"("plc1": {"type": "plc", "exchange": 5})"));
    ASSERT_EQ(report->record.interface_num, 1U);
    EXPECT_EQ(name_of(*report, 0), "plc20");
    EXPECT_EQ(report->interfaces[0].key, "plc1");
    EXPECT_THAT(findings(*report), IsEmpty());
}

TEST(Interface, WithoutItsVlanIdItIsLeftOut) {
    const char *needed[] = {"eth_vlan_id",          "iptv_vlan_id",      "iptv_vlan_backhaul_id",
                            "plc_vlan_backhaul_id", "plc_vlan_guest_id", "plc_vlan_iptv_id"};
    for (int exchange = 1; exchange <= 6; exchange++) {
        const auto report = check_inspect(file_with("", R"("eth0": {"type": "ethernet", "exchange": )" +
                                                            std::to_string(exchange) + "}, \"b\": {\"type\": \"5g\"}"));
        EXPECT_THAT(findings(*report), ElementsAre("left-out: \"eth0\" is left out: its name needs \"" +
                                                   std::string(needed[exchange - 1]) + "\", which is 0 or missing"));
        ASSERT_EQ(report->left_out.size(), 1U);
        EXPECT_EQ(report->left_out[0].key, "eth0");
        EXPECT_EQ(report->record.interface_num, 1U);
    }
}

TEST(Interface, ExchangeThatSelectsNothingOfItsOwnIsSaid) {
    EXPECT_THAT(findings_with(R"("eth_vlan_id": 3)", R"("eth0": {"type": "ethernet", "exchange": 7})"),
                ElementsAre(HasSubstr("unsound-value: \"exchange\": 7 is not one of 1 to 6")));
}

TEST(Interface, ExchangeIsAWholeNumber) {
    EXPECT_THAT(findings_with(R"("eth_vlan_id": 3)", R"("eth0": {"type": "ethernet", "exchange": 1.5})"),
                ElementsAre("changed-value: \"exchange\": 1.5 becomes 1, only whole numbers are taken"));
    EXPECT_THAT(findings_with(R"("eth_vlan_id": 3)", R"("eth0": {"type": "ethernet", "exchange": "1"})"),
                ElementsAre("wrong-type: \"exchange\" should be a number; \"1\" is read as 1"));
}

TEST(Interface, WithoutAValidTypeTheDaemonDoesNotStart) {
    const auto report = check_inspect(
        file_with("", R"("a": {}, "b": {"type": "5G"}, "c": {"type": 77}, "d": 7, )" + std::string(ETH0)));
    EXPECT_FALSE(report->starts);
    EXPECT_EQ(report->record.interface_num, 1U);
    EXPECT_EQ(report->left_out.size(), 4U);
    EXPECT_THAT(findings(*report),
                testing::IsSupersetOf({HasSubstr("link-type: \"a\" has no \"type\". The daemon does not start"),
                                       HasSubstr("link-type: \"5G\" is no type. Did you mean \"5g\"? The daemon does"),
                                       HasSubstr("link-type: \"77\" is no type. The daemon does not start"),
                                       HasSubstr("link-type: \"d\" has no \"type\". The daemon does not start")}));
}

TEST(Interface, MissingTypeIsNoMatterWhereTheNameIsLeftOut) {
    const auto report = check_inspect(file_with("", R"("a": {"exchange": 2})"));
    EXPECT_TRUE(report->starts);
}

TEST(Interface, EqualNamesAreFoundAlsoWhereTheKeysDiffer) {
    EXPECT_THAT(
        findings_with(R"("eth_vlan_id": 3)", R"("eth0": {"type": "ethernet", "exchange": 1}, "eth3": {"type": "5g"})"),
        ElementsAre("equal-names: \"eth3\" is \"eth3\", as is \"eth0\", and the first one counts"));
}

TEST(Interface, NameThatIsCutBehindItsVlanIdIsFound) {
    EXPECT_THAT(findings_with(R"("iptv_vlan_id": 1234)", R"("abcdefghijkl0": {"type": "5g", "exchange": 2})"),
                ElementsAre(HasSubstr("long-name: \"abcdefghijkl1234\" is cut to \"abcdefghijkl123\"")));
}

TEST(Interface, Past128TheyAreLeftOut) {
    const auto report = check_inspect(file_with("", many(130, R"({"type": "5g"})")));
    EXPECT_EQ(report->record.interface_num, 128U);
    EXPECT_THAT(findings(*report),
                ElementsAre("too-many: only 128 entries of \"interfaces\" are kept; \"x128\" and all "
                            "behind it are left out"));
    EXPECT_THAT(left_out(*report), ElementsAre("interfaces x128", "interfaces x129"));
}

TEST(Interface, InvalidTypeBehindTheLastThatIsReadDoesNoHarm) {
    EXPECT_TRUE(check_inspect(file_with("", many(128, R"({"type": "5g"})") + R"(, "bad": {})"))->starts);
}

TEST(Couple, PartnersAreLookedForUnderTheirFinalNames) {
    const char *interfaces = R"("plc0": {"type": "plc"}, "plc1": {"type": "plc", "exchange": 5})";
    EXPECT_THAT(findings_with(R"("plc_vlan_guest_id": 20)", interfaces, R"("plc0": {"couple": "plc0", "exchange": 5})"),
                IsEmpty());
    EXPECT_THAT(findings_with(R"("plc_vlan_guest_id": 20)", interfaces, R"("plc0": {"couple": "plc1"})"),
                ElementsAre("no-partner: \"plc1\" of this couple is no interface of \"interfaces\""));
}

TEST(Couple, WithoutPartnersBothAreNamed) {
    EXPECT_THAT(findings_with("", ETH0, R"("a": {"couple": "b"})"),
                ElementsAre("no-partner: \"a\" of this couple is no interface of \"interfaces\"",
                            "no-partner: \"b\" of this couple is no interface of \"interfaces\""));
    EXPECT_THAT(findings_with("", ETH0, R"("eth0": {"couple": "eth0"})"),
                ElementsAre("no-partner: \"eth0\" is its own partner"));
}

TEST(Couple, WhatIsLeftOutSaysWhy) {
    const auto said = [](const std::string &param, const std::string &couple) {
        return findings_with(param, ETH0, R"("eth0": )" + couple);
    };
    EXPECT_THAT(said("", "{}"), ElementsAre("left-out: \"eth0\" is left out: it has no \"couple\""));
    EXPECT_THAT(said("", R"({"couple": null})"), Contains("left-out: \"eth0\" is left out: it has no \"couple\""));
    EXPECT_THAT(said("", "5"), Contains("left-out: \"eth0\" is left out: it has no \"couple\""));
    EXPECT_THAT(said("", R"({"couple": "x", "key_exchange": 5})"),
                ElementsAre("left-out: \"eth0\" is left out: its \"key_exchange\" is not 4",
                            HasSubstr("unsound-value: \"key_exchange\": 5 is not one of 4: ")));
    EXPECT_THAT(said("", R"({"couple": "x", "key_exchange": 4})"),
                ElementsAre(HasSubstr("its name needs \"plc_vlan_backhaul_id\"")));
    EXPECT_THAT(said("", R"({"couple": "x", "exchange": 5})"),
                ElementsAre(HasSubstr("its name needs \"plc_vlan_guest_id\"")));
    EXPECT_THAT(said("", R"({"couple": "x", "exchange": 4})"),
                ElementsAre(HasSubstr("its name needs \"eth_vlan_id\"")));
    EXPECT_THAT(said(R"("eth_vlan_id": 3)", R"({"couple": "x", "exchange": 4, "key_exchange": 4})"),
                ElementsAre(HasSubstr("its name needs \"plc_vlan_backhaul_id\"")));
}

TEST(Couple, PastTheSixteenthTheyAreLeftOut) {
    const auto report = check_inspect(file_with("", ETH0, many(18, R"({"couple": "eth0"})")));
    EXPECT_EQ(report->record.couple_num, 16U);
    EXPECT_THAT(left_out(*report), ElementsAre("backhual x16", "backhual x17"));
    EXPECT_THAT(findings(*report), Contains(HasSubstr("too-many: only 16 entries of \"backhual\" are kept; \"x16\"")));
}

TEST(VlanIds, WhatNoNameTakesIsNoted) {
    const char *all = R"("eth_vlan_id": 1, "iptv_vlan_id": 2, "iptv_vlan_backhaul_id": 3, "plc_vlan_backhaul_id": 4,
        "plc_vlan_guest_id": 5, "plc_vlan_iptv_id": 6)";
    EXPECT_EQ(findings_with(all).size(), 6U);
    EXPECT_THAT(findings_with(all), testing::Each(HasSubstr("unused-vlan: ")));
    EXPECT_THAT(findings_with(R"("iptv_vlan_id": 0)"), IsEmpty());
    for (int exchange = 1; exchange <= 6; exchange++)
        EXPECT_EQ(findings_with(all, R"("eth7": {"type": "5g", "exchange": )" + std::to_string(exchange) + "}").size(),
                  5U);
}

TEST(VlanIds, WiredCouplesReadThePowerLineBackhaulsId) {
    const char *interfaces = R"("eth0": {"type": "5g"}, "wlan0": {"type": "5g"})";
    EXPECT_THAT(findings_with(R"("plc_vlan_backhaul_id": 4)", interfaces, R"("eth0": {"couple": "wlan0"})"), IsEmpty());
    EXPECT_THAT(findings_with(R"("plc_vlan_backhaul_id": 4)", interfaces, R"("wlan0": {"couple": "eth0"})"),
                ElementsAre(HasSubstr("unused-vlan")));
}
