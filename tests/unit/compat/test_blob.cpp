// Attributes: their words, walking them, building them in a buffer that grows.
#include "support.h"

namespace {

class Blob : public ::testing::Test {
protected:
    ~Blob() override {
        blob_buf_free(&buf);
    }
    std::string bytes() const {
        return to_hex(Bytes(reinterpret_cast<const char *>(buf.head), blob_raw_len(buf.head)));
    }
    blob_buf buf = {};
};

const blob_attr *attr_at(const Bytes &bytes) {
    return reinterpret_cast<const blob_attr *>(bytes.data());
}

TEST_F(Blob, WordHoldsExtendedBitIdAndLengthIncludingItself) {
    const Bytes word = from_hex("83000007"
                                "61626300");
    EXPECT_TRUE(blob_is_extended(attr_at(word)));
    EXPECT_EQ(blob_id(attr_at(word)), 3u);
    EXPECT_EQ(blob_raw_len(attr_at(word)), 7u);
    EXPECT_EQ(blob_len(attr_at(word)), 3u);
    EXPECT_EQ(blob_pad_len(attr_at(word)), 8u);
    EXPECT_EQ(static_cast<const char *>(blob_data(attr_at(word))), word.data() + 4);
}

TEST_F(Blob, IdHasSevenBits) {
    const Bytes word = from_hex("7f000004");
    EXPECT_FALSE(blob_is_extended(attr_at(word)));
    EXPECT_EQ(blob_id(attr_at(word)), 127u);
}

TEST_F(Blob, NextAttributeStartsAtThePaddedLength) {
    const Bytes two = from_hex("0100000541000000"
                               "0200000800000007");
    const blob_attr *next = blob_next(attr_at(two));
    EXPECT_EQ(reinterpret_cast<const char *>(next), two.data() + 8);
    EXPECT_EQ(blob_get_u32(next), 7u);
}

TEST_F(Blob, LengthThatDoesNotCoverTheWordIsNoPayload) {
    EXPECT_EQ(blob_len(attr_at(from_hex("01000003"))), 0u);
}

struct FitRow {
    const char *name;
    const char *hex;
    bool fits;
    friend void PrintTo(const FitRow &row, std::ostream *out) {
        *out << row.name;
    }
};

class BlobFit : public ::testing::TestWithParam<FitRow> {};

TEST_P(BlobFit, IsCheckedAgainstTheBytesThatAreThere) {
    const Bytes bytes = from_hex(GetParam().hex);
    EXPECT_EQ(blob_attr_fits(attr_at(bytes), bytes.size()), GetParam().fits);
}

INSTANTIATE_TEST_SUITE_P(
    , BlobFit,
    ::testing::Values(FitRow{"NoByte", "", false}, FitRow{"HalfAWord", "0100", false},
                      FitRow{"OnlyAWord", "01000004", true}, FitRow{"LengthBelowTheWord", "01000003", false},
                      FitRow{"LengthZero", "01000000", false}, FitRow{"OneByteMissing", "01000008000000", false},
                      FitRow{"Exact", "0100000800000000", true}, FitRow{"PaddingMissing", "0100000500", false},
                      FitRow{"LongestLength", "01ffffff00000000", false}),
    [](const auto &param) { return param.param.name; });

TEST_F(Blob, WalkStopsInFrontOfWhatDoesNotFit) {
    const Bytes bytes = from_hex("0100000800000001"
                                 "0200000c00000002");
    size_t rem = bytes.size();
    int count = 0;
    blob_attr *pos;
    __blob_for_each_attr(pos, const_cast<char *>(bytes.data()), rem)++ count;
    EXPECT_EQ(count, 1);
    EXPECT_EQ(rem, 8u);
}

TEST_F(Blob, BuildsAttributesWithZeroedPadding) {
    ASSERT_EQ(blob_buf_init(&buf, 0), 0);
    EXPECT_EQ(bytes(), "00000004");
    ASSERT_TRUE(blob_put_u32(&buf, 3, 0xbbbf01e0));
    ASSERT_TRUE(blob_put_string(&buf, 4, "kolt"));
    ASSERT_TRUE(blob_put_u8(&buf, 10, 1));
    EXPECT_EQ(bytes(), "00000020"
                       "03000008bbbf01e0"
                       "040000096b6f6c7400000000"
                       "0a00000501000000");
}

TEST_F(Blob, EnclosingAttributeLearnsItsLengthWhenItIsClosed) {
    ASSERT_EQ(blob_buf_init(&buf, 0), 0);
    void *outer = blob_nest_start(&buf, 7);
    void *inner = blob_nest_start(&buf, 2);
    ASSERT_TRUE(outer && inner);
    ASSERT_TRUE(blob_put_u8(&buf, 1, 0xff));
    blob_nest_end(&buf, inner);
    blob_nest_end(&buf, outer);
    EXPECT_EQ(bytes(), "00000014"
                       "07000010"
                       "0200000c"
                       "01000005ff000000");
}

TEST_F(Blob, StartsOverInTheSameBuffer) {
    ASSERT_EQ(blob_buf_init(&buf, 0), 0);
    ASSERT_TRUE(blob_put_u32(&buf, 3, 1));
    ASSERT_EQ(blob_buf_init(&buf, 5), 0);
    EXPECT_EQ(bytes(), "05000004");
}

TEST_F(Blob, GrowsUpToTheLongestLengthAndNotBeyond) {
    ASSERT_EQ(blob_buf_init(&buf, 0), 0);
    ASSERT_TRUE(blob_put(&buf, 1, nullptr, 0x7fffff));
    EXPECT_EQ(blob_put(&buf, 1, nullptr, 0x7fffff), nullptr);
    ASSERT_TRUE(blob_put(&buf, 1, nullptr, 0x7fffe0));
    EXPECT_EQ(blob_raw_len(buf.head), 0xffffecu);
}

} // namespace
