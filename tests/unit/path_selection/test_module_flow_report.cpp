// The flow that a neighbour reports.
#include "path_selection/module.h"
#include "path_selection/paths_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A report's bytes at their offsets.
class FlowReport : public Paths {
protected:
    template <class Value> void put(size_t offset, Value value) {
        memcpy(payload_.data() + offset, &value, sizeof value);
    }
    void SetUp() override {
        Paths::SetUp();
        put(0, mac_address{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0xFE});
        put(6, mac_address{0xA0, 0xB0, 0xC0, 0xD0, 0xE0, 0x0F});
        put(12, uint16_t{51000});
        put(14, uint16_t{443});
        put(16, uint32_t{17});
        put(20, uint8_t{3});
    }
    void send(uint32_t length, uint32_t type = 4) {
        // Exactly as long as it says, so that reading on is seen.
        std::vector<uint8_t> exact(payload_.begin(), payload_.begin() + length);
        kolt_event event{.type = type, .len = length, .data = exact.data()};
        path_selection_event_cb(&config_, nullptr, KOLT_EVENT_NEIGHBOUR, &event);
    }
    std::array<uint8_t, 64> payload_{};
};

constexpr char KEY[] = "flush_fc_flow_by_ha(A0:B0:C0:D0:E0:0F, 00:1A:2B:3C:4D:FE, 443, 51000, 17, 0, 3)";

TEST_F(FlowReport, FlowOfTheReverseDirectionIsFlushed) {
    send(21);
    EXPECT_THAT(platform.calls, ElementsAre(KEY));
}

TEST_F(FlowReport, FieldsAreLoggedAsReceived) {
    send(21);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_INFO, "path_selection_event_cb",
                                               "Info: sa: 00:1A:2B:3C:4D:FE, da:A0:B0:C0:D0:E0:0F, src_port: 51000, "
                                               "dst_port:443, protocol:17, type:3"}));
}

TEST_F(FlowReport, NothingIsLoggedWhenTheLogIsQuiet) {
    log_level = KOLT_LOG_QUIET;
    send(21);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_THAT(platform.calls, ElementsAre(KEY));
}

TEST_F(FlowReport, FieldsKeepTheirWholeWidth) {
    put(12, uint16_t{65535});
    put(14, uint16_t{65534});
    put(16, uint32_t{0xFFFFFFFF});
    put(20, uint8_t{255});
    send(21);
    EXPECT_THAT(platform.calls,
                ElementsAre("flush_fc_flow_by_ha(A0:B0:C0:D0:E0:0F, 00:1A:2B:3C:4D:FE, 65534, 65535, 4294967295, 0, "
                            "255)"));
    EXPECT_THAT(logged_texts(), ElementsAre("Info: sa: 00:1A:2B:3C:4D:FE, da:A0:B0:C0:D0:E0:0F, src_port: 65535, "
                                            "dst_port:65534, protocol:-1, type:255"));
}

TEST_F(FlowReport, ReportMayBeLongerThanItsFields) {
    payload_[21] = 0xEE;
    send(64);
    EXPECT_THAT(platform.calls, ElementsAre(KEY));
}

TEST_F(FlowReport, ReportThatIsTooShortIsIgnored) {
    for (const uint32_t length : {20U, 12U, 1U, 0U})
        send(length);
    EXPECT_THAT(platform.calls, IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(FlowReport, OnlyAMessageOfTypeFourIsAFlowReport) {
    for (const uint32_t type : {0U, 1U, 2U, 3U, 5U, 6U, 260U, 0x10004U, 0xFFFFFFFFU})
        send(21, type);
    EXPECT_THAT(platform.calls, IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(FlowReport, ReportIsOnlyLoggedWithoutAFlowCache) {
    const installed_table none(nullptr);
    send(21);
    EXPECT_EQ(logged().size(), 1U);
    EXPECT_THAT(platform.calls, IsEmpty());
}

} // namespace
