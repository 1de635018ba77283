// Bus events: their names, and the configure and debug handlers.
#include "blobmsg_builder.h"
#include "core/log.h"
#include "hub_test.h"

namespace {

class BusEvent : public hub_test {
protected:
    BusEvent() {
        subscribe(&subscriber);
    }
    void receive(const char *type, blob_attr *message) {
        event_ubus_receive_cb(nullptr, &node.ev.ubus_handler, type, message);
    }
    recording_subscriber subscriber{'s'};
};

struct name_row {
    const char *name;
    const char *type;
};
class WrongType : public BusEvent, public testing::WithParamInterface<name_row> {};
class UnknownSubtype : public BusEvent, public testing::WithParamInterface<name_row> {};

struct value_row {
    const char *name;
    blobmsg_builder message;
    uint32_t type;
};
class Configure : public BusEvent, public testing::WithParamInterface<value_row> {};
class Debug : public BusEvent, public testing::WithParamInterface<value_row> {};

struct malformed_row {
    const char *name;
    std::string bytes;
};
class Malformed : public BusEvent, public testing::WithParamInterface<malformed_row> {};

template <class Row> std::string row_name(const testing::TestParamInfo<Row> &row) {
    return row.param.name;
}

std::vector<std::string> calls_at_event;

} // namespace

TEST_P(WrongType, EventOfAWrongTypeIsLoggedAndDropped) {
    receive(GetParam().type, blobmsg_builder().int32("dbg_level", 2).message());
    EXPECT_THAT(logged(), testing::ElementsAre(log_line{3, "event_ubus_receive_cb", "Error: wrong type"}));
    EXPECT_EQ(subscriber.summary(), "");
}

INSTANTIATE_TEST_SUITE_P(Names, WrongType,
                         testing::Values(name_row{"Empty", ""}, name_row{"PrefixWithoutDot", "kolt"},
                                         name_row{"ExtraLetterBeforeTheDot", "koltx.debug"},
                                         name_row{"ExtraLetterInFront", "xkolt.debug"},
                                         name_row{"UpperCase", "KOLT.debug"}, name_row{"OtherPrefix", "other.debug"},
                                         name_row{"SubtypeAlone", "debug"}, name_row{"Shorter", "kol.debug"}),
                         row_name<name_row>);

TEST_P(UnknownSubtype, UnknownSubtypeIsToldAtInfoLevelAndDropped) {
    receive(GetParam().type, blobmsg_builder().int32("dbg_level", 2).message());
    EXPECT_THAT(logged(), testing::ElementsAre(log_line{6, "event_ubus_receive_cb", "Info: unknown subtype"}));
    EXPECT_EQ(subscriber.summary(), "");
}

INSTANTIATE_TEST_SUITE_P(Names, UnknownSubtype,
                         testing::Values(name_row{"CapitalFirstLetter", "kolt.Configure"}, name_row{"Empty", "kolt."},
                                         name_row{"Longer", "kolt.debug2"}, name_row{"Shorter", "kolt.debu"},
                                         name_row{"TrailingBlank", "kolt.debug "},
                                         name_row{"PrefixTwice", "kolt.kolt.debug"},
                                         name_row{"Hyphen", "kolt.link-state"}),
                         row_name<name_row>);

TEST_F(BusEvent, UnknownSubtypeIsSilentAtLevelZero) {
    const at_log_level scope(0);
    receive("kolt.other", blobmsg_builder().int32("a", 1).message());
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(BusEvent, WrongTypeIsLoggedAtLevelZero) {
    const at_log_level scope(0);
    receive("other", blobmsg_builder().int32("a", 1).message());
    EXPECT_THAT(logged_texts(), testing::ElementsAre("Error: wrong type"));
}

TEST_P(Configure, ConfigureEventDeliversTheModeCode) {
    blobmsg_builder message = GetParam().message;
    receive("kolt.configure", message.message());
    ASSERT_EQ(subscriber.events.size(), 1U);
    EXPECT_EQ(subscriber.events[0].kind, 1U);
    EXPECT_EQ(subscriber.events[0].type, GetParam().type);
    EXPECT_EQ(subscriber.events[0].len, 0U);
    EXPECT_FALSE(subscriber.events[0].has_data);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Modes, Configure,
    testing::Values(value_row{"RE", blobmsg_builder().text("mode", "RE"), 0},
                    value_row{"FAP", blobmsg_builder().text("mode", "FAP"), 1},
                    value_row{"AP", blobmsg_builder().text("mode", "AP"), 1},
                    value_row{"HAP", blobmsg_builder().text("mode", "HAP"), 2},
                    value_row{"LowerCase", blobmsg_builder().text("mode", "ap"), 3},
                    value_row{"Empty", blobmsg_builder().text("mode", ""), 3},
                    value_row{"Longer", blobmsg_builder().text("mode", "REX"), 3},
                    value_row{"Long", blobmsg_builder().text("mode", std::string(5000, 'R')), 3},
                    value_row{"Missing", blobmsg_builder().text("other", "RE"), 3},
                    value_row{"KeyInUpperCase", blobmsg_builder().text("MODE", "RE"), 3},
                    value_row{"WrongType", blobmsg_builder().int32("mode", 0), 3},
                    value_row{"BehindOthers", blobmsg_builder().int32("a", 1).text("b", "HAP").text("mode", "RE"), 0},
                    value_row{"FirstOfTwo", blobmsg_builder().text("mode", "HAP").text("mode", "RE"), 2}),
    row_name<value_row>);

TEST_F(BusEvent, ConfigureRenewsTheBridgeRegistrationBeforeItIsDelivered) {
    for (const char *name : {"br-lan", "br-off", "br-guest"})
        add_bridge(name, 0);
    platform.bridges["br-lan"] = {};
    platform.bridges["br-guest"] = {};
    calls_at_event.clear();
    subscriber.act = [](config * /*from*/, kolt_event_kind /*kind*/) { calls_at_event = platform.programming(); };
    receive("kolt.configure", blobmsg_builder().text("mode", "RE").message());
    EXPECT_THAT(calls_at_event, testing::ElementsAre("bridgeSetEventInfo(br-lan, " + own_pid() + ", 3, 38)",
                                                     "bridgeSetEventInfo(br-guest, " + own_pid() + ", 3, 38)"));
    EXPECT_EQ(platform.programming(), calls_at_event);
    EXPECT_EQ(subscriber.summary(), "1:0");
}

TEST_F(BusEvent, ConfigureIsDeliveredAlsoWhenTheRegistrationFails) {
    add_bridge("br-lan", 0);
    platform.bridges["br-lan"] = {};
    platform.fail("bridgeSetEventInfo", -1);
    receive("kolt.configure", blobmsg_builder().text("mode", "HAP").message());
    EXPECT_THAT(logged(), testing::ElementsAre(log_line{3, "event_bridge_set_event", "Error: bridgeSetEventInfo"}));
    EXPECT_EQ(subscriber.summary(), "1:2");
}

TEST_P(Debug, DebugEventDeliversTheLevelAndLeavesItToTheModules) {
    blobmsg_builder message = GetParam().message;
    receive("kolt.debug", message.message());
    ASSERT_EQ(subscriber.events.size(), 1U);
    EXPECT_EQ(subscriber.events[0].kind, 4U);
    EXPECT_EQ(subscriber.events[0].type, GetParam().type);
    EXPECT_EQ(subscriber.events[0].len, 0U);
    EXPECT_FALSE(subscriber.events[0].has_data);
    EXPECT_EQ(log_level, 1);
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Levels, Debug,
    testing::Values(value_row{"Zero", blobmsg_builder().int32("dbg_level", 0), 0},
                    value_row{"One", blobmsg_builder().int32("dbg_level", 1), 1},
                    value_row{"Two", blobmsg_builder().int32("dbg_level", 2), 2},
                    value_row{"Three", blobmsg_builder().int32("dbg_level", 3), 3},
                    value_row{"FourIsThree", blobmsg_builder().int32("dbg_level", 4), 3},
                    value_row{"SevenIsThree", blobmsg_builder().int32("dbg_level", 7), 3},
                    value_row{"MinusOneIsThree", blobmsg_builder().int32("dbg_level", 0xFFFFFFFF), 3},
                    value_row{"LowestIsThree", blobmsg_builder().int32("dbg_level", 0x80000000), 3},
                    value_row{"MissingIsOne", blobmsg_builder().int32("level", 3), 1},
                    value_row{"TextIsOne", blobmsg_builder().text("dbg_level", "3"), 1},
                    value_row{"ByteIsOne", blobmsg_builder().add(7, "dbg_level", "\3"), 1},
                    value_row{"Int64IsOne", blobmsg_builder().add(4, "dbg_level", big_endian(3, 8)), 1}),
    row_name<value_row>);

TEST_P(Malformed, MalformedMessageIsDroppedSilentlyByConfigureAndDebug) {
    add_bridge("br-lan", 0);
    platform.bridges["br-lan"] = {};
    const at_log_level scope(3);
    for (const char *type : {"kolt.configure", "kolt.debug"}) {
        receive(type, blobmsg_builder().raw(GetParam().bytes).message());
        // What is well-formed in front of it does not save the message.
        receive(type, blobmsg_builder().text("mode", "RE").int32("dbg_level", 2).raw(GetParam().bytes).message());
    }
    EXPECT_EQ(subscriber.summary(), "");
    EXPECT_THAT(platform.programming(), testing::IsEmpty());
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Messages, Malformed,
    testing::Values(malformed_row{"NameLongerThanItsAttribute",
                                  big_endian(0x8300000C, 4) + big_endian(200, 2) + std::string("mode\0\0", 6)},
                    malformed_row{"NameWithoutItsEnd", big_endian(0x85000010, 4) + big_endian(5, 2) +
                                                           std::string("modexx") + big_endian(1, 4)},
                    malformed_row{"TextWithoutItsEnd",
                                  big_endian(0x8300000E, 4) + big_endian(4, 2) + std::string("mode\0\0RE\0\0", 10)},
                    malformed_row{"IntegerOfTwoBytes",
                                  big_endian(0x8500000E, 4) + big_endian(4, 2) + std::string("mode\0\0\0\1\0\0", 10)}),
    row_name<malformed_row>);

TEST_F(BusEvent, MessageWithoutAnyAttributeIsDroppedSilently) {
    for (const char *type : {"kolt.configure", "kolt.debug"}) {
        receive(type, blobmsg_builder().message());
        receive(type, nullptr);
    }
    EXPECT_EQ(subscriber.summary(), "");
    EXPECT_THAT(logged_texts(), testing::IsEmpty());
}

TEST_F(BusEvent, AttributeThatRunsPastTheMessageIsNotRead) {
    // It claims 64 bytes, of which the message holds 20.
    const std::string bytes = big_endian(0x83000040, 4) + big_endian(4, 2) + std::string("mode\0\0RE\0\0\0\0\0\0", 14);
    receive("kolt.configure", blobmsg_builder().raw(bytes).message());
    EXPECT_THAT(subscriber.summary(), testing::AnyOf("", "1:3"));
}

TEST_F(BusEvent, EventsAreParsedAndReachNobodyWithoutSubscribers) {
    kolt_list_init(&node.ev.subscribers);
    add_bridge("br-lan", 0);
    platform.bridges["br-lan"] = {};
    receive("kolt.configure", blobmsg_builder().text("mode", "RE").message());
    receive("kolt.debug", blobmsg_builder().int32("dbg_level", 3).message());
    EXPECT_EQ(platform.programming().size(), 1U);
    EXPECT_EQ(subscriber.summary(), "");
}
