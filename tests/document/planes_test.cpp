#include <gtest/gtest.h>

#include <array>

#include "document/channel_codec.h"
#include "document/merged_image.h"
#include "render/color_convert.h"
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
        {"raw, 1 bit, nine wide", {9, 2, 1, 1}, 0, {0xAA, 0x80, 0x55, 0}, {0xAA, 0x80, 0x55, 0}},
        {"packed, rest of a row", {2, 2, 8, 1}, 1, {0, 5, 0, 2, 0xFF, 8, 9, 9, 9, 0xFF, 4}, {8, 8, 4, 4}},
        {"packed, short row", {3, 2, 8, 1}, 1, {0, 2, 0, 2, 0, 5, 0xFE, 6}, {5, 0, 0, 6, 6, 6}},
        {"packed, data ends", {2, 2, 8, 1}, 1, {0, 2, 0, 9, 0xFF, 5, 1, 3}, {5, 5, 3, 0}},
        {"zip ends early", {4, 1, 8, 1}, 2, Zip({1, 2}), {1, 2, 0, 0}},
        {"predicted", {4, 2, 8, 1}, 3, deltas, {0x00, 0x01, 0x00, 0xFF, 0x10, 0x00, 0x00, 0x20}},
        {"predicted 16", {2, 2, 16, 1}, 3, deltas, {0x00, 0x01, 0x00, 0x00, 0x10, 0xF0, 0x11, 0x10}},
        {"predicted 32, the last stays", {2, 1, 32, 1}, 3, deltas, {0, 1, 0, 0, 0x10, 0xF0, 0, 0x20}},
        {"predicted, ends early", {4, 2, 8, 1}, 3, Zip({1, 1}), {1, 2, 0, 0, 0, 0, 0, 0}},
        // Runs are clipped at the row and at their bytes; 0x80 says nothing.
        {"run too long", {3, 1, 8, 1}, 1, {0, 2, 0x81, 5}, {5, 5, 5}},
        {"bytes too many", {3, 1, 8, 1}, 1, {0, 7, 5, 1, 2, 3, 4, 5, 6}, {1, 2, 3}},
        {"bytes missing", {4, 1, 8, 1}, 1, {0, 3, 5, 1, 2}, {1, 2, 0, 0}},
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
    const PlaneShape shape{300, 1, 8, 1};
    const Bytes zipped = Zip(Bytes(300, 7));
    Bytes corrupt = zipped, badSum = zipped;
    corrupt[0] ^= 0xFF;
    badSum.back() ^= 1;
    for (const uint16_t code : {uint16_t{2}, uint16_t{3}}) {
        for (const Bytes& bytes : {corrupt, badSum, Bytes(zipped.begin(), zipped.begin() + 6), Bytes()})
            EXPECT_EQ(Decode(code, bytes, shape, 300), PsdReadResult::kInflateFailed);
    }
    EXPECT_EQ(Decode(4, zipped, shape, 300), PsdReadResult::kBadCompression);
#if defined(TESSARY_FAULT_INJECTION)
    FailAllocationNumber(1);
    EXPECT_EQ(Decode(2, zipped, shape, 300), PsdReadResult::kInflateSetup) << "zlib allocates as we do";
    FailAllocationNumber(0);
#endif
}

using Pixels = std::vector<uint32_t>;

Pixels PixelsOf(const Owned<PsdDocument>& document) {
    const auto pixels = document->mergedPixels.span();
    return {pixels.begin(), pixels.end()};
}

TEST(MergedImage, EveryModeDepthAndCompression) {
    Bytes palette(768, 9);
    palette[1] = 0x11, palette[257] = 0x22, palette[513] = 0x33;
    const struct {
        const char* what;
        uint32_t mode, depth, channels, width;
        Bytes names, planes;  // names: resource 1006
        Pixels want;
    } cases[] = {
        {"gray, alpha is named", 1, 8, 2, 2, {1, 'a'}, {10, 250, 128, 1}, {0xFF0A0A0A, 0xFFFAFAFA}},
        {"gray, second alpha is named", 8, 8, 3, 1, {0}, {10, 128, 77}, {0x800A0A0A}},
        {"indexed", 2, 8, 1, 3, {}, {1, 2, 200}, {0xFF112233, 0x00090909, 0xFF090909}},
        {"rgb and alpha", 3, 8, 4, 1, {}, {1, 2, 3, 4}, {0x04010203}},
        {"rgb and two", 3, 8, 5, 1, {}, {1, 2, 3, 4, 5}, {0xFF010203}},
        {"rgb and two, one named", 3, 8, 5, 1, {0}, {1, 2, 3, 4, 5}, {0x04010203}},
        {"cmyk and alpha", 4, 8, 5, 1, {}, {0, 255, 128, 255, 7}, {0x0701FF81}},
        {"multichannel, names are colours", 7, 8, 4, 1, {0, 0}, {0, 255, 128, 255}, {0xFF01FF81}},
    };
    for (const auto& test : cases) {
        for (uint16_t compression = 0; compression < (test.depth % 31 == 1 ? 3 : 4); ++compression) {
            DocumentBuilder builder(test.mode, test.depth, test.channels, test.width, 1);
            if (test.mode == kColorIndexed) builder.ColorModeData(palette).Resource(1047, {0, 2});
            builder.Resource(1006, test.names).Resource(1053, Bytes(4)).Merged(test.planes, compression);
            const Opened opened = OpenBytes(builder.Build(), kReadMerged);
            ASSERT_TRUE(opened.document) << test.what << compression;
            EXPECT_EQ(PixelsOf(opened.document), test.want) << test.what << ", compression " << compression;
        }
    }
}

// Large enough that planes wait for one another in several places, and that input, inflated rows and steps
// end in the middle of each other. All planes decoded first give the pixels that are wanted.
TEST(MergedImage, IsTheSameWhileItArrives) {
    constexpr uint32_t kWidth = 500, kHeight = 100;
    Bytes picture(4 * 5 * kWidth * kHeight);
    uint32_t state = 1;
    for (size_t i = 0; i < picture.size(); ++i) {
        state = state * 1664525 + 1013904223;
        const bool repeats = state >> 16 & 64 || i % 9000 < 4000;
        picture[i] = repeats ? picture[i - (i != 0)] : static_cast<uint8_t>(state >> 24);
    }
    const std::pair<uint32_t, uint32_t> cases[] = {{kColorGrayscale, 2}, {kColorIndexed, 1}, {kColorRgb, 2},
                                                   {kColorRgb, 3},       {kColorRgb, 4},     {kColorCmyk, 5},
                                                   {kColorLab, 5}};
    // Depth and compression; the part of the data that is there, in eighths, which zip data must be in full.
    for (uint32_t run = 0; run < std::size(cases) * 3 * 4 * 3; ++run) {
        const auto& [mode, channels] = cases[run / 36];
        const uint32_t depth = 8u << run % 3, part = std::array{8u, 7u, 1u}[run / 12 % 3];
        const uint16_t compression = static_cast<uint16_t>(run / 3 % 4);
        // The builder cannot take these differences.
        if ((depth == 32 && compression == 3) || (part != 8 && compression > 1)) continue;
        SCOPED_TRACE(run);
        const size_t rowBytes = kWidth * depth / 8, planeBytes = rowBytes * kHeight;
        Bytes planes(picture.begin(), picture.begin() + static_cast<ptrdiff_t>(planeBytes * channels));
        Bytes data = EncodePlanes(compression, planes, rowBytes, depth);
        data.resize(data.size() * part / 8);
        DocumentBuilder document(mode, depth, channels, kWidth, kHeight);
        MemoryStream stream(document.MergedData(data).Build());
        stream.hasSize = run % 5 == 0;  // without a size to go by the data is read into a buffer that grows
        stream.size = uint64_t{1} << 63;
        Owned<PsdDocument> opened;
        ASSERT_EQ(OpenDocument(opened, &stream, kReadMerged), PsdReadResult::kOk);

        std::ranges::fill(planes, uint8_t{0});
        const PlaneShape shape = {kWidth, kHeight, depth, channels};
        ASSERT_EQ(DecodePlanes(compression, std::span(data).subspan(2), shape, planes), PsdReadResult::kOk);
        PlaneBlock block = {mode, depth, kWidth, kHeight};
        block.planeCount = channels;
        for (uint32_t i = 0; i < std::min(channels, ColorPlanesUsed(mode, channels)); ++i)
            block.color[i] = planes.data() + i * planeBytes;
        block.alpha = planes.data() + (channels - 1) * planeBytes;
        Pixels want(kWidth * kHeight);
        ConvertPlanes(block, 0, kHeight, want.data());
        EXPECT_TRUE(PixelsOf(opened) == want);
    }
}

}  // namespace
}  // namespace tessary::test
