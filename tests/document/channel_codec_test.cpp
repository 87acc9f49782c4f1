#include "document/channel_codec.h"

#include <gtest/gtest.h>

#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

struct Decoded {
    PsdReadResult result = PsdReadResult::kOk;
    Bytes planes;
};

// The planes are followed by guard bytes that must stay.
Decoded Decode(uint16_t compression, const Bytes& input, const PlaneShape& shape, size_t size) {
    Bytes planes(size + 8);
    std::fill(planes.end() - 8, planes.end(), uint8_t{0xEE});
    const PsdReadResult result = DecodePlanes(compression, input, shape, {planes.data(), planes.size()});
    EXPECT_EQ(Bytes(planes.end() - 8, planes.end()), Bytes(8, 0xEE));
    planes.resize(size);
    return {result, planes};
}

TEST(ChannelCodec, EveryCompressionGivesThePlanesBack) {
    const Bytes deltas = Zip({0x00, 0x01, 0xFF, 0xFF, 0x10, 0xF0, 0x00, 0x20});
    const struct {
        const char* what;
        uint16_t compression;
        PlaneShape shape;
        Bytes input, want;
    } cases[] = {
        {"raw", 0, {3, 2, 8, 1}, {1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5, 6}},
        {"raw, short", 0, {3, 2, 8, 1}, {1, 2}, {1, 2, 0, 0, 0, 0}},
        {"raw, surplus", 0, {2, 1, 8, 1}, {1, 2, 3}, {1, 2}},
        {"raw, 1 bit, nine wide", 0, {9, 2, 1, 1}, {0xAA, 0x80, 0x55, 0}, {0xAA, 0x80, 0x55, 0}},
        {"packed, two planes", 1, {3, 1, 8, 2}, {0, 2, 0, 4, 0xFE, 7, 2, 1, 2, 3}, {7, 7, 7, 1, 2, 3}},
        {"packed, row lengths skip what a row leaves",
         1,
         {2, 2, 8, 1},
         {0, 5, 0, 2, 0xFF, 8, 9, 9, 9, 0xFF, 4},
         {8, 8, 4, 4}},
        {"packed, short row leaves zeros", 1, {3, 2, 8, 1}, {0, 2, 0, 2, 0, 5, 0xFE, 6}, {5, 0, 0, 6, 6, 6}},
        {"packed, data ends", 1, {2, 2, 8, 1}, {0, 2, 0, 9, 0xFF, 5, 1, 3}, {5, 5, 3, 0}},
        {"packed, table ends", 1, {2, 3, 8, 1}, {0, 2, 0, 2, 0}, {0, 0, 0, 0, 0, 0}},
        {"packed, 16 bits", 1, {2, 1, 16, 1}, {0, 2, 0xFD, 9}, {9, 9, 9, 9}},
        {"zip", 2, {4, 1, 16, 1}, Zip({1, 2, 3, 4, 5, 6, 7, 8}), {1, 2, 3, 4, 5, 6, 7, 8}},
        {"zip ends early", 2, {4, 1, 8, 1}, Zip({1, 2}), {1, 2, 0, 0}},
        {"zip goes on", 2, {2, 1, 8, 1}, Zip({1, 2, 3, 4, 5}), {1, 2}},
        {"predicted, 8 bits", 3, {4, 2, 8, 1}, deltas, {0x00, 0x01, 0x00, 0xFF, 0x10, 0x00, 0x00, 0x20}},
        {"predicted, 16 bits", 3, {2, 2, 16, 1}, deltas, {0x00, 0x01, 0x00, 0x00, 0x10, 0xF0, 0x11, 0x10}},
        {"predicted, 32 bits: the last sample of a row stays",
         3,
         {2, 1, 32, 1},
         Zip({0x01, 0xFF, 0x02, 0x03, 0x10, 0xF0, 0x00, 0x20}),
         {0x01, 0xFF, 0x04, 0x02, 0x10, 0xF0, 0x00, 0x20}},
        {"predicted, ends early", 3, {4, 2, 8, 1}, Zip({1, 1}), {1, 2, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& test : cases) {
        const Decoded decoded = Decode(test.compression, test.input, test.shape, test.want.size());
        EXPECT_EQ(decoded.result, PsdReadResult::kOk) << test.what;
        EXPECT_EQ(decoded.planes, test.want) << test.what;
    }
}

TEST(ChannelCodec, RefusesWhatCannotBeDecoded) {
    const Bytes zipped = Zip(Bytes(300, 7));
    Bytes corrupt = zipped, badSum = zipped, cut = zipped;
    corrupt[0] ^= 0xFF;
    badSum.back() ^= 1;
    cut.resize(6);
    const PlaneShape shape{300, 1, 8, 1};
    for (const uint16_t code : {uint16_t{2}, uint16_t{3}}) {
        EXPECT_EQ(Decode(code, corrupt, shape, 300).result, PsdReadResult::kInflateFailed);
        EXPECT_EQ(Decode(code, badSum, shape, 300).result, PsdReadResult::kInflateFailed);
        EXPECT_EQ(Decode(code, cut, shape, 300).result, PsdReadResult::kInflateFailed);
        EXPECT_EQ(Decode(code, {}, shape, 300).result, PsdReadResult::kInflateFailed);
    }
    EXPECT_EQ(Decode(4, zipped, shape, 300).result, PsdReadResult::kBadCompression);
    EXPECT_EQ(Decode(0xFFFF, zipped, shape, 300).result, PsdReadResult::kBadCompression);
}

TEST(ChannelCodec, RunsAreClippedAtTheRowAndAtTheirBytes) {
    const struct {
        Bytes input;
        size_t row;
        Bytes want;
    } cases[] = {
        {{0x81, 5}, 3, {5, 5, 5}},
        {{5, 1, 2, 3, 4, 5, 6}, 3, {1, 2, 3}},
        {{5, 1, 2}, 4, {1, 2}},
        {{0x80, 0x80, 0, 9}, 2, {9}},
        {{0xFE}, 3, {}},
        {{3}, 3, {}},
        {{0, 1, 0xFF, 2, 0x80, 0, 3}, 4, {1, 2, 2, 3}},
    };
    for (const auto& test : cases) {
        Bytes row(test.row + 4, 0xEE);
        EXPECT_EQ(UnpackBits(test.input, {row.data(), test.row}), test.want.size());
        Bytes want = test.want;
        want.resize(row.size(), 0xEE);
        EXPECT_EQ(row, want);
    }
}

TEST(ChannelCodec, HugeClaimsWithoutBytesCostNothing) {
    // 2^48 rows of no width must not be walked.
    EXPECT_EQ(Decode(1, {0, 0}, {0, 0xFFFFFFFF, 8, 56}, 0).result, PsdReadResult::kOk);
    EXPECT_EQ(Decode(3, Zip({1}), {0, 0xFFFFFFFF, 8, 56}, 0).result, PsdReadResult::kOk);
}

#if defined(TESSARY_FAULT_INJECTION)
TEST(ChannelCodec, ZlibAllocatesWhereTheEngineDoes) {
    const Bytes zipped = Zip(Bytes(100000, 7));
    FailAllocationNumber(1);
    EXPECT_EQ(Decode(2, zipped, {100, 100, 8, 1}, 10000).result, PsdReadResult::kInflateSetup);
    FailAllocationNumber(2);
    EXPECT_LT(static_cast<int>(Decode(2, zipped, {100, 100, 8, 1}, 10000).result), 0);
    FailAllocationNumber(0);
}
#endif

}  // namespace
}  // namespace tessary::test
