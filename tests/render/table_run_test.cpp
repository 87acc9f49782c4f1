#include <gtest/gtest.h>

#include <random>

#include "document/platform.h"
#include "properties/adjustment_records.h"
#include "render/render.h"

namespace tessary::test {
namespace {

// More pixels than are recoloured at a time, in longer rows than are drawn at a time.
constexpr uint32_t kWidth = 600, kHeight = 150, kCount = kWidth * kHeight;
constexpr Rect kWhole = {0, 0, kWidth, kHeight};

// Every alpha with every value of every channel, under a random pile of adjustments.
class Pile {
public:
    // Under a mask that hides nothing an adjustment is drawn by itself, as any layer is.
    Pile(uint32_t seed, bool isMasked) : m_random(seed), m_isMasked(isMasked), m_isLong(seed >= 36) {
        document.width = kWidth;
        document.height = kHeight;
        document.colorMode = seed % 4 == 3 ? kColorGrayscale : kColorRgb;
        document.layers = AllocateZeroed<PsdLayer>({2 + Below(20)});
        for (PsdLayer& layer : document.layers.span()) {
            if (&layer == document.layers.get() || (!m_isLong && Below(12) == 0))
                FillPicture(layer);
            else
                FillAdjustment(layer, m_isLong ? 1 + Below(4) : Below(10));
        }
    }
    PsdDocument document;

private:
    uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(m_random()) % limit; }

    bool Differs() { return !m_isLong && Below(8) == 0; }

    void FillPicture(PsdLayer& layer) {
        layer.bounds = kWhole;
        layer.width = kWidth;
        layer.height = kHeight;
        layer.image = AllocateZeroed<uint32_t>({kCount});
        for (uint32_t i = 0; i < kCount; ++i)
            layer.image[i] = PackPixel(i, i >> 8 & 255, ~(i >> 8) & 255, (i >> 8) * 77 & 255);
    }

    template <class Record>
    Record& Add(PsdLayer& layer, uint32_t kind, uint32_t code) {
        layer.layerKind = kind;
        return *AppendProperty<Record>(layer, code);
    }
    void FillTable(ByteTable& table) {
        for (uint8_t& byte : table) byte = static_cast<uint8_t>(m_random());
    }

    void FillAdjustment(PsdLayer& layer, uint32_t which) {
        switch (which) {
        case 0: layer.layerKind = kLayerPhotoFilter; break;
        case 1: layer.layerKind = kLayerInvert; break;
        case 2:
            Add<ThresholdRecord>(layer, kLayerThreshold, kPropertyThreshold).level = uint8_t(Below(256));
            break;
        case 3: FillTable(Add<BrightnessRecord>(layer, kLayerBrightness, kPropertyBrightness).table); break;
        case 4: {
            auto& map = Add<GradientMapRecord>(layer, kLayerGradientMap, kPropertyGradientMap);
            map.reverse = Below(2) != 0;
            for (uint32_t& color : map.table) color = static_cast<uint32_t>(m_random()) | 0xFF000000;
            break;
        }
        case 5: Add<HueRecord>(layer, kLayerHue, kPropertyHue).master = {20, 10, -10}; break;
        default: {
            ChannelTables& tables = Add<LevelsRecord>(layer, kLayerLevels, kPropertyLevels).tables;
            FillTable(tables.red), FillTable(tables.green), FillTable(tables.blue);
        }
        }
        if (Differs()) layer.opacity = 200;
        if (Differs()) layer.blendMode = kBlendMultiply;
        if (Differs()) layer.advancedBlending = true;
        layer.mask.disabled = true;
        const bool isLowered = Differs(), isHidden = Differs();
        if (!m_isMasked && !isLowered && !isHidden) return;
        layer.mask.disabled = false;
        layer.mask.bounds = kWhole;
        layer.mask.defaultColor = isHidden ? 0 : 255;
        if (isHidden && !m_isMasked) return;  // hidden without a byte, and with them
        layer.mask.data = AllocateZeroed<uint8_t>({kCount});
        std::fill_n(layer.mask.data.get(), kCount,
                    static_cast<uint8_t>(isHidden    ? 0
                                         : isLowered ? 254
                                                     : 255));
    }

    std::mt19937 m_random;
    bool m_isMasked, m_isLong;  // long: nothing comes between the adjustments
};

TEST(TableRun, ChangesWhatItsAdjustmentsChangeOneByOne) {
    for (uint32_t seed = 0; seed < 40; ++seed) {
        PsdDocument together = std::move(Pile(seed, false).document),
                    apart = std::move(Pile(seed, true).document);
        for (PsdDocument* document : {&together, &apart}) {
            ASSERT_EQ(Render(document, 0, 0, kWidth, kHeight, 1), PsdReadResult::kOk);
            ASSERT_EQ(Render(document, 7, 9, 11, 120, 1), PsdReadResult::kOk);
        }
        int wrong = 0;
        for (uint32_t i = 0; i < kCount; ++i) wrong += together.canvas[i] != apart.canvas[i];
        EXPECT_EQ(wrong, 0) << seed;
    }
}

}  // namespace
}  // namespace tessary::test
