// The capacity that is left on a path.
#include "path_selection/decide/quota.h"
#include "support/rows.h"

#include <random>

namespace {

// ---- The capacity that is left

struct quota_row {
    const char *name;
    kolt_link_type type;
    uint8_t reserved;
    uint8_t util;
    int8_t adjustment;
    uint8_t util_after;
    int16_t quota;
};

class PathQuota : public table_test<quota_row> {};

INSTANTIATE_TEST_SUITE_P(Rows, PathQuota,
                         testing::Values(quota_row{"Idle", KOLT_LINK_2G, 0, 0, 0, 0, 10000},
                                         quota_row{"Reserved10Util95", KOLT_LINK_5G, 10, 95, 0, 95, 0},
                                         quota_row{"Reserved10Util20", KOLT_LINK_5G, 10, 20, 0, 20, 7000},
                                         quota_row{"Util99", KOLT_LINK_5G_2, 0, 99, 0, 99, 100},
                                         quota_row{"Util100", KOLT_LINK_5G_2, 0, 100, 0, 100, 0},
                                         quota_row{"Util101", KOLT_LINK_5G_2, 0, 101, 0, 101, 0},
                                         quota_row{"Ethernet", KOLT_LINK_ETHERNET, 10, 20, 0, 20, 7000},
                                         quota_row{"Raised", KOLT_LINK_2G, 0, 20, 30, 20, 5000},
                                         quota_row{"Lowered", KOLT_LINK_2G, 0, 20, -30, 20, 11000},
                                         // 8 bits: 127 is the most, 128 is -128, and -129 is 127 again.
                                         quota_row{"LoweredTo127", KOLT_LINK_2G, 0, 0, -27, 0, 12700},
                                         quota_row{"LoweredTo128", KOLT_LINK_2G, 0, 0, -28, 0, 0},
                                         quota_row{"LoweredByTheMost", KOLT_LINK_2G, 0, 0, -128, 0, 0},
                                         quota_row{"Util228IsMinus128", KOLT_LINK_2G, 0, 228, 0, 228, 0},
                                         quota_row{"Util229WrapsTo127", KOLT_LINK_2G, 0, 229, 0, 229, 12700},
                                         quota_row{"Util255WrapsTo101", KOLT_LINK_2G, 0, 255, 0, 255, 10100},
                                         quota_row{"Reserved228IsMinus128", KOLT_LINK_5G, 228, 0, 0, 0, 0},
                                         quota_row{"Reserved229WrapsTo127", KOLT_LINK_5G, 229, 0, 0, 0, 12700},
                                         // 100 - 200 - 200 is -300, which is -44.
                                         quota_row{"ReservedAndUtil200", KOLT_LINK_5G, 200, 200, 0, 200, 0},
                                         // 100 - 255 - 255 - 127 is -537, which is -25.
                                         quota_row{"EverythingAtItsMost", KOLT_LINK_5G, 255, 255, 127, 255, 0},
                                         // 100 - 255 - 101 is -256, which is 0.
                                         quota_row{"WrapsToNothing", KOLT_LINK_5G, 255, 101, 0, 101, 0},
                                         // Power line: the reserve is taken off the utilisation first.
                                         quota_row{"PowerLineReserved10Util20", KOLT_LINK_PLC, 10, 20, 0, 10, 8000},
                                         quota_row{"PowerLineUtilEqualToTheReserve", KOLT_LINK_PLC, 10, 10, 0, 0, 9000},
                                         quota_row{"PowerLineUtilBelowTheReserve", KOLT_LINK_PLC, 10, 9, 0, 0, 9000},
                                         quota_row{"PowerLineUtil100", KOLT_LINK_PLC, 10, 100, 0, 90, 0},
                                         quota_row{"PowerLineUtil99", KOLT_LINK_PLC, 10, 99, 0, 89, 100},
                                         quota_row{"PowerLineRaised", KOLT_LINK_PLC, 10, 20, 5, 10, 7500},
                                         quota_row{"PowerLineUtil127", KOLT_LINK_PLC, 0, 127, 0, 127, 0},
                                         quota_row{"PowerLineUtil128IsNegative", KOLT_LINK_PLC, 0, 128, 0, 0, 10000},
                                         quota_row{"PowerLineUtil255IsNegative", KOLT_LINK_PLC, 0, 255, 0, 0, 10000},
                                         // 255 - 128 is 127; 100 - 128 - 127 is -155, which is 101.
                                         quota_row{"PowerLineReserved128Util255", KOLT_LINK_PLC, 128, 255, 0, 127,
                                                   10100},
                                         // 0 - 129 is 127 in 8 bits; 100 - 129 - 127 is -156, which is 100.
                                         quota_row{"PowerLineReserved129Idle", KOLT_LINK_PLC, 129, 0, 0, 127, 10000}),
                         row_name<quota_row>);

TEST_P(PathQuota, QuotaIsWhatUtilizationAndReserveLeaveInSignedEightBits) {
    const quota_row &row = GetParam();
    ps_path path;
    path.util = row.util;
    path.util_adjustment = row.adjustment;
    path.quota = 4711;
    EXPECT_FALSE(ps_set_quota(&path, row.type, row.reserved, false));
    EXPECT_EQ(path.path, row.type);
    EXPECT_EQ(path.util, row.util_after);
    EXPECT_EQ(path.quota, row.quota);
    EXPECT_EQ(path.util_adjustment, row.adjustment);
}

TEST(QuotaOfAnOverloadedProcessor, OverloadedProcessorTakesTheQuotaOfThe24GhzPathOnly) {
    for (const kolt_link_type type : KOLT_LINKS) {
        ps_path path;
        path.util = 40;
        EXPECT_EQ(ps_set_quota(&path, type, 0, true), type == KOLT_LINK_2G) << type;
        EXPECT_EQ(path.quota, type == KOLT_LINK_2G ? 0 : 6000) << type;
        EXPECT_EQ(path.path, type);
    }
}

// ---- Against a plain model

// The value that 8 bits in two's complement keep of a number.
int eight_bits(int value) {
    while (value < -128)
        value += 256;
    while (value > 127)
        value -= 256;
    return value;
}

TEST(QuotaModel, QuotaOfRandomRowsIsThatOfThePlainModel) {
    std::mt19937 random(20240502);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> percent(0, 100);
    for (int round = 0; round < 25000; round++) {
        const bool usual = round % 2 == 0;
        const int reserved = usual ? percent(random) : byte(random);
        int util = usual ? percent(random) : byte(random);
        const int adjustment = byte(random) - 128;
        const kolt_link_type type = KOLT_LINKS[round % 5];
        ps_path path;
        path.util = static_cast<uint8_t>(util);
        path.util_adjustment = static_cast<int8_t>(adjustment);
        (void)ps_set_quota(&path, type, reserved, false);
        if (type == KOLT_LINK_PLC)
            util = eight_bits(util - reserved) > 0 ? eight_bits(util - reserved) : 0;
        const int left = eight_bits(eight_bits(100 - reserved) - eight_bits(util + adjustment));
        ASSERT_EQ(path.util, util) << "round " << round;
        ASSERT_EQ(path.quota, (left > 0 ? left : 0) * 100) << "round " << round;
    }
}

} // namespace
