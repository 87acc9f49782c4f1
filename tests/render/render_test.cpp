#include "render/render.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <numeric>
#include <vector>

#include "document/platform.h"
#include "properties/draw_effects.h"
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
    const Rect outside[] = {{4, 0, 1, 1},       {0, 3, 1, 1},
                            {0, 0, 0, 1},       {0, 0, 1, -1},
                            {-5, 0, 5, 1},      {0, -9, 1, 9},
                            {kLowest, 0, 9, 9}, {kHighest, 0, kHighest, 9},
                            {0, 0, kLowest, 9}, {0, kHighest, 9, kHighest}};
    for (const Rect& r : outside) {  // x, y, width, height
        EXPECT_EQ(Render(&document, r.left, r.top, r.right, r.bottom), PsdReadResult::kEmptyArea)
            << r.left << ", " << r.top;
    }
    EXPECT_FALSE(document.canvas);
#if defined(TESSARY_FAULT_INJECTION)
    PsdDocument other;
    other.width = 4;
    other.height = 3;
    for (int i = 0; i < 2; ++i) {  // the noise map, then the canvas
        FailAllocationNumber(1);
        EXPECT_EQ(Render(&other, 0, 0, 4, 3), PsdReadResult::kOutOfMemory);
    }
    FailAllocationNumber(0);
    EXPECT_EQ(Render(&other, 0, 0, 4, 3), PsdReadResult::kOk);
#endif
}

TEST(Render, DrawsInsideTheClampedRectangleOnly) {
    const struct {
        Rect asked;  // x, y, width, height
        Rect drawn;
    } cases[] = {{{0, 0, 4, 3}, kWhole},
                 {{1, 1, 2, 1}, {1, 1, 3, 2}},
                 {{-2, -1, 3, 3}, {0, 0, 1, 2}},
                 {{3, 2, kHighest, kHighest}, {3, 2, 4, 3}}};
    for (const auto& test : cases) {
        const auto opened = OpenBytes(SmallDocument().Layer(LayerBuilder(kWhole).Solid(0xFF102030)).Build());
        ASSERT_TRUE(opened.document);
        PsdDocument& document = *opened.document;
        // A second call draws over the first in its own rectangle and leaves the rest.
        for (const uint32_t color : {0xFF102030u, 0xFF405060u}) {
            std::fill_n(document.layers[0].image.get(), 12, color);
            ASSERT_EQ(Render(&document, test.asked.left, test.asked.top, test.asked.right, test.asked.bottom),
                      PsdReadResult::kOk);
            for (int32_t i = 0; i < 12; ++i) {
                const bool inside = !Intersect({i % 4, i / 4, i % 4 + 1, i / 4 + 1}, test.drawn).IsEmpty();
                const uint32_t outside = color == 0xFF102030 ? kBackground : 7;
                EXPECT_EQ(document.canvas[static_cast<size_t>(i)], inside ? color : outside) << i;
            }
            std::fill_n(document.canvas.get(), 12, 7);
        }
    }
}

TEST(Render, NoiseIsSharedAndFixedByItsSeed) {
    PsdDocument a, b, c;
    for (PsdDocument* document : {&a, &b, &c}) {
        document->width = 101;
        document->height = 97;
        ASSERT_EQ(Render(document, 0, 0, 1, 1, document == &c ? 2 : 1), PsdReadResult::kOk);
    }
    ASSERT_EQ(Render(&a, 0, 0, 101, 97, 9), PsdReadResult::kOk);  // the first pattern stays
    const auto mapA = a.noiseMap.span(), mapB = b.noiseMap.span(), mapC = c.noiseMap.span();
    EXPECT_TRUE(std::equal(mapA.begin(), mapA.end(), mapB.begin(), mapB.end()));
    EXPECT_FALSE(std::equal(mapA.begin(), mapA.end(), mapC.begin(), mapC.end()));
    const double sum = std::accumulate(mapA.begin(), mapA.end(), 0.0);
    EXPECT_NEAR(sum / (101 * 97), 127.5, 4);  // five standard deviations are 3.7
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
    const struct {
        const char* what;
        std::vector<LayerBuilder> layers;
        uint32_t first;  // pixel (0, 0)
        uint32_t last;   // pixel (3, 2)
    } cases[] = {
        {"normal copies", {red()}, kRed, kRed},
        {"hidden", {red().Hidden()}, kGrey, kGrey},
        {"fill 0", {red().Block("iOpa", {0, 0, 0, 0})}, kGrey, kGrey},
        {"opacity 128", {red().Opacity(128)}, 0xFFBF4040, 0xFFBF4040},
        // 255 by 128 is 127 and weighs 254; 0 stays 0 but for what 2 / 256 leave of 128.
        {"multiply", {red().Mode("mul ")}, 0xFF7F0101, 0xFF7F0101},
        {"pass-through group", {GroupEnd(), red(), GroupHead()}, kRed, kRed},
        {"no divider key", {GroupEnd(), red(), GroupHead("norm", "")}, kRed, kRed},
        {"normal group", {GroupEnd(), red(), GroupHead("norm", "norm")}, 0xFFFE0101, 0xFFFE0101},
        {"multiplying group", {GroupEnd(), red(), GroupHead("mul ", "")}, 0xFF7F0101, 0xFF7F0101},
        {"hidden group", {GroupEnd(), red(), GroupHead().Hidden()}, kGrey, kGrey},
        {"group in a hidden group",
         {GroupEnd(), GroupEnd(), red(), GroupHead(), GroupHead().Hidden()},
         kRed,
         kRed},
        {"mask 128, black around", {masked(0, 0, 128)}, 0xFFBF4040, kGrey},
        {"mask 0, white around", {masked(255, 0, 0)}, kGrey, kRed},
        {"disabled mask", {masked(0, 2, 0)}, kRed, kRed},
        {"excluded red", {red().Block("brst", {0, 0, 0, 0})}, 0xFF800000, 0xFF800000},
        {"grey of the canvas outside", {ranged(0, 255, 129)}, kGrey, kGrey},
        {"grey of both just inside", {ranged(85, 85, 128)}, kRed, kRed},
        {"grey of the layer outside", {ranged(0, 84, 0)}, kGrey, kGrey},
    };
    for (const auto& test : cases) {
        DocumentBuilder builder = SmallDocument();
        builder.Layer(LayerBuilder(kWhole).Solid(kGrey));
        for (const LayerBuilder& layer : test.layers) builder.Layer(layer);
        const Opened opened = OpenBytes(builder.Build());
        ASSERT_EQ(opened.result, PsdReadResult::kOk) << test.what;
        ASSERT_EQ(Render(opened.document.get(), 0, 0, 4, 3, 1), PsdReadResult::kOk) << test.what;
        EXPECT_EQ(opened.document->canvas[0], test.first) << test.what;
        EXPECT_EQ(opened.document->canvas[11], test.last) << test.what;
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
