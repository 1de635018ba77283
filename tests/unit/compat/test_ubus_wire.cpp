// Messages on a stream socket, whole, in pieces and malformed.
#include "support.h"
#include "wire.h"

#include <sys/socket.h>

namespace {

class UbusWire : public ::testing::Test {
protected:
    UbusWire() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        here = Fd(ends[0]);
        there = Fd(ends[1]);
    }
    ~UbusWire() override {
        wire_reset(input);
    }
    wire_result receive() {
        return wire_receive(here.get(), input);
    }
    Fd here;
    Fd there;
    ubus_wire_input input = {};
};

TEST_F(UbusWire, ReadsAHeaderWithItsNumbersInHostOrder) {
    ASSERT_TRUE(send_bytes(there.get(), wire_message(UBUS_MSG_DATA, 0x0102, 0x03040506, number_attr(3, 7))));
    ASSERT_EQ(receive(), wire_result::COMPLETE);
    const ubus_msghdr header = wire_header(input);
    EXPECT_EQ(header.version, 0);
    EXPECT_EQ(header.type, UBUS_MSG_DATA);
    EXPECT_EQ(header.seq, 0x0102);
    EXPECT_EQ(header.peer, 0x03040506u);
    EXPECT_EQ(blob_raw_len(input.body), 12u);
}

TEST_F(UbusWire, TakesAMessageThatArrivesByteByByte) {
    const Bytes message = wire_message(UBUS_MSG_STATUS, 1, 0, number_attr(1, 4));
    for (size_t i = 0; i + 1 < message.size(); i++) {
        ASSERT_TRUE(send_bytes(there.get(), message.substr(i, 1)));
        ASSERT_EQ(receive(), wire_result::MORE) << i;
    }
    ASSERT_TRUE(send_bytes(there.get(), message.substr(message.size() - 1)));
    EXPECT_EQ(receive(), wire_result::COMPLETE);
}

TEST_F(UbusWire, TakesMessagesThatArriveInOnePieceOneByOne) {
    ASSERT_TRUE(send_bytes(there.get(),
                           wire_message(UBUS_MSG_DATA, 1, 0, number_attr(3, 7)) + wire_message(UBUS_MSG_STATUS, 1, 0)));
    ASSERT_EQ(receive(), wire_result::COMPLETE);
    EXPECT_EQ(wire_header(input).type, UBUS_MSG_DATA);
    wire_reset(input);
    ASSERT_EQ(receive(), wire_result::COMPLETE);
    EXPECT_EQ(wire_header(input).type, UBUS_MSG_STATUS);
    wire_reset(input);
    EXPECT_EQ(receive(), wire_result::MORE);
}

TEST_F(UbusWire, EndOfTheStreamIsBroken) {
    there = Fd();
    EXPECT_EQ(receive(), wire_result::BROKEN);
}

TEST_F(UbusWire, LongestMessageIsTakenAndSentOnBy) {
    const Bytes message = wire_message(UBUS_MSG_DATA, 1, 0, Bytes(UBUS_MAX_MSGLEN - 12, 'x'));
    std::thread sender([&] { EXPECT_TRUE(send_bytes(there.get(), message)); });
    EXPECT_TRUE(eventually([&] { return receive() == wire_result::COMPLETE; }));
    sender.join();
    ASSERT_TRUE(input.body);
    EXPECT_EQ(Bytes(reinterpret_cast<char *>(input.body), blob_raw_len(input.body)), message.substr(8));
    EXPECT_TRUE(wire_can_send(input.body));
}

TEST_F(UbusWire, AnnouncedLengthIsNotAllocatedBeforeItArrives) {
    ASSERT_TRUE(send_bytes(there.get(), from_hex("0001000000000000"
                                                 "000ffff8")));
    EXPECT_EQ(receive(), wire_result::MORE);
    EXPECT_LE(input.capacity, 4096u);
}

struct HeadRow {
    const char *name;
    const char *hex;
    friend void PrintTo(const HeadRow &row, std::ostream *out) {
        *out << row.name;
    }
};

class UbusWireHead : public UbusWire, public ::testing::WithParamInterface<HeadRow> {};

TEST_P(UbusWireHead, IsRefusedAndStaysRefused) {
    ASSERT_TRUE(send_bytes(there.get(), from_hex(GetParam().hex) + Bytes(64, '\0')));
    EXPECT_EQ(receive(), wire_result::BROKEN);
    EXPECT_EQ(receive(), wire_result::BROKEN);
}

INSTANTIATE_TEST_SUITE_P(, UbusWireHead,
                         ::testing::Values(HeadRow{"VersionOne", "010100010000000000000004"},
                                           HeadRow{"LengthZero", "000100010000000000000000"},
                                           HeadRow{"LengthBelowTheWord", "000100010000000000000003"},
                                           HeadRow{"OneByteTooLong", "0001000100000000000ffff9"},
                                           HeadRow{"LongestLength", "000100010000000000ffffff"},
                                           HeadRow{"EnclosingIdNotZero", "000100010000000007000004"},
                                           HeadRow{"EnclosingExtended", "000100010000000080000004"}),
                         [](const auto &param) { return param.param.name; });

class UbusWireParse : public ::testing::Test {
protected:
    bool parse(const Bytes &content) {
        body = wire_message(UBUS_MSG_INVOKE, 0, 0, content).substr(8);
        return wire_parse(reinterpret_cast<const blob_attr *>(body.data()), attributes);
    }
    Bytes body;
    ubus_attributes attributes = {};
};

TEST_F(UbusWireParse, SortsAttributesById) {
    ASSERT_TRUE(parse(number_attr(UBUS_ATTR_OBJID, 5) + text_attr(UBUS_ATTR_METHOD, "m") + raw_attr(99, "later")));
    EXPECT_EQ(blob_get_u32(attributes[UBUS_ATTR_OBJID]), 5u);
    EXPECT_STREQ(static_cast<char *>(blob_data(attributes[UBUS_ATTR_METHOD])), "m");
    EXPECT_EQ(attributes[UBUS_ATTR_STATUS], nullptr);
}

TEST_F(UbusWireParse, AttributeOfTheWrongFormIsMissing) {
    ASSERT_TRUE(parse(raw_attr(UBUS_ATTR_OBJID, "xx") + raw_attr(UBUS_ATTR_METHOD, "open") +
                      raw_attr(UBUS_ATTR_OBJPATH, "") + raw_attr(UBUS_ATTR_NO_REPLY, "") +
                      raw_attr(UBUS_ATTR_STATUS, "12345678")));
    for (const blob_attr *attribute : attributes)
        EXPECT_EQ(attribute, nullptr);
}

TEST_F(UbusWireParse, EmptyMessageHasNoAttributes) {
    EXPECT_TRUE(parse(""));
}

TEST_F(UbusWireParse, AttributeBeyondTheMessageIsAnError) {
    EXPECT_FALSE(parse(from_hex("0300000c00000001")));
    EXPECT_FALSE(parse(from_hex("03000000")));
    EXPECT_FALSE(parse(from_hex("0300")));
}

TEST(UbusWireEncode, WritesTheHeaderBigEndian) {
    const auto bytes = wire_encode_header(UBUS_MSG_INVOKE, 0x0102, 0x03040506);
    EXPECT_EQ(to_hex(Bytes(bytes.begin(), bytes.end())), "0005010203040506");
}

} // namespace
