// The attributes of a link notification and the wireless event records in them.
#include "link_message_test.h"

namespace {

struct attributes_row {
    const char *name;
    std::string bytes;
    bool expired;
    int errors; // records with a bad length
};

class Attributes : public link_message_test, public testing::WithParamInterface<attributes_row> {
protected:
    Attributes() {
        port = add_interface("wlan1", 1, 1);
        add_active_bridge("br-lan", CONFIG_LOOP_AVOIDANCE, {});
    }
    test_interface wlan{"wlan1"};
    config_interface *port;
};

std::string wireless(const std::string &records) {
    return attribute(WIRELESS, records);
}

const std::string OTHER = record(0x8C03);
const std::string GONE = record(EXPIRED);
const std::string ZEROES(40, '\0');

std::string row_name(const testing::TestParamInfo<attributes_row> &row) {
    return row.param.name;
}

} // namespace

TEST_P(Attributes, AttributesTellWhetherAStationExpired) {
    handle(link_message(wlan.index(), GetParam().bytes));
    EXPECT_EQ(platform.programming().size(), GetParam().expired ? 1U : 0U);
    const std::vector<log_line> errors(static_cast<size_t>(GetParam().errors),
                                       {3, "nl_wifi_newlink_handle", "Error: Event len is not available"});
    EXPECT_EQ(logged(), errors);
}

// A record's length is looked at for interfaces that the notification matters for, and for no others.
TEST_P(Attributes, AttributesAreNotLookedAtForAnInterfaceThatIsNoPath) {
    port->path = 0;
    handle(link_message(wlan.index(), GetParam().bytes));
    EXPECT_THAT(platform.programming(), testing::IsEmpty());
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Records, Attributes,
    testing::Values(
        attributes_row{"None", "", false, 0}, attributes_row{"Expired", wireless(GONE), true, 0},
        attributes_row{"OtherCommand", wireless(OTHER), false, 0},
        attributes_row{"NextCommand", wireless(record(0x8C05)), false, 0},
        attributes_row{"CommandWithSwappedBytes", wireless(record(0x048C)), false, 0},
        attributes_row{"EmptyAttribute", wireless(""), false, 0},
        attributes_row{"ThreeBytes", wireless("abc"), false, 0},
        attributes_row{"ExpiredBehindOthers", wireless(OTHER + OTHER + GONE), true, 0},
        attributes_row{"ExpiredBeforeOthers", wireless(GONE + OTHER), true, 0},
        attributes_row{"LengthZero", wireless(claimed_record(0, EXPIRED, 8)), false, 1},
        attributes_row{"LengthOne", wireless(claimed_record(1, EXPIRED, 8)), false, 1},
        attributes_row{"LengthFourEndsTheScan", wireless(claimed_record(4, EXPIRED, 4)), false, 1},
        attributes_row{"LengthFourEndsTheScanBeforeTheNext", wireless(claimed_record(4, 0x8C03, 4) + GONE), false, 1},
        attributes_row{"LengthFive", wireless(record(EXPIRED, 5)), true, 0},
        attributes_row{"UnalignedRecordAfterLengthFive", wireless(record(0x8C03, 5) + GONE), true, 0},
        attributes_row{"LengthToTheEnd", wireless(claimed_record(20, EXPIRED, 20)), true, 0},
        attributes_row{"LengthPastTheEnd", wireless(claimed_record(9, EXPIRED, 8)), false, 1},
        attributes_row{"LengthFarPastTheEnd", wireless(claimed_record(0xFFFF, EXPIRED, 8)), false, 1},
        attributes_row{"ExpiredBeforeABadLengthStillCounts", wireless(GONE + claimed_record(4, 0x8C03, 8)), true, 1},
        attributes_row{"ExpiredBeforeALengthPastTheEndStillCounts", wireless(GONE + claimed_record(99, 0x8C03, 8)),
                       true, 1},
        attributes_row{"ExpiredBehindABadLengthDoesNot", wireless(claimed_record(0, 0x8C03, 8) + GONE), false, 1},
        attributes_row{"RestOfThreeBytesIsIgnored", wireless(GONE + "abc"), true, 0},
        attributes_row{"RestOfFourBytesIsARecord", wireless(GONE + std::string(4, '\0')), true, 1}),
    row_name);

INSTANTIATE_TEST_SUITE_P(
    SeveralWireless, Attributes,
    testing::Values(attributes_row{"ExpiredLast", wireless(OTHER) + wireless(GONE), true, 0},
                    attributes_row{"OtherLast", wireless(GONE) + wireless(OTHER), false, 0},
                    attributes_row{"EmptyLast", wireless(GONE) + wireless(""), false, 0},
                    attributes_row{"BrokenLast", wireless(GONE) + wireless(claimed_record(0, EXPIRED, 8)), false, 1},
                    attributes_row{"BrokenFirst", wireless(claimed_record(0, EXPIRED, 8)) + wireless(GONE), true, 1},
                    attributes_row{"AnotherTypeLast", wireless(GONE) + attribute(10, OTHER), true, 0}),
    row_name);

INSTANTIATE_TEST_SUITE_P(OtherTypes, Attributes,
                         testing::Values(attributes_row{"Ten", attribute(10, GONE), false, 0},
                                         attributes_row{"Twelve", attribute(12, GONE), false, 0},
                                         attributes_row{"Zero", attribute(0, GONE), false, 0},
                                         attributes_row{"ThirtyNine", attribute(39, GONE), false, 0},
                                         attributes_row{"Forty", attribute(40, GONE), false, 0},
                                         attributes_row{"WithTheNestedFlag", attribute(0x800B, GONE), false, 0},
                                         attributes_row{"SameLowByte", attribute(0x010B, GONE), false, 0},
                                         attributes_row{"BeforeAWirelessOne",
                                                        attribute(3, "wlan1") + attribute(40, "x") + wireless(GONE),
                                                        true, 0}),
                         row_name);

INSTANTIATE_TEST_SUITE_P(
    Hostile, Attributes,
    testing::Values(
        attributes_row{"LengthZeroEndsTheWalk", claimed_attribute(0, 3, "") + wireless(GONE), false, 0},
        attributes_row{"LengthThreeEndsTheWalk", claimed_attribute(3, 3, "") + wireless(GONE), false, 0},
        attributes_row{"LengthFourIsEmpty", claimed_attribute(4, 3, "") + wireless(GONE), true, 0},
        attributes_row{"UnalignedLengthIsPadded", claimed_attribute(5, 3, std::string("a\0\0\0", 4)) + wireless(GONE),
                       true, 0},
        attributes_row{"OneBytePastTheEnd", claimed_attribute(13, WIRELESS, GONE), false, 0},
        attributes_row{"FarPastTheEnd", claimed_attribute(0xFFFF, WIRELESS, GONE), false, 0},
        attributes_row{"PastTheEndBehindAGoodOne", wireless(GONE) + claimed_attribute(13, WIRELESS, OTHER), true, 0},
        attributes_row{"LastWithoutItsPadding", claimed_attribute(9, WIRELESS, record(EXPIRED, 5)), true, 0},
        attributes_row{"PartOfThePadding", claimed_attribute(9, WIRELESS, record(EXPIRED, 5)) + '\0', true, 0},
        attributes_row{"OneByteLeft", wireless(GONE) + "a", true, 0},
        attributes_row{"ThreeBytesLeft", wireless(GONE) + "abc", true, 0},
        attributes_row{"ThreeBytesAlone", "abc", false, 0},
        attributes_row{"HeadAlone", claimed_attribute(4, WIRELESS, ""), false, 0},
        attributes_row{"HeadOfALongerOne", claimed_attribute(12, WIRELESS, ""), false, 0},
        attributes_row{"Zeroes", ZEROES, false, 0}),
    row_name);
