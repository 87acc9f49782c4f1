#include "document/merged_image.h"

#include <gtest/gtest.h>

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
