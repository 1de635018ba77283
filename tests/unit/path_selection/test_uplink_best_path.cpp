// The best path for a client, and the preferred one.
#include "path_selection/paths_test.h"
#include "path_selection/uplink.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- The best path

TEST(BestPathOfAClient, HighestScoreWinsUnlessTheClientIsBehindARelayPort) {
    ps_path_table rows;
    rows[KOLT_LINK_2G] = make_path(KOLT_LINK_2G, "wlan0.1", 1, 0);
    rows[KOLT_LINK_5G] = make_path(KOLT_LINK_5G, "wlan1.1", 300, 5000);
    for (const int relay : {0, 2, 255}) {
        kolt_client client;
        client.relay = static_cast<uint8_t>(relay);
        EXPECT_EQ(path_selection_get_best_path(client, &rows), &rows[KOLT_LINK_5G]) << relay;
    }
    kolt_client relay_client;
    relay_client.relay = 1;
    EXPECT_EQ(path_selection_get_best_path(relay_client, &rows), &rows[KOLT_LINK_2G]) << "the first usable one";
}

// ---- The preferred path

struct prefered_row {
    const char *name;
    kolt_link_type backhaul;
    uint16_t rate; // of the 5 GHz row
    uint16_t rate_threshold;
    int low_noise;
    int expected;
    bool asked; // whether the driver is asked for the noise
};
class PreferedPath : public Paths, public testing::WithParamInterface<named_row<prefered_row>> {};

TEST_P(PreferedPath, PreferedPathIsPresentQuietAndFasterThanTheThreshold) {
    const prefered_row &row = GetParam().row;
    ps_path_table rows;
    rows[3] = make_path(KOLT_LINK_5G, "wlan1.1", row.rate, 0);
    rows[3].util = 44;
    rows[3].util_adjustment = 5;
    platform.fail("is_5g_low_noise", row.low_noise);
    EXPECT_EQ(path_selection_is_prefered_path(rows, row.backhaul, row.rate_threshold), row.expected);
    if (row.asked)
        EXPECT_THAT(platform.calls, ElementsAre("is_5g_low_noise(" + std::to_string(row.rate) + ", 44, config)"));
    else
        EXPECT_THAT(platform.calls, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Rows, PreferedPath,
                         testing::Values(prefered_row{"Quiet", KOLT_LINK_5G, 300, 4, 1, 1, true},
                                         prefered_row{"QuietByAnyResult", KOLT_LINK_5G, 300, 4, -1, 1, true},
                                         prefered_row{"Noisy", KOLT_LINK_5G, 300, 4, 0, 0, true},
                                         prefered_row{"BelowTheThreshold", KOLT_LINK_5G, 299, 300, 1, 0, true},
                                         prefered_row{"AtTheThreshold", KOLT_LINK_5G, 300, 300, 1, 0, true},
                                         prefered_row{"AboveTheThreshold", KOLT_LINK_5G, 301, 300, 1, 1, true},
                                         prefered_row{"ThresholdOfNothing", KOLT_LINK_5G, 1, 0, 1, 1, true},
                                         prefered_row{"ThresholdOfSixteenBits", KOLT_LINK_5G, 65535, 65535, 1, 0, true},
                                         prefered_row{"WithoutARate", KOLT_LINK_5G, 0, 0, 1, 0, false},
                                         prefered_row{"Absent", KOLT_LINK_2G, 300, 4, 1, 0, false},
                                         prefered_row{"NoRow", KOLT_LINK_NONE, 300, 4, 1, 0, false},
                                         prefered_row{"FarOff", static_cast<kolt_link_type>(256), 300, 4, 1, 0, false},
                                         prefered_row{"Farthest", static_cast<kolt_link_type>(4294967295U), 300, 4, 1,
                                                      0, false}),
                         row_name<prefered_row>);

TEST_F(Paths, PreferedPathIsNeverUsedWithADriverThatCannotTellTheNoise) {
    ps_path_table rows;
    rows[KOLT_LINK_5G] = make_path(KOLT_LINK_5G, "wlan1.1", 300, 5000);
    wlan_platform table = scripted::table;
    table.is_5g_low_noise = nullptr;
    const installed_table without(&table);
    EXPECT_EQ(path_selection_is_prefered_path(rows, KOLT_LINK_5G, 4), 0);
    const installed_table none(nullptr);
    EXPECT_EQ(path_selection_is_prefered_path(rows, KOLT_LINK_5G, 4), 0);
}

TEST(NorelayClient, NorelayClientHasAnyRelayFlagButOne) {
    for (const auto &[relay, expected] : {std::pair{0, 1}, {1, 0}, {2, 1}, {255, 1}}) {
        kolt_client client;
        client.relay = static_cast<uint8_t>(relay);
        EXPECT_EQ(path_selection_is_norelay_client(client), expected) << relay;
    }
}

} // namespace
