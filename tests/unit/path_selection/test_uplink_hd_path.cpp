// The path that clients are pinned to: the preferred one, and the majority's.
#include "path_selection/uplink_test.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// The busy 5 GHz radio is the slower choice of the two: the best path is always the 2.4 GHz one.
class HdPath : public Uplink {
protected:
    void SetUp() override {
        Uplink::SetUp();
        add_wifi("wlan0", KOLT_LINK_2G, 300, 10);   // quota 9000
        add_wifi("wlan1", KOLT_LINK_5G, 300, 50);   // quota 5000
        add_wifi("wlan2", KOLT_LINK_5G_2, 300, 60); // quota 4000
        add_client(1, "eth0");
        config_.param.rate_threshold = 4;
    }
    void make_quiet() {
        platform.fail("is_5g_low_noise", 1);
    }
    lines ring(size_t length) {
        lines types;
        for (size_t i = 0; i < length; i++)
            types.push_back(std::to_string(path_selection_ctx.hd_sample_ring[i]));
        EXPECT_EQ(path_selection_ctx.hd_sample_index, length);
        EXPECT_EQ(path_selection_ctx.hd_sample_ring[length], 5);
        return types;
    }
};

// ---- The preferred backhaul

struct backhaul_row {
    const char *name;
    uint8_t prefered;
    uint32_t backhaul;
    int is_prefered;
    const char *hd; // where the client goes
    lines asked;
};
class PreferedBackhaul : public HdPath, public testing::WithParamInterface<named_row<backhaul_row>> {};

TEST_P(PreferedBackhaul, PreferedBackhaulIsOneMoreThanTheConfiguredValue) {
    const backhaul_row &row = GetParam().row;
    config_.param.backhual_prefered = row.prefered;
    make_quiet();
    run();
    EXPECT_THAT(texts(), ElementsAre(preference(row.backhaul, row.prefered, row.is_prefered), client_line(1),
                                     choice(row.hd, "wlan0.1")));
    EXPECT_EQ(calls_of("is_5g_low_noise"), row.asked);
    EXPECT_THAT(placements(), ElementsAre(placement(1, row.hd)));
}

INSTANTIATE_TEST_SUITE_P(
    Values, PreferedBackhaul,
    testing::Values(backhaul_row{"NoPreference", 0, 5, 0, "wlan0.1", {}},
                    backhaul_row{"One2G", 1, 2, 1, "wlan0.1", {"is_5g_low_noise(300, 10, config)"}},
                    backhaul_row{"Two5G", 2, 3, 1, "wlan1.1", {"is_5g_low_noise(300, 50, config)"}},
                    backhaul_row{"Three5G2", 3, 4, 1, "wlan2.1", {"is_5g_low_noise(300, 60, config)"}},
                    backhaul_row{"FourNoRow", 4, 5, 0, "wlan0.1", {}},
                    backhaul_row{"FiveNoRow", 5, 6, 0, "wlan0.1", {}},
                    backhaul_row{"LargestNoRow", 255, 256, 0, "wlan0.1", {}}),
    row_name<backhaul_row>);

TEST_F(HdPath, EveryNonrelayClientIsRoutedToThePreferedBackhaul) {
    config_.param.backhual_prefered = 2;
    make_quiet();
    add_port("eth1", KOLT_LINK_ETHERNET, 1, 0);
    add_client(2, "eth1");
    add_client(3, "eth0");
    run();
    EXPECT_THAT(placements(), ElementsAre(placement(1, "wlan1.1"), placement(3, "wlan1.1")));
    EXPECT_EQ(calls_of("is_5g_low_noise").size(), 1U) << "judged once, not for each client";
}

TEST_F(HdPath, BestPathIsTakenWhenThePreferedOneIsNoisy) {
    config_.param.backhual_prefered = 2;
    run();
    EXPECT_THAT(texts(), ElementsAre(preference(3, 2, 0), client_line(1), choice("wlan0.1", "wlan0.1")));
}

TEST_F(HdPath, BestPathIsTakenWhenThePreferedOneIsTooSlow) {
    config_.param.backhual_prefered = 2;
    config_.param.rate_threshold = 300;
    make_quiet();
    run();
    EXPECT_THAT(texts(), ElementsAre(preference(3, 2, 0), client_line(1), choice("wlan0.1", "wlan0.1")));
}

TEST_F(HdPath, BestPathIsTakenWhenThePreferedOneIsAbsent) {
    config_.param.backhual_prefered = 2;
    make_quiet();
    set_link(KOLT_LINK_5G, false);
    run();
    EXPECT_THAT(texts(), ElementsAre(preference(3, 2, 0), client_line(1), choice("wlan0.1", "wlan0.1")));
    EXPECT_THAT(calls_of("is_5g_low_noise"), IsEmpty());
}

TEST_F(HdPath, HdPathIsJudgedBehindTheStreams) {
    config_.param.backhual_prefered = 2;
    make_quiet();
    driver.radios["wlan2"].util = 90;
    run();
    lines order;
    for (const std::string &call : platform.calls) {
        if (call.starts_with("bridgeTableAction(br-lan, 8") || call.starts_with("is_5g") ||
            call.starts_with("bridgeAddHD"))
            order.push_back(call.substr(0, call.find('(')));
    }
    EXPECT_THAT(order, ElementsAre("bridgeTableAction", "is_5g_low_noise", "bridgeAddHDTableEntries"));
}

TEST_F(HdPath, NoChoiceIsRecordedWithoutACpuLimit) {
    config_.param.backhual_prefered = 2;
    make_quiet();
    run();
    EXPECT_THAT(path_selection_ctx.hd_sample_ring, Each(5));
    EXPECT_EQ(path_selection_ctx.hd_sample_index, 0);
}

// ---- With a CPU limit

class CpuLimit : public HdPath {
protected:
    void SetUp() override {
        HdPath::SetUp();
        config_.param.cpu_limit = 1;
    }
    static void fill_ring(std::vector<int32_t> types) {
        std::ranges::copy(types, path_selection_ctx.hd_sample_ring.begin());
        path_selection_ctx.hd_sample_index = static_cast<uint8_t>(types.size());
    }
};

TEST_F(CpuLimit, BestPathIsTheCandidate) {
    run();
    EXPECT_THAT(ring(1), ElementsAre("2"));
    EXPECT_THAT(texts(), ElementsAre(preference(5, 0, 0), client_line(1), choice("wlan0.1", "wlan0.1")));
}

TEST_F(CpuLimit, MajorityOfTheChoicesIsThePath) {
    fill_ring({4, 4});
    run();
    EXPECT_THAT(ring(3), ElementsAre("4", "4", "2"));
    EXPECT_THAT(texts(), ElementsAre(preference(5, 0, 0), client_line(1), choice("wlan2.1", "wlan0.1")));
    EXPECT_THAT(placements(), ElementsAre(placement(1, "wlan2.1")));
}

TEST_F(CpuLimit, OnlyTheFirstClientOfTheListIsRecorded) {
    for (const int client : {2, 3, 4})
        add_client(static_cast<uint8_t>(client), "eth0");
    run();
    EXPECT_THAT(ring(1), ElementsAre("2"));
    EXPECT_EQ(placements().size(), 4U);
    run();
    EXPECT_THAT(ring(2), ElementsAre("2", "2"));
}

TEST_F(CpuLimit, NothingIsRecordedWhenTheFirstClientIsSkipped) {
    add_port("eth1", KOLT_LINK_ETHERNET, 1, 0);
    platform.tables.clear();
    add_client(9, "eth1"); // behind a relay port
    add_client(1, "eth0");
    run();
    EXPECT_THAT(ring(0), IsEmpty());
    EXPECT_THAT(texts(), ElementsAre(preference(5, 0, 0), client_line(1), choice("wlan2.1", "wlan0.1")))
        << "of no choices the highest type is picked";
    run_with_clients({make_client(8, 54321), make_client(1, index_of("eth0"))});
    EXPECT_THAT(ring(0), IsEmpty());
}

TEST_F(CpuLimit, OneChoiceIsRecordedForEachBridge) {
    add_bridge("br-guest");
    add_wifi("wlan5", KOLT_LINK_5G, 300, 50, "br-guest");
    add_port("eth1", KOLT_LINK_ETHERNET, 0, 0, "br-guest");
    add_client(2, "eth1");
    run();
    EXPECT_THAT(ring(2), ElementsAre("2", "3"));
}

TEST_F(CpuLimit, CandidateIsThe5GRowWhenThePreferenceHolds) {
    config_.param.backhual_prefered = 2;
    make_quiet();
    run();
    EXPECT_THAT(ring(1), ElementsAre("3"));
    EXPECT_THAT(texts(), ElementsAre(preference(3, 2, 1), client_line(1), choice("wlan1.1", "wlan0.1")));
}

TEST_F(CpuLimit, CandidateIsThe5GRowAlsoWhenAnotherBackhaulIsPrefered) {
    make_quiet();
    config_.param.backhual_prefered = 3; // names 5G_2
    run();
    EXPECT_THAT(ring(1), ElementsAre("3"));
    EXPECT_THAT(texts(), ElementsAre(preference(4, 3, 1), client_line(1), choice("wlan1.1", "wlan0.1")));
    config_.param.backhual_prefered = 1; // names 2.4G
    run();
    EXPECT_THAT(ring(2), ElementsAre("3", "3"));
    EXPECT_THAT(texts(), ElementsAre(preference(2, 1, 1), client_line(1), choice("wlan1.1", "wlan0.1")));
}

TEST_F(CpuLimit, CandidateIsTheBestPathWhenThePreferenceDoesNotHold) {
    config_.param.backhual_prefered = 3;
    run();
    EXPECT_THAT(ring(1), ElementsAre("2"));
    EXPECT_THAT(texts(), ElementsAre(preference(4, 3, 0), client_line(1), choice("wlan0.1", "wlan0.1")));
}

// The absent 5G row is all zero, its own type included, and so stands for type 0.
TEST_F(CpuLimit, Absent5GRowRecordsTypeZeroAndPassesAnEmptyName) {
    config_.param.backhual_prefered = 3;
    make_quiet();
    set_link(KOLT_LINK_5G, false);
    run();
    EXPECT_THAT(ring(1), ElementsAre("0"));
    EXPECT_THAT(texts(), ElementsAre(preference(4, 3, 1), client_line(1), choice("", "wlan0.1")));
    EXPECT_THAT(placements(), ElementsAre(placement(1, "")));
}

TEST_F(CpuLimit, MajorityIsFollowedAlsoWithAnAbsent5GRow) {
    config_.param.backhual_prefered = 3;
    make_quiet();
    set_link(KOLT_LINK_5G, false);
    fill_ring({4, 4});
    run();
    EXPECT_THAT(ring(3), ElementsAre("4", "4", "0"));
    EXPECT_THAT(texts(), ElementsAre(preference(4, 3, 1), client_line(1), choice("wlan2.1", "wlan0.1")));
}

TEST_F(CpuLimit, CandidateIsThePathWhenTheMajorityIsAbsent) {
    set_link(KOLT_LINK_5G_2, false);
    fill_ring({4, 4});
    run();
    EXPECT_THAT(texts(), ElementsAre(preference(5, 0, 0), client_line(1), choice("wlan0.1", "wlan0.1")));
}

} // namespace
