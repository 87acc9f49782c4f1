#include "properties/apply_adjustment.h"

#include <gtest/gtest.h>

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

TEST(ApplyAdjustment, RecoloursTheAreaInsideTheLayerAndKeepsAlpha) {
    const Rect whole = {0, 0, 4, 3};  // what a layer without pixels of its own becomes
    for (const Rect& bounds :
         {Rect{-2, -1, 3, 2}, Rect{2, 1, 6, 9}, whole, Rect{4, 0, 9, 3}, Rect{7, 7, 7, 7}}) {
        Scene scene(kLayerInvert);
        PsdLayer& layer = scene.layer;
        layer.bounds = bounds;
        layer.width = static_cast<int32_t>(bounds.Width());
        layer.height = static_cast<int32_t>(bounds.Height());
        if (!bounds.IsEmpty())
            layer.image = AllocateZeroed<uint32_t>({uint64_t(layer.width), uint64_t(layer.height)});
        ASSERT_TRUE(scene.Apply({1, 0, 3, 3}));
        EXPECT_EQ(layer.bounds, bounds.IsEmpty() ? whole : bounds);
        EXPECT_TRUE(layer.width == layer.bounds.Width() && layer.height == layer.bounds.Height());
        EXPECT_FALSE(layer.rebuildTables);
        for (int i = 0; i < layer.width * layer.height; ++i) {
            const int x = layer.bounds.left + i % layer.width, y = layer.bounds.top + i / layer.width;
            const bool inside = x >= 1 && x < 3 && y >= 0 && y < 3;
            const uint32_t want = inside ? scene.document.canvas[size_t(y * 4 + x)] ^ 0xFFFFFF : 0;
            EXPECT_EQ(layer.image[size_t(i)], want) << bounds.left << ' ' << i;
        }
    }
}

TEST(ApplyAdjustment, KnowsWhatItCannotDraw) {
    const struct {
        uint32_t kind, code, mode;
        bool drawn;
    } cases[] = {
        {kLayerLevels, kPropertyLevels, kColorGrayscale, true},
        {kLayerLevels, kPropertyLevels, kColorCmyk, false},
        {kLayerLevels, kPropertyCurves, kColorRgb, false},
        {kLayerMixer, kPropertyMixer, kColorGrayscale, false},
        {kLayerPhotoFilter, kPropertyPhotoFilter, kColorRgb, false},
        {kLayerPatternFill, kPropertyPatternFill, kColorRgb, false},
        {kLayerInvert, kPropertyTypeTool, kColorLab, true},
    };
    for (const auto& [kind, code, mode, drawn] : cases) {
        Scene scene(kind, mode);
        AppendProperty<LevelsRecord>(scene.layer, code);
        EXPECT_EQ(scene.Apply(), drawn) << kind;
        ASSERT_EQ(scene.layer.image.count(), 12u) << kind;
        EXPECT_TRUE(scene.layer.rebuildTables != drawn && (scene.layer.image[5] != 0) == drawn) << kind;
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
    LayerBuilder masked = LayerBuilder({}).Channel(-1, {}).Block("post", ByteWriter().U16(1).U16(0));
    const Opened opened = OpenBytes(file.Layer(masked.Mask({1, 0, 2, 1}, 0, 0, Bytes{255})).Build());
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
