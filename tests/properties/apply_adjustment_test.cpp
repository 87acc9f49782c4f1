#include "properties/apply_adjustment.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "properties/adjustment_records.h"
#include "render/render.h"
#include "tests/support/document_builder.h"

namespace tessary::test {
namespace {

// A 4 x 3 document whose canvas pixels differ in alpha and colour, and one layer.
struct Scene {
    explicit Scene(uint32_t layerKind, uint32_t mode = kColorRgb) {
        document.width = 4;
        document.height = 3;
        document.colorMode = mode;
        document.canvas = AllocateZeroed<uint32_t>({4, 3});
        for (uint32_t i = 0; i < 12; ++i) document.canvas[i] = i * 20 << 24 | (0x102030 + i);
        layer.layerKind = layerKind;
        layer.rebuildTables = true;
    }
    bool Apply(const Rect& area = {0, 0, 4, 3}) { return ApplyAdjustment(document, layer, area); }

    PsdDocument document;
    PsdLayer layer;
};

TEST(ApplyAdjustment, RecoloursTheAreaAndKeepsAlpha) {
    Scene scene(kLayerInvert);
    scene.layer.bounds = {7, 7, 7, 7};
    ASSERT_TRUE(scene.Apply({1, 1, 3, 3}));
    EXPECT_EQ(scene.layer.bounds, (Rect{0, 0, 4, 3}));
    EXPECT_EQ(scene.layer.width, 4);
    EXPECT_EQ(scene.layer.height, 3);
    EXPECT_FALSE(scene.layer.rebuildTables);
    for (uint32_t i = 0; i < 12; ++i) {
        const bool inside = i == 5 || i == 6 || i == 9 || i == 10;
        EXPECT_EQ(scene.layer.image[i], inside ? scene.document.canvas[i] ^ 0xFFFFFF : 0) << i;
    }
}

TEST(ApplyAdjustment, WritesOnlyInsideALayerWithPixelsOfItsOwn) {
    const struct {
        Rect bounds;
        uint32_t firstPixel, canvasPixel, written;  // first written word, its canvas word, how many in all
    } cases[] = {
        {{-2, -1, 3, 2}, 7, 0, 6},
        {{2, 1, 6, 9}, 0, 6, 4},
        {{0, 0, 4, 3}, 0, 0, 12},
        {{4, 0, 9, 3}, 0, 0, 0},
    };
    for (const auto& test : cases) {
        Scene scene(kLayerInvert);
        PsdLayer& layer = scene.layer;
        layer.bounds = test.bounds;
        layer.width = static_cast<int32_t>(test.bounds.Width());
        layer.height = static_cast<int32_t>(test.bounds.Height());
        layer.image = AllocateZeroed<uint32_t>({uint64_t(layer.width), uint64_t(layer.height)});
        for (uint32_t& pixel : layer.image.span()) pixel = 1;
        ASSERT_TRUE(scene.Apply());
        EXPECT_EQ(layer.bounds, test.bounds);
        const auto pixels = layer.image.span();
        const auto untouched = std::count(pixels.begin(), pixels.end(), 1u);
        EXPECT_EQ(static_cast<long>(pixels.size()) - untouched, test.written);
        const uint32_t inverse = scene.document.canvas[test.canvasPixel] ^ 0xFFFFFF;
        EXPECT_EQ(pixels[test.firstPixel], test.written ? inverse : 1);
    }
}

TEST(ApplyAdjustment, KnowsWhatItCannotDraw) {
    const struct {
        const char* what;
        uint32_t kind;
        uint32_t code;
        uint32_t mode;
        bool drawn;
    } cases[] = {
        {"levels in gray", kLayerLevels, kPropertyLevels, kColorGrayscale, true},
        {"levels in CMYK", kLayerLevels, kPropertyLevels, kColorCmyk, false},
        {"levels without their record", kLayerLevels, kPropertyCurves, kColorRgb, false},
        {"mixer in gray", kLayerMixer, kPropertyMixer, kColorGrayscale, false},
        {"photo filter", kLayerPhotoFilter, kPropertyPhotoFilter, kColorRgb, false},
        {"pattern fill", kLayerPatternFill, kPropertyPatternFill, kColorRgb, false},
        {"invert in Lab, without an entry", kLayerInvert, kPropertyTypeTool, kColorLab, true},
    };
    for (const auto& test : cases) {
        Scene scene(test.kind, test.mode);
        AppendProperty<LevelsRecord>(scene.layer, test.code);
        EXPECT_EQ(scene.Apply(), test.drawn) << test.what;
        ASSERT_EQ(scene.layer.image.count(), 12u) << test.what;
        EXPECT_EQ(scene.layer.rebuildTables, !test.drawn) << test.what;
        EXPECT_EQ(scene.layer.image[5] != 0, test.drawn) << test.what;
    }
}

TEST(ApplyAdjustment, BuildsTablesOnceFromTheFirstRecord) {
    Scene scene(kLayerPosterize);
    auto* first = AppendProperty<PosterizeRecord>(scene.layer, kPropertyPosterize);
    AppendProperty<PosterizeRecord>(scene.layer, kPropertyPosterize)->levels = 1;
    for (const uint16_t later : {uint16_t{255}, uint16_t{0}}) {
        first->levels = later;
        ASSERT_TRUE(scene.Apply());
        EXPECT_EQ(scene.layer.image[3], scene.document.canvas[3]);
    }

    Scene balanced(kLayerBalance);
    auto* balance = AppendProperty<BalanceRecord>(balanced.layer, kPropertyBalance);
    balance->cyanRed.highlights = 100;      // + 100 * (1.075 - 1 / (16 / 16 + 1)) = 57
    balance->magentaGreen.highlights = 50;  // + 50 * (1.075 - 1 / 3) = 37
    ASSERT_TRUE(balanced.Apply());
    EXPECT_EQ(balanced.layer.image[0], balanced.document.canvas[0] + 0x392500);

    Scene neverBuilt(kLayerCurves);
    AppendProperty<CurvesRecord>(neverBuilt.layer, kPropertyCurves);
    neverBuilt.layer.rebuildTables = false;
    ASSERT_TRUE(neverBuilt.Apply());
    EXPECT_EQ(neverBuilt.layer.image[11], neverBuilt.document.canvas[11] & 0xFF000000);
}

TEST(ApplyAdjustment, ReachesTheCanvasFromAFile) {
    DocumentBuilder file(kColorRgb, 8, 3, 2, 1);
    file.Layer(LayerBuilder({0, 0, 2, 1}).Solid(0xFF204060));
    file.Layer(LayerBuilder({}).Channel(-1, {}).Block("thrs", ByteWriter().U16(65).U16(0)).Block("nvrt", {}));
    file.Layer(LayerBuilder({})
                   .Channel(-1, {})
                   .Block("post", ByteWriter().U16(1).U16(0))
                   .Mask({1, 0, 2, 1}, 0, 0, Bytes{255}));
    Opened opened = OpenBytes(file.Build());
    ASSERT_EQ(opened.result, PsdReadResult::kOk) << static_cast<int>(opened.result);
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(Render(opened.document.get(), 0, 0, 2, 1), PsdReadResult::kOk);
        EXPECT_EQ(opened.document->canvas[0], 0xFFDFBF9Fu);  // the later block makes the kind
        EXPECT_EQ(opened.document->canvas[1], 0xFFFFFFFFu);
    }
}

#if defined(TESSARY_FAULT_INJECTION)
TEST(ApplyAdjustment, WithoutMemoryTheLayerStaysWithoutPixels) {
    Scene scene(kLayerInvert);
    FailAllocationNumber(1);
    EXPECT_FALSE(scene.Apply());
    FailAllocationNumber(0);
    EXPECT_FALSE(scene.layer.image);
    EXPECT_EQ(scene.layer.width, 0);
    EXPECT_TRUE(scene.layer.rebuildTables);
}
#endif

}  // namespace
}  // namespace tessary::test
