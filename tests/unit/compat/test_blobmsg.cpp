// Reading named attributes that may come from anyone.
#include "support.h"

#include <cstring>
#include <memory>

namespace {

const blobmsg_policy POLICY[] = {{"mode", BLOBMSG_TYPE_STRING}, {"level", BLOBMSG_TYPE_INT32}};

class BlobmsgParse : public ::testing::Test {
protected:
    // Parses a copy that ends where the heap block does, so that a byte read behind it is found out.
    int parse(const Bytes &bytes) {
        copy.reset(new char[bytes.size() ? bytes.size() : 1]);
        memcpy(copy.get(), bytes.data(), bytes.size());
        tb[0] = tb[1] = reinterpret_cast<blob_attr *>(this);
        return blobmsg_parse(POLICY, 2, tb, copy.get(), static_cast<unsigned>(bytes.size()));
    }
    std::unique_ptr<char[]> copy;
    blob_attr *tb[2] = {};
};

TEST_F(BlobmsgParse, StoresTheAttributesThatThePolicyNames) {
    ASSERT_EQ(parse(number_member("level", 3) + number_member("other", 9) + text_member("mode", "RE")), 0);
    ASSERT_TRUE(tb[0] && tb[1]);
    EXPECT_STREQ(blobmsg_get_string(tb[0]), "RE");
    EXPECT_STREQ(blobmsg_name(tb[0]), "mode");
    EXPECT_EQ(blobmsg_type(tb[0]), BLOBMSG_TYPE_STRING);
    EXPECT_EQ(blobmsg_data_len(tb[0]), 3u);
    EXPECT_EQ(blobmsg_get_u32(tb[1]), 3u);
}

TEST_F(BlobmsgParse, NegativeNumberIsTwosComplement) {
    ASSERT_EQ(parse(number_member("level", 0xffffffff)), 0);
    EXPECT_EQ(static_cast<int32_t>(blobmsg_get_u32(tb[1])), -1);
}

TEST_F(BlobmsgParse, OnlyUnknownAttributesLeaveTheTableEmpty) {
    ASSERT_EQ(parse(number_member("other", 9)), 0);
    EXPECT_EQ(tb[0], nullptr);
    EXPECT_EQ(tb[1], nullptr);
}

TEST_F(BlobmsgParse, WrongTypeLeavesTheSlotNull) {
    ASSERT_EQ(parse(text_member("level", "3") + number_member("mode", 1)), 0);
    EXPECT_EQ(tb[0], nullptr);
    EXPECT_EQ(tb[1], nullptr);
}

TEST_F(BlobmsgParse, LaterDuplicateDoesNotReplaceTheFirst) {
    ASSERT_EQ(parse(number_member("level", 1) + number_member("level", 2)), 0);
    EXPECT_EQ(blobmsg_get_u32(tb[1]), 1u);
}

TEST_F(BlobmsgParse, AttributeOfTheRightTypeCountsBehindOneOfAWrongType) {
    ASSERT_EQ(parse(text_member("level", "1") + number_member("level", 2)), 0);
    ASSERT_TRUE(tb[1]);
    EXPECT_EQ(blobmsg_get_u32(tb[1]), 2u);
}

TEST_F(BlobmsgParse, AttributeThatIsNotExtendedIsPassedOver) {
    ASSERT_EQ(parse(number_attr(BLOBMSG_TYPE_INT32, 5) + raw_attr(0x50, "x") + number_member("level", 2)), 0);
    EXPECT_EQ(blobmsg_get_u32(tb[1]), 2u);
}

TEST_F(BlobmsgParse, NullDataIsAnErrorAndZeroesTheTable) {
    tb[0] = tb[1] = reinterpret_cast<blob_attr *>(this);
    EXPECT_LT(blobmsg_parse(POLICY, 2, tb, nullptr, 16), 0);
    EXPECT_EQ(tb[0], nullptr);
    EXPECT_EQ(tb[1], nullptr);
}

TEST_F(BlobmsgParse, NoAttributeAtAllIsAnErrorAndZeroesTheTable) {
    EXPECT_LT(parse(""), 0);
    EXPECT_EQ(tb[0], nullptr);
    EXPECT_EQ(tb[1], nullptr);
}

TEST_F(BlobmsgParse, CutThroughAnAttributeLeavesWhatStandsInFrontOfIt) {
    const Bytes first = number_member("level", 4);
    const Bytes whole = first + text_member("mode", "RE");
    for (size_t len = 1; len < whole.size(); len++) {
        EXPECT_EQ(parse(whole.substr(0, len)), 0) << len;
        EXPECT_EQ(tb[1] != nullptr, len >= first.size()) << len;
        EXPECT_EQ(tb[0], nullptr) << len;
    }
    EXPECT_EQ(parse(whole), 0);
    EXPECT_TRUE(tb[0] && tb[1]);
}

TEST_F(BlobmsgParse, NameMustMatchAsAWhole) {
    ASSERT_EQ(parse(number_member("leve", 1) + number_member("levels", 2) + number_member("", 3) +
                    number_member(std::string("level\0x", 7), 4)),
              0);
    EXPECT_EQ(tb[1], nullptr);
}

TEST_F(BlobmsgParse, UnspecTakesAnyType) {
    const blobmsg_policy any[] = {{"a", BLOBMSG_TYPE_UNSPEC}, {nullptr, BLOBMSG_TYPE_UNSPEC}};
    Bytes bytes = text_member("a", "1");
    ASSERT_EQ(blobmsg_parse(any, 2, tb, bytes.data(), static_cast<unsigned>(bytes.size())), 0);
    EXPECT_NE(tb[0], nullptr);
    EXPECT_EQ(tb[1], nullptr);
}

TEST_F(BlobmsgParse, StringOfNullAttributeIsNull) {
    EXPECT_EQ(blobmsg_get_string(nullptr), nullptr);
}

struct Row {
    const char *name;
    Bytes bytes;
    friend void PrintTo(const Row &row, std::ostream *out) {
        *out << row.name;
    }
};

class BlobmsgRaggedEnd : public BlobmsgParse, public ::testing::WithParamInterface<Row> {};

TEST_P(BlobmsgRaggedEnd, IsNoErrorAndEndsTheWalk) {
    const Bytes &ragged = GetParam().bytes;
    EXPECT_EQ(parse(ragged), 0);
    EXPECT_FALSE(tb[0] || tb[1]);
    EXPECT_EQ(parse(number_member("level", 1) + ragged), 0);
    EXPECT_NE(tb[1], nullptr);
    EXPECT_EQ(tb[0], nullptr);
}

INSTANTIATE_TEST_SUITE_P(, BlobmsgRaggedEnd,
                         ::testing::Values(Row{"OneByte", from_hex("85")}, Row{"ThreeBytes", from_hex("850000")},
                                           Row{"LengthZero", from_hex("85000000") + text_member("mode", "RE")},
                                           Row{"LengthBelowTheWord", from_hex("85000003") + text_member("mode", "RE")},
                                           Row{"LengthBeyondTheData", from_hex("8500001000016100")},
                                           Row{"LongestLength", from_hex("85ffffff00016100")},
                                           Row{"PaddingBeyondTheData", from_hex("8300000e00046d6f64650000615a")}),
                         [](const auto &param) { return param.param.name; });

class BlobmsgMalformed : public BlobmsgParse, public ::testing::WithParamInterface<Row> {};

TEST_P(BlobmsgMalformed, IsAnErrorWhereverItStands) {
    EXPECT_LT(parse(GetParam().bytes), 0);
    EXPECT_LT(parse(number_member("level", 1) + GetParam().bytes), 0);
    EXPECT_LT(parse(GetParam().bytes + number_member("level", 1)), 0);
}

INSTANTIATE_TEST_SUITE_P(, BlobmsgMalformed,
                         ::testing::Values(Row{"NoRoomForTheNameLength", from_hex("8500000500000000")},
                                           Row{"NameBeyondTheAttribute", from_hex("8500000c00ff616161616161")},
                                           Row{"NameOfTheLongestLength", from_hex("8500000cffff616161616161")},
                                           Row{"NameWithoutNul", from_hex("8500000c0001616100000001")},
                                           Row{"StringWithoutNul", from_hex("8300000b0001610041424300")},
                                           Row{"EmptyStringWithoutNul", from_hex("8300000800016100")},
                                           Row{"Int64OfFourBytes", from_hex("8400000c0001610000000001")},
                                           Row{"Int32OfTwoBytes", from_hex("8500000a0001610000010000")},
                                           Row{"Int32OfEightBytes", from_hex("85000010000161000000000000000001")},
                                           Row{"Int16OfOneByte", from_hex("860000090001610001000000")},
                                           Row{"Int8WithoutValue", from_hex("8700000800016100")},
                                           Row{"DoubleOfFourBytes", from_hex("8800000c0001610000000001")},
                                           Row{"UnknownType", from_hex("8900000c0001610000000001")}),
                         [](const auto &param) { return param.param.name; });

TEST(BlobmsgCheck, AsksForANameOnRequest) {
    const Bytes nameless = number_member("", 1);
    const Bytes plain = number_attr(BLOBMSG_TYPE_INT32, 1);
    const auto check = [](const Bytes &bytes, bool name) {
        return blobmsg_check_attr_len(reinterpret_cast<const blob_attr *>(bytes.data()), name, bytes.size());
    };
    EXPECT_TRUE(check(nameless, false));
    EXPECT_FALSE(check(nameless, true));
    EXPECT_TRUE(check(plain, false));
    EXPECT_FALSE(check(plain, true));
    EXPECT_TRUE(check(number_member("a", 1), true));
}

TEST(BlobmsgCheck, BoolIsAnInt8ThatIsNotZero) {
    const Bytes two = member(BLOBMSG_TYPE_BOOL, "a", "\2");
    EXPECT_TRUE(blobmsg_get_bool(reinterpret_cast<const blob_attr *>(two.data())));
}

} // namespace
