#include "document/channel_codec.h"

#include <gtest/gtest.h>

#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

// The planes are followed by guard bytes that must stay.
PsdReadResult Decode(uint16_t compression, const Bytes& input, const PlaneShape& shape, size_t size,
                     Bytes* decoded = nullptr) {
    Bytes planes(size);
    planes.insert(planes.end(), 8, 0xEE);
    const PsdReadResult result = DecodePlanes(compression, input, shape, {planes.data(), planes.size()});
    EXPECT_EQ(Bytes(planes.end() - 8, planes.end()), Bytes(8, 0xEE));
    planes.resize(size);
    if (decoded) *decoded = planes;
    return result;
}

TEST(ChannelCodec, EveryCompressionGivesThePlanesBack) {
    const Bytes deltas = Zip({0x00, 0x01, 0xFF, 0xFF, 0x10, 0xF0, 0x00, 0x20});
    const struct {
        const char* what;
        PlaneShape shape;
        uint16_t compression;
        Bytes input, want;
    } cases[] = {
        {"raw, short", {3, 2, 8, 1}, 0, {1, 2}, {1, 2, 0, 0, 0, 0}},
        {"raw, surplus", {2, 1, 8, 1}, 0, {1, 2, 3}, {1, 2}},
        {"raw, 1 bit, nine wide", {9, 2, 1, 1}, 0, {0xAA, 0x80, 0x55, 0}, {0xAA, 0x80, 0x55, 0}},
        {"packed, two planes", {3, 1, 8, 2}, 1, {0, 2, 0, 4, 0xFE, 7, 2, 1, 2, 3}, {7, 7, 7, 1, 2, 3}},
        {"packed, rest of a row", {2, 2, 8, 1}, 1, {0, 5, 0, 2, 0xFF, 8, 9, 9, 9, 0xFF, 4}, {8, 8, 4, 4}},
        {"packed, short row", {3, 2, 8, 1}, 1, {0, 2, 0, 2, 0, 5, 0xFE, 6}, {5, 0, 0, 6, 6, 6}},
        {"packed, data ends", {2, 2, 8, 1}, 1, {0, 2, 0, 9, 0xFF, 5, 1, 3}, {5, 5, 3, 0}},
        {"packed, table ends", {2, 3, 8, 1}, 1, {0, 2, 0, 2, 0}, {0, 0, 0, 0, 0, 0}},
        {"packed, 16 bits", {2, 1, 16, 1}, 1, {0, 2, 0xFD, 9}, {9, 9, 9, 9}},
        {"zip ends early", {4, 1, 8, 1}, 2, Zip({1, 2}), {1, 2, 0, 0}},
        {"zip goes on", {2, 1, 8, 1}, 2, Zip({1, 2, 3, 4, 5}), {1, 2}},
        {"predicted", {4, 2, 8, 1}, 3, deltas, {0x00, 0x01, 0x00, 0xFF, 0x10, 0x00, 0x00, 0x20}},
        {"predicted 16", {2, 2, 16, 1}, 3, deltas, {0x00, 0x01, 0x00, 0x00, 0x10, 0xF0, 0x11, 0x10}},
        {"predicted 32: the last sample of a row stays",
         {2, 1, 32, 1},
         3,
         Zip({0x01, 0xFF, 0x02, 0x03, 0x10, 0xF0, 0x00, 0x20}),
         {0x01, 0xFF, 0x04, 0x02, 0x10, 0xF0, 0x00, 0x20}},
        {"predicted, ends early", {4, 2, 8, 1}, 3, Zip({1, 1}), {1, 2, 0, 0, 0, 0, 0, 0}},
        // Runs are clipped at the row and at their bytes; 0x80 says nothing.
        {"run too long", {3, 1, 8, 1}, 1, {0, 2, 0x81, 5}, {5, 5, 5}},
        {"bytes too many", {3, 1, 8, 1}, 1, {0, 7, 5, 1, 2, 3, 4, 5, 6}, {1, 2, 3}},
        {"bytes missing", {4, 1, 8, 1}, 1, {0, 3, 5, 1, 2}, {1, 2, 0, 0}},
        {"nothing twice", {2, 1, 8, 1}, 1, {0, 4, 0x80, 0x80, 0, 9}, {9, 0}},
        {"run without its byte", {2, 1, 8, 1}, 1, {0, 1, 0xFE, 7}, {0, 0}},
        {"2^48 rows of no width", {0, 0xFFFFFFFF, 8, 56}, 1, {0, 0}, {}},
        {"2^48 rows of no width, predicted", {0, 0xFFFFFFFF, 8, 56}, 3, Zip({1}), {}},
    };
    for (const auto& test : cases) {
        Bytes planes;
        EXPECT_EQ(Decode(test.compression, test.input, test.shape, test.want.size(), &planes),
                  PsdReadResult::kOk);
        EXPECT_EQ(planes, test.want) << test.what;
    }
    Bytes row(4);
    EXPECT_EQ(UnpackBits(Bytes{0xFF, 5, 3, 1}, row), 3u) << "what was written";
}

TEST(ChannelCodec, RefusesWhatCannotBeDecoded) {
    const Bytes zipped = Zip(Bytes(300, 7));
    Bytes corrupt = zipped, badSum = zipped, cut = zipped;
    corrupt[0] ^= 0xFF;
    badSum.back() ^= 1;
    cut.resize(6);
    const PlaneShape shape{300, 1, 8, 1};
    for (const uint16_t code : {uint16_t{2}, uint16_t{3}}) {
        for (const Bytes& bytes : {corrupt, badSum, cut, Bytes()})
            EXPECT_EQ(Decode(code, bytes, shape, 300), PsdReadResult::kInflateFailed);
    }
    EXPECT_EQ(Decode(4, zipped, shape, 300), PsdReadResult::kBadCompression);
#if defined(TESSARY_FAULT_INJECTION)
    FailAllocationNumber(1);
    EXPECT_EQ(Decode(2, zipped, shape, 300), PsdReadResult::kInflateSetup) << "zlib allocates as we do";
    FailAllocationNumber(2);
    EXPECT_LT(static_cast<int>(Decode(2, Zip(Bytes(100000, 7)), {100, 100, 8, 1}, 10000)), 0);
    FailAllocationNumber(0);
#endif
}

}  // namespace
}  // namespace tessary::test
