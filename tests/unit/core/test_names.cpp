// Interface names and MAC addresses.
#include "support/fixture.h"
#include "support/rows.h"

#include "core/names.h"

#include <cstring>

namespace {

using testing::ElementsAre;

struct mac_text_row {
    const char *name;
    int colon;
    const char *text;
    mac_address expected;
};

class MacText : public table_test<mac_text_row, fixture> {};

TEST_P(MacText, ParsingAMacAlwaysSucceeds) {
    mac_address mac;
    mac.fill(0xEE);
    EXPECT_EQ(kolt_str_to_mac(GetParam().text, mac.data(), GetParam().colon), 1);
    EXPECT_EQ(mac, GetParam().expected);
    EXPECT_TRUE(logged().empty());
}

constexpr mac_address ZERO{};

INSTANTIATE_TEST_SUITE_P(
    Names, MacText,
    testing::Values(
        mac_text_row{"ColonForm", 1, "00:1A:2B:3C:4D:FF", {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0xFF}},
        mac_text_row{"ColonFormLowerCase", 1, "aa:bb:cc:dd:ee:ff", {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}},
        mac_text_row{"ColonFormMixedCase", 1, "aB:Cd:0e:F0:9a:A9", {0xAB, 0xCD, 0x0E, 0xF0, 0x9A, 0xA9}},
        mac_text_row{"AnyFlagButZeroIsColonForm", 2, "01:02:03:04:05:06", {1, 2, 3, 4, 5, 6}},
        mac_text_row{"HyphenForm", 0, "00-1A-2B-3C-4D-FF", {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0xFF}},
        mac_text_row{"HyphenFormLowerCase", 0, "aa-bb-cc-dd-ee-ff", {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}},
        mac_text_row{"HyphensInColonForm", 1, "AA-BB-CC-DD-EE-FF", ZERO},
        mac_text_row{"ColonsInHyphenForm", 0, "AA:BB:CC:DD:EE:FF", ZERO},
        mac_text_row{"OneDigitOctets", 1, "1:2:3:4:5:a", {1, 2, 3, 4, 5, 10}},
        mac_text_row{"AbcIsAllZero", 1, "abc", ZERO}, mac_text_row{"AbcInHyphenFormIsAllZero", 0, "abc", ZERO},
        mac_text_row{"Empty", 1, "", ZERO}, mac_text_row{"NoHexadecimalDigits", 1, "xyz", ZERO},
        mac_text_row{"LeadingColon", 1, ":11:22:33:44:55", ZERO},
        mac_text_row{"OneDigitThenTheEnd", 1, "5", {5, 0, 0, 0, 0, 0}},
        mac_text_row{"OneOctetThenTheEnd", 1, "5A", {0x5A, 0, 0, 0, 0, 0}},
        mac_text_row{"TrailingSeparator", 1, "11:22:", {0x11, 0x22, 0, 0, 0, 0}},
        mac_text_row{"FiveOctets", 1, "11:22:33:44:55", {0x11, 0x22, 0x33, 0x44, 0x55, 0}},
        mac_text_row{"StopsAtAnOctetThatIsNone", 1, "11:22:zz:44:55:66", {0x11, 0x22, 0, 0, 0, 0}},
        mac_text_row{"StopsAtAnOctetOfThreeDigits", 1, "11:223:44:55:66:77", {0x11, 0, 0, 0, 0, 0}},
        mac_text_row{"StopsAtTheOtherSeparator", 1, "11:22-33:44:55:66", {0x11, 0, 0, 0, 0, 0}},
        mac_text_row{"FifthOctetOfThreeDigits", 1, "11:22:33:44:555:66", {0x11, 0x22, 0x33, 0x44, 0, 0}},
        mac_text_row{"MoreDigitsBehindTheSixth", 1, "11:22:33:44:55:667", {0x11, 0x22, 0x33, 0x44, 0x55, 0x66}},
        mac_text_row{"OtherTextBehindTheSixth", 1, "11:22:33:44:55:66 x", {0x11, 0x22, 0x33, 0x44, 0x55, 0x66}},
        mac_text_row{"SevenOctets", 0, "11-22-33-44-55-66-77", {0x11, 0x22, 0x33, 0x44, 0x55, 0x66}}),
    row_name<mac_text_row>);

class Names : public fixture {};

TEST_F(Names, MacTextOfNullArgumentsIsRefused) {
    mac_address mac{1, 2, 3, 4, 5, 6};
    EXPECT_EQ(kolt_str_to_mac(nullptr, mac.data(), 1), 0);
    EXPECT_THAT(mac, ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(kolt_str_to_mac("11:22:33:44:55:66", nullptr, 1), 0);
    EXPECT_EQ(kolt_str_to_mac(nullptr, nullptr, 0), 0);
}

TEST_F(Names, MacsAreEqualOnlyWhenAllSixOctetsAre) {
    const mac_address mac{0x11, 0x22, 0x33, 0x44, 0x55, 0x66};
    const mac_address same = mac;
    EXPECT_EQ(kolt_mac_equal(mac.data(), same.data()), 1);
    for (size_t i = 0; i < mac.size(); i++) {
        mac_address other = mac;
        other[i] ^= 0x80;
        EXPECT_EQ(kolt_mac_equal(mac.data(), other.data()), 0) << "octet " << i;
    }
}

struct mac_sum_row {
    const char *name;
    mac_address mac;
    uint8_t delta;
    mac_address expected;
};

class MacSum : public table_test<mac_sum_row, fixture> {};

TEST_P(MacSum, SumCarriesTowardsTheFirstOctet) {
    mac_address mac = GetParam().mac;
    kolt_mac_add(mac.data(), GetParam().delta);
    EXPECT_EQ(mac, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Names, MacSum,
    testing::Values(mac_sum_row{"NoCarry", {1, 2, 3, 4, 5, 6}, 3, {1, 2, 3, 4, 5, 9}},
                    mac_sum_row{"NothingAdded", {1, 2, 3, 4, 5, 0xFF}, 0, {1, 2, 3, 4, 5, 0xFF}},
                    mac_sum_row{"UpToTheLastValueOfTheOctet", {1, 2, 3, 4, 5, 0xFC}, 3, {1, 2, 3, 4, 5, 0xFF}},
                    mac_sum_row{"CarryIntoTheFifth", {1, 2, 3, 4, 5, 0xFD}, 3, {1, 2, 3, 4, 6, 0}},
                    mac_sum_row{"LargestDelta", {1, 2, 3, 4, 5, 0xFF}, 255, {1, 2, 3, 4, 6, 0xFE}},
                    mac_sum_row{"CarryThroughTwo", {1, 2, 3, 4, 0xFF, 0xFF}, 2, {1, 2, 3, 5, 0, 1}},
                    mac_sum_row{"CarryIntoTheFirst", {7, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 1, {8, 0, 0, 0, 0, 0}},
                    mac_sum_row{
                        "CarryOutOfTheFirstIsLost", {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE}, 3, {0, 0, 0, 0, 0, 1}}),
    row_name<mac_sum_row>);

struct vlan_row {
    const char *name;
    const char *base;
    uint32_t id;
    int dotted;
    const char *expected;
};

class VlanName : public table_test<vlan_row, fixture> {};

TEST_P(VlanName, VlanNameIsTerminatedAndZeroBehindItsText) {
    char field[17];
    memset(field, 0x55, sizeof field);
    EXPECT_EQ(kolt_get_vlan_name(field, GetParam().base, GetParam().id, GetParam().dotted), 1);
    char expected[17] = {};
    strncpy(expected, GetParam().expected, 15);
    expected[16] = 0x55; // not the field's
    EXPECT_EQ(std::string(field, sizeof field), std::string(expected, sizeof expected));
}

INSTANTIATE_TEST_SUITE_P(Names, VlanName,
                         testing::Values(vlan_row{"Dotted", "eth0", 3, 1, "eth0.3"},
                                         vlan_row{"Undotted", "eth0", 3, 0, "eth03"},
                                         vlan_row{"AnyFlagButZeroIsDotted", "eth0", 3, -1, "eth0.3"},
                                         vlan_row{"IdZero", "eth0", 0, 1, "eth0.0"},
                                         vlan_row{"EmptyBase", "", 12, 1, ".12"},
                                         vlan_row{"IdsAreUnsigned", "eth0", 4294967295, 1, "eth0.4294967295"},
                                         vlan_row{"FifteenCharacters", "abcdefghijkl", 12, 1, "abcdefghijkl.12"},
                                         vlan_row{"SixteenAreCut", "abcdefghijkl", 123, 1, "abcdefghijkl.12"},
                                         vlan_row{"SixteenUndottedAreCut", "abcdefghijkl", 1234, 0, "abcdefghijkl123"},
                                         vlan_row{"LongestOfAll", "abcdefghijklmno", 4294967295, 1, "abcdefghijklmno"}),
                         row_name<vlan_row>);

// A field of 16 characters that is not terminated, with something else behind it.
struct full_field {
    char name[16] = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p'};
    char behind[16] = {'!', '!', '!', '!', '!', '!', '!', '!', '!', '!', '!', '!', '!', '!', '!', '!'};
};

TEST_F(Names, VlanNameOfAnUnterminatedBaseReadsSixteenCharacters) {
    const full_field base;
    char field[16];
    EXPECT_EQ(kolt_get_vlan_name(field, base.name, 1, 0), 1);
    EXPECT_STREQ(field, "abcdefghijklmno");
}

struct base_row {
    const char *name;
    const char *text;
    const char *expected;
};

class BaseName : public table_test<base_row, fixture> {};

TEST_P(BaseName, BaseNameEndsBeforeTheFirstDot) {
    char base[17];
    memset(base, 0x55, sizeof base);
    kolt_get_base_name(base, GetParam().text);
    EXPECT_STREQ(base, GetParam().expected);
    EXPECT_EQ(base[16], 0x55);
}

INSTANTIATE_TEST_SUITE_P(Names, BaseName,
                         testing::Values(base_row{"OneDot", "wlan0.1", "wlan0"},
                                         base_row{"TwoDots", "wlan0.1.2", "wlan0"}, base_row{"NoDot", "wlan0", "wlan0"},
                                         base_row{"OnlyADot", ".", ""}, base_row{"DotFirst", ".1", ""},
                                         base_row{"Empty", "", ""},
                                         base_row{"FifteenBeforeTheDot", "abcdefghijklmno.", "abcdefghijklmno"},
                                         base_row{"SixteenWithoutADot", "abcdefghijklmnop", "abcdefghijklmno"}),
                         row_name<base_row>);

TEST_F(Names, CopyFillsTheFieldAndNothingBehindIt) {
    full_field copy;
    kolt_copy_name(copy.name, "eth0");
    EXPECT_EQ(std::string(copy.name, 16), std::string("eth0") + std::string(12, '\0'));
    kolt_copy_name(copy.name, "0123456789abcdefGHI");
    EXPECT_EQ(std::string(copy.name, 16), "0123456789abcdef");
    EXPECT_EQ(copy.behind[0], '!');
}

TEST_F(Names, ComparisonLooksAtSixteenCharacters) {
    EXPECT_TRUE(kolt_name_equal("eth0", "eth0"));
    EXPECT_FALSE(kolt_name_equal("eth0", "eth1"));
    EXPECT_FALSE(kolt_name_equal("eth0", "eth01"));
    EXPECT_FALSE(kolt_name_equal("eth0", "ETH0"));
    const full_field unterminated;
    EXPECT_TRUE(kolt_name_equal(unterminated.name, "abcdefghijklmnop"));
    EXPECT_TRUE(kolt_name_equal("abcdefghijklmnopX", "abcdefghijklmnopY"));
    EXPECT_FALSE(kolt_name_equal(unterminated.name, "abcdefghijklmno"));
}

TEST_F(Names, TextOfAFullFieldIsTerminated) {
    const full_field unterminated;
    EXPECT_STREQ(kolt_name_text(unterminated.name).text, "abcdefghijklmnop");
    EXPECT_STREQ(kolt_name_text("br-lan").text, "br-lan");
}

} // namespace
