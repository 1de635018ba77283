// The configuration record: looking interfaces up, emptying it, writing it to the log.
#include "core/config.h"

#include "config_file.h"

#include <cstring>
#include <type_traits>

namespace {

class Config : public testing::Test {
protected:
    Config() {
        clear_log();
    }
    void add(const char *name) {
        strncpy(record.interfaces[record.interface_num++].name, name, KOLT_NAME_SIZE);
    }
    config record;
};

} // namespace

TEST_F(Config, CapacitiesAndWidthsArePinned) {
    EXPECT_EQ(std::extent_v<decltype(config::bridges)>, 8U);
    EXPECT_EQ(std::extent_v<decltype(config::interfaces)>, 128U);
    EXPECT_EQ(std::extent_v<decltype(config::couples)>, 16U);
    EXPECT_EQ(sizeof(config_bridge::name), 16U);
    EXPECT_EQ(sizeof(config_interface::name), 16U);
    EXPECT_EQ(sizeof(config_couple::lan), 16U);
    EXPECT_EQ(sizeof(config_couple::guest), 16U);
    EXPECT_EQ(sizeof(config_param::adjusted_streams), 1U);
    EXPECT_EQ(sizeof(config_param::idle_threshold), 2U);
    EXPECT_EQ(sizeof(config_param::period), 4U);
    EXPECT_TRUE(std::is_signed_v<decltype(config_param::eth_vlan_id)>);
}

TEST_F(Config, MembersStandInOrder) {
    const size_t offsets[] = {offsetof(config, enable),        offsetof(config, bridge_num), offsetof(config, bridges),
                              offsetof(config, interface_num), offsetof(config, interfaces), offsetof(config, param),
                              offsetof(config, couples),       offsetof(config, couple_num), offsetof(config, ev),
                              offsetof(config, modules)};
    for (size_t i = 1; i < std::size(offsets); i++)
        EXPECT_LT(offsets[i - 1], offsets[i]) << i;
}

TEST_F(Config, LinkTypeNumbersArePinned) {
    EXPECT_EQ(KOLT_LINK_ETHERNET, 0U);
    EXPECT_EQ(KOLT_LINK_PLC, 1U);
    EXPECT_EQ(KOLT_LINK_2G, 2U);
    EXPECT_EQ(KOLT_LINK_5G, 3U);
    EXPECT_EQ(KOLT_LINK_5G_2, 4U);
    EXPECT_EQ(KOLT_LINK_NONE, 5U);
}

TEST_F(Config, FreeEmptiesBridgesAndInterfacesAndNothingElse) {
    record.bridge_num = 3;
    record.interface_num = 7;
    record.couple_num = 2;
    record.enable = 1;
    config_free(&record);
    EXPECT_EQ(record.bridge_num, 0U);
    EXPECT_EQ(record.interface_num, 0U);
    EXPECT_EQ(record.couple_num, 2U);
    EXPECT_EQ(record.enable, 1);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Config, InterfaceIsFoundByItsWholeName) {
    add("eth0");
    add("eth01");
    EXPECT_EQ(config_find_interface_by_name(&record, "eth0"), &record.interfaces[0]);
    EXPECT_EQ(config_find_interface_by_name(&record, "eth01"), &record.interfaces[1]);
}

TEST_F(Config, NameThatMatchesOnlyAsAPrefixIsNotFound) {
    add("eth01");
    EXPECT_EQ(config_find_interface_by_name(&record, "eth0"), nullptr);
    EXPECT_EQ(config_find_interface_by_name(&record, "eth012"), nullptr);
    EXPECT_EQ(config_find_interface_by_name(&record, ""), nullptr);
    EXPECT_EQ(config_find_interface_by_name(&record, "ETH01"), nullptr);
}

TEST_F(Config, FirstOfEqualNamesIsFound) {
    add("eth0");
    add("eth0");
    EXPECT_EQ(config_find_interface_by_name(&record, "eth0"), &record.interfaces[0]);
}

TEST_F(Config, OnlyTheValidInterfacesAreLookedAt) {
    add("eth0");
    add("eth1");
    record.interface_num = 1;
    EXPECT_EQ(config_find_interface_by_name(&record, "eth1"), nullptr);
    record.interface_num = 0;
    EXPECT_EQ(config_find_interface_by_name(&record, "eth0"), nullptr);
}

TEST_F(Config, LastOf128InterfacesIsFound) {
    for (uint32_t i = 0; i < CONFIG_MAX_INTERFACES; i++)
        add(("p" + std::to_string(i)).c_str());
    EXPECT_EQ(config_find_interface_by_name(&record, "p127"), &record.interfaces[127]);
}

TEST_F(Config, NameOf16CharactersEndsWithItsField) {
    add("abcdefghijklmnop");
    memset(&record.interfaces[0].ifindex, 'q', sizeof record.interfaces[0].ifindex); // what stands behind the name
    EXPECT_EQ(config_find_interface_by_name(&record, "abcdefghijklmnop"), &record.interfaces[0]);
    EXPECT_EQ(config_find_interface_by_name(&record, "abcdefghijklmnopq"), nullptr);
    EXPECT_EQ(config_find_interface_by_name(&record, "abcdefghijklmno"), nullptr);
}

TEST_F(Config, InterfaceIsFoundByItsKernelIndex) {
    const test_interface eth("eth7");
    add("eth6");
    add("eth7");
    EXPECT_EQ(config_find_interface_by_index(&record, eth.index()), &record.interfaces[1]);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Config, IndexThatTheKernelDoesNotKnowIsLogged) {
    add("eth7");
    EXPECT_EQ(config_find_interface_by_index(&record, 4711), nullptr);
    EXPECT_THAT(logged(), testing::ElementsAre(log_line{3, "config_find_interface_by_index", "Error: if_indextoname"}));
}

TEST_F(Config, IndexOfAnUnconfiguredInterfaceIsNullWithoutAMessage) {
    const test_interface eth("eth7");
    EXPECT_EQ(config_find_interface_by_index(&record, eth.index()), nullptr);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Config, IndexToNameGivesTheKernelsName) {
    const test_interface eth("fifteen-letters");
    char name[16];
    memset(name, 'x', sizeof name);
    EXPECT_EQ(config_index_to_name(eth.index(), name), 1);
    EXPECT_STREQ(name, "fifteen-letters");
}

TEST_F(Config, IndexToNameOfAnUnknownIndexIsZeroWithoutAMessage) {
    char name[16] = {};
    EXPECT_EQ(config_index_to_name(4711, name), 0);
    EXPECT_EQ(config_index_to_name(0, name), 0);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Config, DumpWritesEveryLineAtDebugLevel) {
    const auto filled = loaded(R"({"enable": true,
        "bridges": {"br-lan": {"loop_avoidance": true, "path_selection": true}, "br-wan": {"path_selection": true},
                    "br-g": {"loop_avoidance": 1}, "br-0": {}},
        "param": {"period": 5},
        "interfaces": {"eth0": {"type": "ethernet", "compat_group": 7, "nonrelay": true}, "wlan1": {"type": "5g"}}})");
    clear_log();
    const at_log_level scope(2);
    config_dump(filled.get());
    EXPECT_THAT(
        logged_texts("config_dump"),
        testing::ElementsAre("Debug: Bridges:", "Debug: br-lan ==> flags: 3, loop_avoidance: 1, path_selection: 1",
                             "Debug: br-wan ==> flags: 2, loop_avoidance: 0, path_selection: 1",
                             "Debug: br-g ==> flags: 1, loop_avoidance: 1, path_selection: 0",
                             "Debug: br-0 ==> flags: 0, loop_avoidance: 0, path_selection: 0",
                             "Debug: Interfaces:", "Debug: eth0 ==> type: 0, compat_group: 7, relay: 0",
                             "Debug: wlan1 ==> type: 3, compat_group: 255, relay: 1",
                             "Debug: Param:", "Debug: \tperiod: 5000, low_threhold: 0"));
    EXPECT_EQ(logged().size(), logged_texts("config_dump").size());
    EXPECT_EQ(logged().front().priority, 7);
}

TEST_F(Config, DumpIsSilentBelowDebugLevel) {
    add("eth0");
    const at_log_level scope(1);
    config_dump(&record);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Config, DumpBoundsNamesOf16Characters) {
    add("abcdefghijklmnop");
    record.interfaces[0].ifindex = 0x71717171;
    memcpy(record.bridges[0].name, "ponmlkjihgfedcba", 16);
    record.bridges[0].flags = 0x71717171;
    record.bridge_num = 1;
    const at_log_level scope(2);
    config_dump(&record);
    EXPECT_THAT(logged_texts(), testing::Contains("Debug: abcdefghijklmnop ==> type: 0, compat_group: 0, relay: 0"));
    EXPECT_THAT(logged_texts(), testing::Contains("Debug: ponmlkjihgfedcba ==> flags: 1903260017, loop_avoidance: 1, "
                                                  "path_selection: 0"));
}
