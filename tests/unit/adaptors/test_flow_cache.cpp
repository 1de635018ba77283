// Every flow-cache operation by a driver table that records it, and without one.
#include "adaptors/flow_cache.h"
#include "adaptors/generic_operation.h"
#include "probes/clients.h"

#include <limits>

namespace {

kolt_client_list clients;
kolt_interface_list ports;
kolt_fc_flow_key key;
uint32_t counters[4];
const uint8_t station[] = {0xF2, 0x11, 0x22, 0x33, 0x44, 0x55};
const uint8_t source[] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
const uint8_t destination[] = {0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB};
constexpr uint32_t LARGEST_NUMBER = std::numeric_limits<uint32_t>::max();

using recording::address;

const std::vector<generic_operation> FLOW_OPERATIONS = {
    {"FlushAll", "flush_all_fcache_flow", [] { return kolt_flush_all_fcache_flow(); }, "", generic_operation::AS_IS,
     [](wlan_platform &table) { table.flush_all_fcache_flow = nullptr; }},
    {"FlushFlow", "flush_fcache_flow_entry", [] { return kolt_flush_fcache_flow_entry(LARGEST_NUMBER); }, "4294967295",
     generic_operation::REDUCED, [](wlan_platform &table) { table.flush_fcache_flow_entry = nullptr; }},
    {"UpdateFlowList", "update_fcache_flow_list", [] { return kolt_update_fcache_flow_list(1, 2, LARGEST_WORD, 4); },
     "1, 2, " + std::to_string(LARGEST_WORD) + ", 4", generic_operation::REDUCED,
     [](wlan_platform &table) { table.update_fcache_flow_list = nullptr; }},
    {"GetMaximalHaEntries", "get_maximal_ha_entries_from_fcache",
     [] { return kolt_get_maximal_ha_entries_from_fcache(&clients, 20, &ports); },
     address(&clients) + ", 20, " + address(&ports), generic_operation::REDUCED,
     [](wlan_platform &table) { table.get_maximal_ha_entries_from_fcache = nullptr; }},
    {"FlushByHa", "flush_fc_flow_by_ha",
     [] {
         kolt_flush_fc_flow_by_ha(&key, 255);
         return 0;
     },
     address(&key) + ", 255", generic_operation::NONE,
     [](wlan_platform &table) { table.flush_fc_flow_by_ha = nullptr; }},
    {"FlushByMac", "flush_fc_flow_by_mac", [] { return kolt_flush_fc_flow_by_mac(station, LARGEST_WORD); },
     "F2:11:22:33:44:55, " + std::to_string(LARGEST_WORD), generic_operation::AS_IS,
     [](wlan_platform &table) { table.flush_fc_flow_by_mac = nullptr; }},
    {"GetIfStat", "get_if_stat_from_fcache",
     [] { return kolt_get_if_stat_from_fcache(4711, &counters[0], &counters[1], &counters[2], &counters[3]); },
     "4711, " + address(&counters[0]) + ", " + address(&counters[1]) + ", " + address(&counters[2]) + ", " +
         address(&counters[3]),
     generic_operation::REDUCED, [](wlan_platform &table) { table.get_if_stat_from_fcache = nullptr; }},
    // Every argument differs from every other one, so that none can be taken for another.
    {"CalHashAndSetHa", "cal_hash_and_set_ha",
     [] {
         return kolt_cal_hash_and_set_ha("br-lan", LARGEST_NUMBER, 0x0201A8C0, 0x0100000A, 0x8813, 0x5000, source,
                                         destination, "wlan0", 65535, 305419896);
     },
     "br-lan, 4294967295, 33663168, 16777226, 34835, 20480, 00:11:22:33:44:55, 66:77:88:99:AA:BB, wlan0, 65535, "
     "305419896",
     generic_operation::REDUCED, [](wlan_platform &table) { table.cal_hash_and_set_ha = nullptr; }},
    {"ConfigureMode", "configure_fc_mode", [] { return kolt_configure_fc_mode(KOLT_MODE_HAP); }, "2",
     generic_operation::REDUCED, [](wlan_platform &table) { table.configure_fc_mode = nullptr; }},
};

class FlowCache : public testing::TestWithParam<generic_operation> {};
INSTANTIATE_TEST_SUITE_P(Operations, FlowCache, testing::ValuesIn(FLOW_OPERATIONS), operation_name);

TEST_P(FlowCache, FlowCacheOperationDoesNothingWithoutADriverTable) {
    expect_nothing_without_a_table(GetParam());
}

TEST_P(FlowCache, FlowCacheOperationDoesNothingWhenTheDriverLacksIt) {
    expect_nothing_with_an_empty_slot(GetParam());
}

TEST_P(FlowCache, FlowCacheOperationHandsEveryArgumentToItsSlot) {
    expect_arguments_handed_on(GetParam());
}

TEST_P(FlowCache, FlowCacheOperationReturnsItsSlotsResultAsFarAsItIsDefined) {
    for (const int from_slot : SLOT_RESULTS)
        expect_result(GetParam(), from_slot);
}

TEST(FlowCacheOutputs, CountersStayAsTheyAreWithoutADriverTable) {
    const installed_table none(nullptr);
    uint32_t kept[4] = {1, 2, 3, 4};
    EXPECT_EQ(kolt_get_if_stat_from_fcache(1, &kept[0], &kept[1], &kept[2], &kept[3]), 0);
    EXPECT_THAT(kept, testing::ElementsAre(1, 2, 3, 4));
}

} // namespace
