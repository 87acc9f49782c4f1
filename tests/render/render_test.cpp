#include "render/render.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <numeric>
#include <vector>

#include "document/platform.h"
#include "properties/draw_effects.h"
#include "render/image_ops.h"
#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

constexpr int32_t kLowest = std::numeric_limits<int32_t>::min(),
                  kHighest = std::numeric_limits<int32_t>::max();
constexpr Rect kWhole = {0, 0, 4, 3};

DocumentBuilder SmallDocument() { return DocumentBuilder(kColorRgb, 8, 3, 4, 3).HasRealMergedData(false); }

TEST(Render, AnswersForWhatItCannotDraw) {
    EXPECT_EQ(Render(nullptr, 0, 0, 1, 1), PsdReadResult::kNoDocument);
    PsdDocument document;
    document.width = 4;
    document.height = 3;
    const Rect outside[] = {
        {4, 0, 1, 1}, {0, 3, 1, 1}, {0, 0, 1, -1}, {-5, 0, 5, 1}, {kHighest, 0, kHighest, 9}};
    for (const auto& [x, y, width, height] : outside)
        EXPECT_EQ(Render(&document, x, y, width, height), PsdReadResult::kEmptyArea) << x << ", " << y;
    EXPECT_FALSE(document.canvas);
#if defined(TESSARY_FAULT_INJECTION)
    for (int i = 0; i < 3; ++i) {  // the noise map, then the canvas
        FailAllocationNumber(i < 2);
        EXPECT_EQ(Render(&document, 0, 0, 4, 3), i < 2 ? PsdReadResult::kOutOfMemory : PsdReadResult::kOk);
    }
#endif
}

TEST(Render, DrawsInsideTheClampedRectangleOnly) {
    const std::pair<Rect, Rect> cases[] = {{{0, 0, 4, 3}, kWhole},  // x, y, width, height; what is drawn
                                           {{1, 1, 2, 1}, {1, 1, 3, 2}},
                                           {{-2, -1, 3, 3}, {0, 0, 1, 2}},
                                           {{3, 2, kHighest, kHighest}, {3, 2, 4, 3}}};
    const auto opened = OpenBytes(SmallDocument().Layer(LayerBuilder(kWhole).Solid(0xFF102030)).Build());
    PsdDocument& document = *opened.document;
    for (const auto& [asked, drawn] : cases) {
        // A second call draws over the first in its own rectangle and leaves the rest.
        if (document.canvas) std::fill_n(document.canvas.get(), 12, 7);
        ASSERT_EQ(Render(&document, asked.left, asked.top, asked.right, asked.bottom), PsdReadResult::kOk);
        for (int32_t i = 0; i < 12; ++i) {
            const bool inside = !Intersect({i % 4, i / 4, i % 4 + 1, i / 4 + 1}, drawn).IsEmpty();
            EXPECT_EQ(document.canvas[static_cast<size_t>(i)], inside ? 0xFF102030 : 7) << i;
        }
    }
}

TEST(Render, NoiseIsSharedAndFixedByItsSeed) {
    PsdDocument a, b, c;
    for (PsdDocument* document : {&a, &b, &c}) {
        document->width = document->height = 99;
        ASSERT_EQ(Render(document, 0, 0, 1, 1, document == &c ? 2 : 1), PsdReadResult::kOk);
    }
    ASSERT_EQ(Render(&a, 0, 0, 9, 9, 9), PsdReadResult::kOk);  // the first pattern stays
    const auto map = a.noiseMap.span();
    EXPECT_TRUE(std::ranges::equal(map, b.noiseMap.span()) && !std::ranges::equal(map, c.noiseMap.span()));
    // Five standard deviations are 3.7.
    EXPECT_NEAR(std::accumulate(map.begin(), map.end(), 0.0) / (99 * 99), 127.5, 4);
}

// Records over a background of grey, read from a file.
TEST(Render, DrawsDocumentsAsTheirRecordsSay) {
    const auto red = [] { return LayerBuilder(kWhole).Solid(0xFFFF0000); };
    const auto masked = [&](uint8_t color, uint8_t flags, uint8_t byte) {
        return red().Mask({0, 0, 2, 1}, color, flags, Bytes{byte, byte});
    };
    const auto ranged = [&](uint8_t layerBlack, uint8_t layerWhite, uint8_t canvasBlack) {
        return red().Ranges({layerBlack, 9, layerWhite, 255, canvasBlack, 200, 255, 255,  //
                             0, 0, 255, 255, 0, 0, 255, 255});
    };
    constexpr uint32_t kGrey = 0xFF808080, kRed = 0xFFFF0000;
    const std::tuple<std::vector<LayerBuilder>, uint32_t, uint32_t> cases[] = {
        // pixels (0, 0) and (3, 2)
        {{red().Opacity(128)}, 0xFFBF4040, 0xFFBF4040},
        // 255 by 128 is 127 and weighs 254; 0 stays 0 but for what 2 / 256 leave of 128.
        {{red().Mode("mul ")}, 0xFF7F0101, 0xFF7F0101},
        {{GroupEnd(), red(), GroupHead("norm", "norm")}, 0xFFFE0101, 0xFFFE0101},
        {{GroupEnd(), red(), GroupHead("mul ", "")}, 0xFF7F0101, 0xFF7F0101},
        {{GroupEnd(), red(), GroupHead().Hidden()}, kGrey, kGrey},
        {{GroupEnd(), GroupEnd(), red(), GroupHead(), GroupHead().Hidden()}, kRed, kRed},
        {{masked(0, 0, 128)}, 0xFFBF4040, kGrey},
        {{masked(0, 2, 0)}, kRed, kRed},
        {{red().Block("brst", {0, 0, 0, 0})}, 0xFF800000, 0xFF800000},
        {{ranged(0, 255, 129)}, kGrey, kGrey},
        {{ranged(85, 85, 128)}, kRed, kRed},  // the greys of both lie just inside
    };
    for (const auto& test : cases) {
        const auto& [layers, first, last] = test;
        DocumentBuilder builder = SmallDocument();
        builder.Layer(LayerBuilder(kWhole).Solid(kGrey));
        for (const LayerBuilder& layer : layers) builder.Layer(layer);
        const Opened opened = OpenBytes(builder.Build());
        ASSERT_EQ(Render(opened.document.get(), 0, 0, 4, 3, 1), PsdReadResult::kOk);
        EXPECT_TRUE(opened.document->canvas[0] == first && opened.document->canvas[11] == last)
            << "row " << &test - cases;
    }
}

TEST(Render, FreedEffectsAreDrawnAgain) {
    ByteWriter effects;
    effects.U16(0).U16(2).Text("8BIMcmnS").U32(7).U32(0).U8(1).Zeros(2);
    effects.Text("8BIMsofi").U32(24).U32(2).Text("8BIMnorm").U16(0).U16(0x7777).Zeros(6).U8(255).U8(1);
    const Opened opened =
        OpenBytes(SmallDocument().Layer(LayerBuilder(kWhole).Solid(~0u).Block("lrFX", effects)).Build());
    ASSERT_EQ(opened.result, PsdReadResult::kOk);
    PsdDocument& document = *opened.document;
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(Render(&document, 0, 0, 4, 3), PsdReadResult::kOk);
        EXPECT_EQ(document.canvas[5], 0xFF770000u);
        EXPECT_EQ(KeepEffectBuffers(document.layers[0], 48), 48u);
        EXPECT_EQ(KeepEffectBuffers(document.layers[0], 47), 0u);
        EXPECT_EQ(KeepEffectBuffers(document.layers[0], 48), 0u);
    }
}

}  // namespace
}  // namespace tessary::test
