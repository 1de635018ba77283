// Building named attributes.
#include "support.h"

#include <cmath>

namespace {

class BlobmsgBuf : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(blobmsg_buf_init(&buf), 0);
    }
    ~BlobmsgBuf() override {
        blob_buf_free(&buf);
    }
    std::string members() const {
        return to_hex(Bytes(static_cast<const char *>(blob_data(buf.head)), blob_len(buf.head)));
    }
    blob_buf buf = {};
};

TEST_F(BlobmsgBuf, StringKeepsItsNulAndTheHeadIsPadded) {
    ASSERT_EQ(blobmsg_add_string(&buf, "mode", "RE"), 0);
    EXPECT_EQ(members(), "8300000f00046d6f64650000"
                         "52450000");
}

struct NumberRow {
    const char *name;
    int (*add)(blob_buf *buf);
    const char *hex;
    friend void PrintTo(const NumberRow &row, std::ostream *out) {
        *out << row.name;
    }
};

class BlobmsgNumber : public ::testing::TestWithParam<NumberRow> {};

TEST_P(BlobmsgNumber, IsBigEndianOfItsTypesSize) {
    blob_buf buf = {};
    ASSERT_EQ(blobmsg_buf_init(&buf), 0);
    ASSERT_EQ(GetParam().add(&buf), 0);
    EXPECT_EQ(to_hex(Bytes(static_cast<const char *>(blob_data(buf.head)), blob_len(buf.head))), GetParam().hex);
    blob_buf_free(&buf);
}

INSTANTIATE_TEST_SUITE_P(
    , BlobmsgNumber,
    ::testing::Values(NumberRow{"Int8", [](blob_buf *buf) { return blobmsg_add_u8(buf, "a", 1); },
                                "8700000900016100"
                                "01000000"},
                      NumberRow{"Int16", [](blob_buf *buf) { return blobmsg_add_u16(buf, "a", 0x102); },
                                "8600000a00016100"
                                "01020000"},
                      NumberRow{"Int32", [](blob_buf *buf) { return blobmsg_add_u32(buf, "a", 0xfffffffe); },
                                "8500000c00016100"
                                "fffffffe"},
                      NumberRow{"Int64", [](blob_buf *buf) { return blobmsg_add_u64(buf, "a", 1ull << 40); },
                                "8400001000016100"
                                "0000010000000000"},
                      NumberRow{"Double", [](blob_buf *buf) { return blobmsg_add_double(buf, "a", 1.5); },
                                "8800001000016100"
                                "3ff8000000000000"}),
    [](const auto &param) { return param.param.name; });

TEST_F(BlobmsgBuf, TableEnclosesItsMembersBehindItsName) {
    void *table = blobmsg_open_table(&buf, "data");
    ASSERT_TRUE(table);
    ASSERT_EQ(blobmsg_add_string(&buf, "mode", "RE"), 0);
    blobmsg_close_table(&buf, table);
    EXPECT_EQ(members(), "8200001c0004646174610000"
                         "8300000f00046d6f64650000"
                         "52450000");
}

TEST_F(BlobmsgBuf, ArrayItemsHaveEmptyNames) {
    void *array = blobmsg_open_array(&buf, "a");
    ASSERT_TRUE(array);
    ASSERT_EQ(blobmsg_add_u8(&buf, nullptr, 7), 0);
    blobmsg_close_array(&buf, array);
    EXPECT_EQ(members(), "8100001400016100"
                         "8700000900000000"
                         "07000000");
}

TEST_F(BlobmsgBuf, NameThatItsLengthCannotHoldIsRefused) {
    const std::string name(0x10000, 'n');
    EXPECT_EQ(blobmsg_add_u8(&buf, name.c_str(), 1), -1);
    EXPECT_EQ(members(), "");
    EXPECT_EQ(blobmsg_add_u8(&buf, name.substr(1).c_str(), 1), 0);
}

TEST_F(BlobmsgBuf, WhatItBuildsIsParsed) {
    ASSERT_EQ(blobmsg_add_double(&buf, "ratio", 0.25), 0);
    ASSERT_EQ(blobmsg_add_u64(&buf, "bytes", 1ull << 33), 0);
    ASSERT_EQ(blobmsg_add_u16(&buf, "port", 80), 0);
    const blobmsg_policy policy[] = {
        {"ratio", BLOBMSG_TYPE_DOUBLE}, {"bytes", BLOBMSG_TYPE_INT64}, {"port", BLOBMSG_TYPE_INT16}};
    blob_attr *tb[3];
    ASSERT_EQ(blobmsg_parse(policy, 3, tb, blob_data(buf.head), static_cast<unsigned>(blob_len(buf.head))), 0);
    ASSERT_TRUE(tb[0] && tb[1] && tb[2]);
    EXPECT_EQ(blobmsg_get_u64(tb[0]), 0x3fd0000000000000u);
    EXPECT_EQ(blobmsg_get_u64(tb[1]), 1ull << 33);
    EXPECT_EQ(blobmsg_get_u16(tb[2]), 80);
}

} // namespace
