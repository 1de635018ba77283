// The interfaces of the configuration file.
#include "config_file.h"

#include <functional>

namespace {

std::string with_param(const std::string &param, const std::string &interfaces) {
    return R"({"param": {)" + param + R"(}, "interfaces": {)" + interfaces + "}}";
}

std::unique_ptr<config> one_interface(const std::string &attributes) {
    return loaded(with_param("", R"("eth0": {"type": "ethernet")" + attributes + "}"));
}

constexpr char VLAN_IDS[] = R"("eth_vlan_id": 3, "iptv_vlan_id": 20, "iptv_vlan_backhaul_id": 300,
    "plc_vlan_backhaul_id": 10, "plc_vlan_guest_id": 50, "plc_vlan_iptv_id": 4094)";

struct type_row {
    const char *text;
    uint32_t type;
};

struct exchange_row {
    const char *name;
    const char *key;
    const char *exchange;
    const char *expected;
    const char *vlan_key; // the id that the name needs
};
class Exchange : public testing::TestWithParam<exchange_row> {};

struct byte_row {
    const char *name;
    const char *attribute; // "key": value, or nothing
    uint8_t config_interface::*member;
    int expected;
};
class InterfaceByte : public testing::TestWithParam<byte_row> {};

struct invalid_row {
    const char *name;
    const char *value;
};
class InvalidTypeDeathTest : public testing::TestWithParam<invalid_row> {};

class Interfaces : public testing::Test {
protected:
    Interfaces() {
        clear_log();
    }
};

} // namespace

TEST_F(Interfaces, TypeTextsGiveTheLinkTypes) {
    for (const type_row &row : {type_row{"ethernet", 0}, {"plc", 1}, {"2.4g", 2}, {"5g", 3}, {"5g_2", 4}}) {
        const auto record = loaded(with_param("", R"("p": {"type": ")" + std::string(row.text) + "\"}"));
        ASSERT_EQ(record->interface_num, 1U) << row.text;
        EXPECT_EQ(record->interfaces[0].type, row.type) << row.text;
    }
}

TEST_P(InvalidTypeDeathTest, InvalidTypeIsFatal) {
    const std::string text = with_param("", R"("eth1": {"type": "plc"}, "eth0": )" + std::string(GetParam().value));
    EXPECT_FATAL(loaded(text), "config_load", "Fatal: invalid interface type");
}

INSTANTIATE_TEST_SUITE_P(Values, InvalidTypeDeathTest,
                         testing::Values(invalid_row{"Missing", "{}"}, invalid_row{"Null", R"({"type": null})"},
                                         invalid_row{"Unknown", R"({"type": "6g"})"},
                                         invalid_row{"Empty", R"({"type": ""})"},
                                         invalid_row{"UpperCase", R"({"type": "Ethernet"})"},
                                         invalid_row{"Prefix", R"({"type": "ether"})"},
                                         invalid_row{"Longer", R"({"type": "5g_22"})"},
                                         invalid_row{"Code", R"({"type": 0})"}, invalid_row{"NoObject", "5"}),
                         [](const auto &row) { return row.param.name; });

TEST_F(Interfaces, EntryWithATypeAloneHasTheDefaults) {
    const auto record = one_interface("");
    ASSERT_EQ(record->interface_num, 1U);
    const config_interface &port = record->interfaces[0];
    EXPECT_EQ(field(port.name), "eth0");
    EXPECT_EQ(port.ifindex, 0U);
    EXPECT_EQ(port.compat_group, 255);
    EXPECT_EQ(port.priority, 0);
    EXPECT_EQ(port.relay, 1);
    EXPECT_EQ(port.path, 0);
    EXPECT_EQ(port.class_, 0);
    EXPECT_EQ(port.needha, 0);
    EXPECT_EQ(port.ssdp_allow, 0);
    EXPECT_EQ(port.ctl_iface, 0);
}

TEST_P(InterfaceByte, ByteAttributeIsConvertedAndBounded) {
    const auto record = one_interface(std::string(", ") + GetParam().attribute);
    ASSERT_EQ(record->interface_num, 1U);
    EXPECT_EQ(record->interfaces[0].*GetParam().member, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Attributes, InterfaceByte,
    testing::Values(byte_row{"CompatGroupHighest", R"("compat_group": 255)", &config_interface::compat_group, 255},
                    byte_row{"CompatGroup256IsStoredAs0", R"("compat_group": 256)", &config_interface::compat_group, 0},
                    byte_row{"CompatGroupNegative", R"("compat_group": -1)", &config_interface::compat_group, 255},
                    byte_row{"CompatGroupText", R"("compat_group": "12")", &config_interface::compat_group, 12},
                    byte_row{"PriorityBelow", R"("priority": 9)", &config_interface::priority, 9},
                    byte_row{"PriorityHighest", R"("priority": 10)", &config_interface::priority, 10},
                    byte_row{"PriorityAbove", R"("priority": 11)", &config_interface::priority, 10},
                    byte_row{"Priority300Is44AndStays10", R"("priority": 300)", &config_interface::priority, 10},
                    byte_row{"PriorityMinus1Is255AndThen10", R"("priority": -1)", &config_interface::priority, 10},
                    byte_row{"Priority256Is0", R"("priority": 256)", &config_interface::priority, 0},
                    byte_row{"Priority261Is5", R"("priority": 261)", &config_interface::priority, 5},
                    byte_row{"ClassHighest", R"("class": 255)", &config_interface::class_, 255},
                    byte_row{"Class257Is1", R"("class": 257)", &config_interface::class_, 1},
                    byte_row{"NonrelayTrue", R"("nonrelay": true)", &config_interface::relay, 0},
                    byte_row{"NonrelayFalse", R"("nonrelay": false)", &config_interface::relay, 1},
                    byte_row{"NonrelayBig", R"("nonrelay": 256)", &config_interface::relay, 0},
                    byte_row{"NonrelayNull", R"("nonrelay": null)", &config_interface::relay, 1},
                    byte_row{"PathTrue", R"("path": true)", &config_interface::path, 1},
                    byte_row{"PathTwoIsOne", R"("path": 2)", &config_interface::path, 1},
                    byte_row{"PathEmptyText", R"("path": "")", &config_interface::path, 0},
                    byte_row{"Needha", R"("needha": true)", &config_interface::needha, 1},
                    byte_row{"SsdpAllow", R"("ssdp_allow": true)", &config_interface::ssdp_allow, 1},
                    byte_row{"CtlIface", R"("ctl_iface": true)", &config_interface::ctl_iface, 1}),
    [](const auto &row) { return row.param.name; });

TEST_P(Exchange, NameIsMadeFromTheKeyWithoutItsLastCharacter) {
    const std::string entry =
        "\"" + std::string(GetParam().key) + R"(": {"type": "plc", "exchange": )" + GetParam().exchange + "}";
    const auto record = loaded(with_param(VLAN_IDS, entry));
    ASSERT_EQ(record->interface_num, 1U);
    EXPECT_EQ(field(record->interfaces[0].name), GetParam().expected);
    EXPECT_EQ(record->interfaces[0].type, 1U);
}

TEST_P(Exchange, MemberIsSilentlyLeftOutWhenItsVlanIdIsZero) {
    clear_log();
    // A later id of the same key replaces the first; the member after it shows that the walk goes on.
    const std::string ids = std::string(VLAN_IDS) + ", \"" + GetParam().vlan_key + "\": 0";
    const std::string entry =
        "\"" + std::string(GetParam().key) + R"(": {"type": "plc", "exchange": )" + GetParam().exchange + "}";
    const auto record = loaded(with_param(ids, entry + R"(, "next": {"type": "5g"})"));
    ASSERT_EQ(record->interface_num, 1U);
    EXPECT_EQ(field(record->interfaces[0].name), "next");
    EXPECT_EQ(record->interfaces[1].name[0], '\0');
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Values, Exchange,
    testing::Values(exchange_row{"OneIsEthernet", "eth0", "1", "eth3", "eth_vlan_id"},
                    exchange_row{"TwoIsIptv", "eth0", "2", "eth20", "iptv_vlan_id"},
                    exchange_row{"ThreeIsIptvBackhaul", "eth0", "3", "eth300", "iptv_vlan_backhaul_id"},
                    exchange_row{"FourIsPlcBackhaul", "plc0", "4", "plc10", "plc_vlan_backhaul_id"},
                    exchange_row{"FiveIsPlcGuest", "plc0", "5", "plc50", "plc_vlan_guest_id"},
                    exchange_row{"SixIsPlcIptv", "plc0", "6", "plc4094", "plc_vlan_iptv_id"},
                    exchange_row{"ZeroIsEthernet", "eth0", "0", "eth3", "eth_vlan_id"},
                    exchange_row{"SevenIsEthernet", "eth0", "7", "eth3", "eth_vlan_id"},
                    exchange_row{"NegativeIsEthernet", "eth0", "-1", "eth3", "eth_vlan_id"},
                    exchange_row{"TextOfDigits", "plc0", "\"4\"", "plc10", "plc_vlan_backhaul_id"},
                    exchange_row{"DottedKey", "eth0.2", "1", "eth0.3", "eth_vlan_id"},
                    exchange_row{"KeyOfOneCharacter", "e", "1", "3", "eth_vlan_id"},
                    exchange_row{"EmptyKey", "", "1", "3", "eth_vlan_id"},
                    exchange_row{"NameThatFills15", "abcdefghijklX", "3", "abcdefghijkl300", "iptv_vlan_backhaul_id"},
                    exchange_row{"NameCutTo15", "abcdefghijklmX", "3", "abcdefghijklm30", "iptv_vlan_backhaul_id"},
                    exchange_row{"KeyOfSixteen", "abcdefghijklmnop", "1", "abcdefghijklmno", "eth_vlan_id"},
                    exchange_row{"KeyOfTwenty", "abcdefghijklmnopqrst", "2", "abcdefghijklmno", "iptv_vlan_id"},
                    exchange_row{"PlcNameThatFills15", "abcdefghijkX", "6", "abcdefghijk4094", "plc_vlan_iptv_id"}),
    [](const auto &row) { return row.param.name; });

TEST_F(Interfaces, PlcNameThatDoesNotFitStaysInsideItsField) {
    const auto record = loaded(
        with_param(VLAN_IDS, R"("abcdefghijklmnopqrstuvwxyz": {"type": "5g_2", "exchange": 6, "compat_group": 9})"));
    ASSERT_EQ(record->interface_num, 1U);
    EXPECT_EQ(field(record->interfaces[0].name).substr(0, 15), "abcdefghijklmno");
    EXPECT_EQ(record->interfaces[0].ifindex, 0U);
    EXPECT_EQ(record->interfaces[0].type, 4U);
    EXPECT_EQ(record->interfaces[0].compat_group, 9);
}

TEST_F(Interfaces, NullExchangeIsAMissingOne) {
    const auto record = loaded(with_param(VLAN_IDS, R"("eth0": {"type": "ethernet", "exchange": null})"));
    ASSERT_EQ(record->interface_num, 1U);
    EXPECT_EQ(field(record->interfaces[0].name), "eth0");
}

TEST_F(Interfaces, ExchangeWithoutParamLeavesTheMemberOut) {
    EXPECT_EQ(loaded(R"({"interfaces": {"eth0": {"type": "ethernet", "exchange": 1}}})")->interface_num, 0U);
}

// The name comes before the type, so what is left out is not looked at further.
TEST_F(Interfaces, MemberThatIsLeftOutMayHaveNoType) {
    EXPECT_EQ(loaded(with_param("", R"("eth0": {"exchange": 1})"))->interface_num, 0U);
}

TEST_F(Interfaces, KeysAreBoundAt16Characters) {
    const auto record = loaded(with_param("", R"("abcdefghijklmnop": {"type": "plc"},
        "abcdefghijklmnopq": {"type": "5g"}, "": {"type": "2.4g"})"));
    ASSERT_EQ(record->interface_num, 3U);
    EXPECT_EQ(field(record->interfaces[0].name), "abcdefghijklmnop");
    EXPECT_EQ(record->interfaces[0].ifindex, 0U);
    EXPECT_EQ(field(record->interfaces[1].name), "abcdefghijklmnop");
    EXPECT_EQ(record->interfaces[1].type, 3U);
    EXPECT_EQ(field(record->interfaces[2].name), "");
}

TEST_F(Interfaces, InterfacesKeepTheOrderOfTheFile) {
    const auto record = loaded(with_param("", R"("z": {"type": "plc"}, "a": {"type": "5g"}, "m": {"type": "2.4g"})"));
    ASSERT_EQ(record->interface_num, 3U);
    EXPECT_EQ(field(record->interfaces[0].name), "z");
    EXPECT_EQ(field(record->interfaces[1].name), "a");
    EXPECT_EQ(field(record->interfaces[2].name), "m");
}

TEST_F(Interfaces, Exactly128InterfacesFitWithoutAMessage) {
    const auto record = loaded(with_param("", members("p", 128, R"({"type": "plc"})")));
    EXPECT_EQ(record->interface_num, 128U);
    EXPECT_EQ(field(record->interfaces[127].name), "p127");
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(Interfaces, Interface129IsDroppedWithOneInfoLine) {
    const auto record = loaded(R"({"interfaces": {)" + members("p", 130, R"({"type": "plc"})") +
                               R"(}, "backhual": {"a": {"couple": "b"}}})");
    EXPECT_EQ(record->interface_num, 128U);
    EXPECT_EQ(record->couple_num, 1U); // the next section is still read
    EXPECT_THAT(logged(), testing::ElementsAre(log_line{6, "config_load", "Info: too many interfaces"},
                                               log_line{6, "config_load", "Info: backhual lan:a, guest:b"}));
}

TEST_F(Interfaces, Interface129IsDroppedSilentlyAtLevelZero) {
    const at_log_level scope(0);
    EXPECT_EQ(loaded(with_param("", members("p", 129, R"({"type": "plc"})")))->interface_num, 128U);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

// Fullness is looked at before the name and the type are.
TEST_F(Interfaces, InvalidMemberBehindAFullListIsNotFatal) {
    const auto record = loaded(with_param("", members("p", 128, R"({"type": "plc"})") + R"(, "bad": {})"));
    EXPECT_EQ(record->interface_num, 128U);
    EXPECT_THAT(logged_texts(), testing::ElementsAre("Info: too many interfaces"));
}

TEST_F(Interfaces, MembersThatAreLeftOutTakeNoPlace) {
    const auto record =
        loaded(with_param("", R"("left": {"type": "plc", "exchange": 1}, )" + members("p", 128, R"({"type": "plc"})")));
    EXPECT_EQ(record->interface_num, 128U);
    EXPECT_EQ(field(record->interfaces[127].name), "p127");
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}
