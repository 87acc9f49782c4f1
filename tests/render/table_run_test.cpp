#include <gtest/gtest.h>

#include <random>

#include "render/render.h"
#include "tools/document_builder.h"
#include "tools/sample_blocks.h"

namespace tessary::test {
namespace {

// One row more than is recoloured at a time, and longer ones than are drawn at a time.
constexpr uint32_t kWidth = 1100, kHeight = 60, kCount = kWidth * kHeight;
constexpr Rect kWhole = {0, 0, kWidth, kHeight};

// Every alpha with every value of every channel, under a random pile of adjustments. Under a mask that hides
// nothing an adjustment is drawn by itself, as any layer is.
Opened Pile(uint32_t seed, bool isMasked) {
    std::mt19937 random(seed);
    const auto below = [&](uint32_t limit) { return static_cast<int>(random() % limit); };
    const bool isLong = seed >= 36;  // nothing comes between the adjustments
    const auto differs = [&] { return !isLong && below(8) == 0; };
    auto samples = tools::AdjustmentSamples();
    samples.push_back({"photo filter", "phfl", Bytes(20)});
    std::vector<uint32_t> pixels;
    for (uint32_t i = 0; i < kCount; ++i)
        pixels.push_back(PackPixel(i & 255, i >> 8 & 255, ~(i >> 8) & 255, (i >> 8) * 77 & 255));
    DocumentBuilder document(seed % 4 == 3 ? kColorGrayscale : kColorRgb, 8, 3, kWidth, kHeight);
    const LayerBuilder picture = LayerBuilder(kWhole).Pixels(pixels);
    document.Layer(picture);
    for (int left = below(20) + 1; left > 0; --left) {
        LayerBuilder layer(Rect{});
        const auto& sample = samples[static_cast<size_t>(below(static_cast<uint32_t>(samples.size())))];
        if (isLong || below(2)) {
            layer.Block("curv",
                        tools::Curve({{0, below(256)}, {below(254) + 1, below(256)}, {255, below(256)}}));
        } else {
            layer.Block(sample.key, sample.data);
        }
        if (differs()) layer.Opacity(200);
        if (differs()) layer.Mode("mul ");
        if (differs()) layer.Block("brst", ByteWriter().U32(1));
        const bool isLowered = differs(), isHidden = differs(), isBare = isHidden && !isMasked;
        const Bytes mask(kCount, isHidden ? 0 : isLowered ? 254 : 255);
        layer.ChannelData(0, {});
        if (isMasked || isLowered || isHidden) layer.Mask(kWhole, isHidden ? 0 : 255, 0);
        if ((isMasked || isLowered) && !isBare) layer.Channel(-2, mask);
        document.Layer(!isLong && below(12) == 0 ? picture : layer);
    }
    return OpenBytes(document.Build());
}

TEST(TableRun, ChangesWhatItsAdjustmentsChangeOneByOne) {
    for (uint32_t seed = 0; seed < 40; ++seed) {
        const Opened together = Pile(seed, false), apart = Pile(seed, true);
        for (const Opened* opened : {&together, &apart}) {
            ASSERT_EQ(Render(opened->document.get(), 0, 0, kWidth, kHeight, 1), PsdReadResult::kOk);
            ASSERT_EQ(Render(opened->document.get(), 7, 9, 11, 120, 1), PsdReadResult::kOk);
        }
        const auto got = together.document->canvas.span(), want = apart.document->canvas.span();
        EXPECT_TRUE(std::ranges::equal(got, want)) << seed;
    }
}

TEST(TableRun, ReachesWhateverHasBeenPainted) {
    constexpr int32_t kSide = 600;
    for (const Rect& bounds : {Rect{0, 0, kSide, kSide}, {300, 20, 490, 190}, {255, 63, 257, 65}}) {
        for (const bool isAlone : {false, true}) {
            LayerBuilder invert = LayerBuilder(Rect{}).ChannelData(0, {}).Block("nvrt", {});
            if (isAlone) invert.Mask({0, 0, 1, 1}, 255, 0).Channel(-2, {255});
            const auto picture = LayerBuilder(bounds).Solid(0xFF102030);
            const Opened opened = OpenBytes(
                DocumentBuilder(kColorRgb, 8, 3, kSide, kSide).Layer(picture).Layer(invert).Build());
            ASSERT_EQ(Render(opened.document.get(), 0, 0, kSide, kSide), PsdReadResult::kOk);
            int wrong = 0;
            for (int32_t i = 0; i < kSide * kSide; ++i) {
                const int32_t x = i % kSide, y = i / kSide;
                const bool isInside =
                    x >= bounds.left && x < bounds.right && y >= bounds.top && y < bounds.bottom;
                wrong +=
                    opened.document->canvas[static_cast<size_t>(i)] != (isInside ? 0xFFEFDFCF : kBackground);
            }
            EXPECT_EQ(wrong, 0) << bounds.left << isAlone;
        }
    }
}

}  // namespace
}  // namespace tessary::test
