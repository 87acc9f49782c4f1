#include "document/merged_image.h"

#include <gtest/gtest.h>

#include "document/channel_codec.h"
#include "render/color_convert.h"
#include "tests/support/document_builder.h"
#include "tests/support/memory_stream.h"

namespace tessary::test {
namespace {

std::vector<uint32_t> PixelsOf(const PsdDocument& document) {
    const auto pixels = document.mergedPixels.span();
    return {pixels.begin(), pixels.end()};
}

TEST(MergedImage, EveryModeDepthAndCompression) {
    Bytes palette(768, 9);
    palette[1] = 0x11, palette[257] = 0x22, palette[513] = 0x33;
    const Bytes half = ByteWriter().F32(0.5f).F32(1.0f);
    const struct {
        const char* what;
        uint32_t mode, depth, channels, width;
        Bytes names, planes;  // names: resource 1006
        std::vector<uint32_t> want;
    } cases[] = {
        {"bitmap", 0, 1, 1, 9, {}, {0x40, 0x7F}, {~0u, 0xFF000000, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u}},
        {"gray", 1, 8, 1, 2, {}, {10, 250}, {0xFF0A0A0A, 0xFFFAFAFA}},
        {"gray and alpha", 1, 8, 2, 2, {}, {10, 250, 128, 1}, {0x800A0A0A, 0x01FAFAFA}},
        {"gray, alpha is named", 1, 8, 2, 2, {1, 'a'}, {10, 250, 128, 1}, {0xFF0A0A0A, 0xFFFAFAFA}},
        {"gray, second alpha is named", 8, 8, 3, 1, {0}, {10, 128, 77}, {0x800A0A0A}},
        {"gray 16", 1, 16, 2, 2, {}, {9, 255, 8, 7, 0xFE, 0, 3, 0}, {0xFE090909, 0x03080808}},
        {"gray 32", 1, 32, 1, 2, {}, half, {0xFF7F7F7F, 0xFFFFFFFF}},
        {"indexed", 2, 8, 1, 3, {}, {1, 2, 200}, {0xFF112233, 0x00090909, 0xFF090909}},
        {"rgb", 3, 8, 3, 2, {}, {1, 2, 3, 4, 5, 6}, {0xFF010305, 0xFF020406}},
        {"rgb and alpha", 3, 8, 4, 1, {}, {1, 2, 3, 4}, {0x04010203}},
        {"rgb and two", 3, 8, 5, 1, {}, {1, 2, 3, 4, 5}, {0xFF010203}},
        {"rgb and two, one named", 3, 8, 5, 1, {0}, {1, 2, 3, 4, 5}, {0x04010203}},
        {"rgb, more names than channels", 3, 8, 3, 1, {0, 0, 0, 0}, {1, 2, 3}, {0xFF010203}},
        {"rgb without blue", 3, 8, 2, 1, {}, {1, 2}, {0xFF010200}},
        {"rgb 16", 3, 16, 4, 1, {}, {1, 255, 2, 255, 3, 255, 4, 255}, {0x04010203}},
        {"cmyk, no ink", 4, 8, 4, 1, {}, {255, 255, 255, 255}, {0xFFFFFFFF}},
        {"cmyk and alpha", 4, 8, 5, 1, {}, {0, 255, 128, 255, 7}, {0x0701FF81}},
        {"multichannel, names are colours", 7, 8, 4, 1, {0, 0}, {0, 255, 128, 255}, {0xFF01FF81}},
        {"multichannel of three", 7, 8, 3, 1, {}, {0, 128, 255}, {0xFF0181FF}},
        {"multichannel 16", 7, 16, 3, 1, {}, Bytes(6, 1), {0}},
        {"lab and alpha", 9, 8, 4, 1, {}, {0, 128, 128, 5}, {0x05000000}},
    };
    for (const auto& test : cases) {
        for (uint16_t compression = 0; compression < (test.depth % 31 == 1 ? 3 : 4); ++compression) {
            DocumentBuilder builder(test.mode, test.depth, test.channels, test.width, 1);
            if (test.mode == kColorIndexed) builder.ColorModeData(palette).Resource(1047, {0, 2});
            builder.Resource(1006, test.names).Resource(1053, Bytes(4)).Merged(test.planes, compression);
            const Opened opened = OpenBytes(builder.Build(), kReadMerged);
            ASSERT_TRUE(opened.document) << test.what << compression;
            EXPECT_EQ(PixelsOf(*opened.document), test.want) << test.what << ", compression " << compression;
        }
    }
}

TEST(MergedImage, IsReadInTheModesThatWantIt) {
    for (const bool hasLayer : {false, true}) {
        DocumentBuilder builder(kColorRgb, 8, 3, 1, 1);
        if (hasLayer) builder.Layer(LayerBuilder({0, 0, 1, 1}).Solid(~0u));
        for (uint32_t mode = 0; mode <= 6; ++mode) {
            const Opened opened = OpenBytes(builder.Build(), mode);
            ASSERT_TRUE(opened.document) << mode;
            const bool want = mode == 0 || mode == 3 || (mode == 2 && !hasLayer);
            EXPECT_EQ(static_cast<bool>(opened.document->mergedPixels), want) << mode << hasLayer;
        }
    }
}

TEST(MergedImage, WhatTheFileDoesNotFillIsZero) {
    const DocumentBuilder gray(kColorGrayscale, 8, 1, 2, 2);
    const auto open = [&](Bytes data) { return OpenBytes(DocumentBuilder(gray).MergedData(data).Build()); };
    constexpr uint32_t kBlack = 0xFF000000;
    using Pixels = std::vector<uint32_t>;
    EXPECT_EQ(PixelsOf(*open({}).document), Pixels(4, kBlack));
    EXPECT_EQ(PixelsOf(*open({0, 0, 8}).document), (Pixels{0xFF080808, kBlack, kBlack, kBlack}));
    EXPECT_EQ(PixelsOf(*open({0, 1, 0, 2, 0, 2, 0, 7, 0, 8}).document),
              (Pixels{0xFF070707, kBlack, 0xFF080808, kBlack}));
    EXPECT_EQ(open({0, 2, 0x78}).result, PsdReadResult::kInflateFailed);
}

// Large enough that planes wait for one another in several places, and that input, inflated rows and steps
// end in the middle of each other. All planes decoded first give the pixels that are wanted.
TEST(MergedImage, IsTheSameWhileItArrives) {
    constexpr uint32_t kWidth = 500, kHeight = 100;
    Bytes picture(4 * 5 * kWidth * kHeight);
    uint32_t state = 1;
    for (size_t i = 0; i < picture.size(); ++i) {
        state = state * 1664525 + 1013904223;
        picture[i] =
            state >> 16 & 64 || i % 9000 < 4000 ? picture[i - (i != 0)] : static_cast<uint8_t>(state >> 24);
    }
    const std::pair<uint32_t, uint32_t> cases[] = {{kColorGrayscale, 2}, {kColorIndexed, 1}, {kColorRgb, 2},
                                                   {kColorRgb, 3},       {kColorRgb, 4},     {kColorCmyk, 5},
                                                   {kColorLab, 5}};
    for (const auto& test : cases) {
        const uint32_t mode = test.first, channels = test.second;
        for (uint32_t run = 0; run < 3 * 4; ++run) {
            const uint32_t depth = 8u << run % 3;
            const uint16_t compression = static_cast<uint16_t>(run / 3);
            const size_t rowBytes = kWidth * depth / 8, planeBytes = rowBytes * kHeight;
            Bytes planes = picture;
            planes.resize(planeBytes * channels);
            if (depth == 32 && compression == 3) continue;  // the builder cannot take these differences
            const Bytes whole = EncodePlanes(compression, planes, rowBytes, depth);
            for (const size_t part : {8u, 7u, 1u}) {
                if (part != 8 && compression > 1) continue;  // refused
                const Bytes data(whole.begin(),
                                 whole.begin() + static_cast<std::ptrdiff_t>(whole.size() * part / 8));
                DocumentBuilder document(mode, depth, channels, kWidth, kHeight);
                const Opened opened = OpenBytes(document.MergedData(data).Build(), kReadMerged);
                ASSERT_TRUE(opened.document) << mode << ' ' << depth << ' ' << channels << ' ' << compression;

                std::ranges::fill(planes, uint8_t{0});
                ASSERT_EQ(DecodePlanes(compression, std::span(data).subspan(2),
                                       {kWidth, kHeight, depth, channels}, planes),
                          PsdReadResult::kOk);
                PlaneBlock block = {mode, depth, kWidth, kHeight};
                block.planeCount = channels;
                const auto plane = [&](uint32_t i) {
                    return i < channels ? planes.data() + i * planeBytes : nullptr;
                };
                for (uint32_t i = 0; i < ColorPlanesUsed(mode, channels); ++i) block.color[i] = plane(i);
                block.alpha = plane(channels - 1);
                std::vector<uint32_t> want(kWidth * kHeight);
                ConvertPlanes(block, 0, kHeight, want.data());
                EXPECT_TRUE(PixelsOf(*opened.document) == want)
                    << mode << ' ' << depth << ' ' << channels << ' ' << compression << ' ' << part;
            }
        }
    }
}

// Without a size to go by, the compressed bytes are read into a buffer that grows.
TEST(MergedImage, StreamsOfUnknownSizeGiveTheSamePixels) {
    Bytes noise(1100 * 1000 * 3);
    uint32_t state = 1;
    for (uint8_t& byte : noise) byte = static_cast<uint8_t>((state = state * 1664525 + 1013904223) >> 24);
    for (const uint16_t compression : {uint16_t{0}, uint16_t{1}, uint16_t{3}}) {
        const Bytes file = DocumentBuilder(kColorRgb, 8, 3, 1100, 1000).Merged(noise, compression).Build();
        MemoryStream stream(file);
        stream.hasSize = true;
        stream.size = uint64_t{1} << 63;
        Owned<PsdDocument> document;
        ASSERT_EQ(OpenDocument(document, &stream, kReadMerged), PsdReadResult::kOk);
        EXPECT_TRUE(PixelsOf(*document) == PixelsOf(*OpenBytes(file).document)) << compression;
    }
}

}  // namespace
}  // namespace tessary::test
