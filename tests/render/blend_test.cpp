#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "render/blend_rows.h"
#include "render/integer_hsl.h"
#include "tests/render/plain_rule.h"

namespace tessary::test {
namespace {

// Draws `layer` over `canvas` both ways and counts the pixels that differ.
int Differences(const PlainLayer& rule, const std::vector<uint32_t>& layer,
                const std::vector<uint8_t>& coverage, const std::vector<uint32_t>& canvas,
                const std::vector<uint8_t>& noise) {
    int wrong = 0;
    for (const VectorPath path : {VectorPath::kSse2, WidestVectorPath()}) {
        std::vector<uint32_t> drawn = canvas;
        SelectBlendRow(static_cast<PsdBlendMode>(rule.mode), rule.fast, rule.ranges,
                       path)({drawn.data(), layer.data(), coverage.data(), noise.data(), drawn.size()},
                             {static_cast<uint32_t>(rule.opacity), rule.keep});
        for (size_t i = 0; i < drawn.size(); ++i) {
            wrong += drawn[i] != PlainPixel(rule, layer[i], coverage[i], canvas[i], true, noise[i]);
        }
    }
    return wrong;
}

// Over a canvas alpha of 1 the layer weighs 256, and what is stored is the mode's own result.
TEST(BlendModes, EveryPairOfChannelsFollowsTheFormula) {
    for (uint32_t mode = 0; mode <= kBlendPassThrough; ++mode) {
        if (mode == kBlendDissolve) continue;
        int wrong = 0;
        for (uint32_t s = 0; s < 256; ++s) {
            std::vector<uint32_t> layer, canvas;
            for (uint32_t d = 0; d < 256; ++d) {
                layer.push_back(PackPixel(255, s, d, 255 - s));
                canvas.push_back(PackPixel(1, d, s, d));
            }
            const std::vector<uint8_t> full(256, 255);
            wrong += Differences({.mode = mode}, layer, full, canvas, full);
        }
        EXPECT_EQ(wrong, 0) << "mode " << mode;
    }
}

TEST(IntegerHsl, EveryColorAndEveryHueFollowThePlainRule) {
    int wrong = 0;
    for (uint32_t i = 0; i < 360 << 16; ++i) {
        const PlainColor hsl = {{int(i >> 16), int(i >> 8 & 255), int(i & 255)}}, rgb = PlainToRgb(hsl);
        const IntegerRgb color = HslToRgb({hsl.c[0], hsl.c[1], hsl.c[2]});
        wrong += color.red != rgb.c[0] || color.green != rgb.c[1] || color.blue != rgb.c[2];
        if (i >> 24 != 0) continue;
        const PlainColor pixel = ColorOf(i), want = PlainToHsl(pixel);
        const IntegerHsl got = RgbToHsl(pixel.c[0], pixel.c[1], pixel.c[2]);
        wrong += got.hue != want.c[0] || got.saturation != want.c[1] || got.lightness != want.c[2];
    }
    EXPECT_EQ(wrong, 0);
}

TEST(BlendModes, EveryWeightFollowsTheRule) {
    std::mt19937 random(5);
    const PlainLayer cases[] = {{kBlendNormal, true},
                                {kBlendNormal, true, true},
                                {kBlendNormal},
                                {kBlendDissolve},
                                {kBlendDissolve, false, true},
                                {kBlendColorDodge},
                                {kBlendLuminosity, false, true},
                                {kBlendPassThrough}};
    for (PlainLayer rule : cases) {
        for (const int variant : {0, 1, 2, 3, 4, 5, 6, 7}) {
            const int opacities[] = {255, 254, 100, 0};
            rule.opacity = opacities[variant / 2];
            rule.keep = rule.ranges && variant % 2 ? 0xFF00FF : 0;
            int wrong = 0;
            // Once with one canvas alpha in all the row, once with one coverage.
            for (uint32_t row = 0; row < 512; ++row) {
                std::vector<uint32_t> layer, canvas;
                std::vector<uint8_t> coverage, noise;
                for (uint32_t i = 0; i < 256; ++i) {
                    const uint32_t covered = row < 256 ? i : row - 256, under = row < 256 ? row : i;
                    // Where a mask lowered the coverage the pixel's own alpha is higher.
                    const uint32_t alpha = covered == 0 ? 9 : std::max<uint32_t>(covered, random() & 255);
                    layer.push_back(alpha << 24 | (random() & 0xFFFFFF));
                    canvas.push_back(under << 24 | (random() & 0xFFFFFF));
                    coverage.push_back(static_cast<uint8_t>(covered));
                    noise.push_back(static_cast<uint8_t>(random()));
                }
                wrong += Differences(rule, layer, coverage, canvas, noise);
            }
            EXPECT_EQ(wrong, 0) << rule.mode << rule.fast << rule.ranges << ' ' << variant;
        }
    }
}

}  // namespace
}  // namespace tessary::test
