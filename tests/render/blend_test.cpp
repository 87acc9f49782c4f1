#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "render/blend_rows.h"
#include "tests/render/plain_rule.h"

namespace tessary::test {
namespace {

// Draws `layer` over `canvas` both ways and counts the pixels that differ.
int Differences(const PlainLayer& rule, const std::vector<uint32_t>& layer,
                const std::vector<uint8_t>& coverage, const std::vector<uint32_t>& canvas,
                const std::vector<uint8_t>& noise) {
    std::vector<uint32_t> drawn = canvas;
    const BlendRowFunction row = SelectBlendRow(static_cast<PsdBlendMode>(rule.mode), rule.fast, rule.ranges);
    row({drawn.data(), layer.data(), coverage.data(), noise.data(), drawn.size()},
        {static_cast<uint32_t>(rule.opacity), rule.keep});
    int wrong = 0;
    for (size_t i = 0; i < drawn.size(); ++i) {
        wrong += drawn[i] != PlainPixel(rule, layer[i], coverage[i], canvas[i], true, noise[i]);
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
    // White by white, at full weight and over an opaque pixel.
    for (const auto& [canvas, want] :
         {std::pair{0x01FFFFFFu, 0xFFFEFEFEu}, std::pair{0xFF808080u, 0xFF7F7F7Fu}}) {
        uint32_t pixel = canvas;
        const uint32_t white = 0xFFFFFFFF;
        const uint8_t full = 255;
        SelectBlendRow(kBlendMultiply, false, false)({&pixel, &white, &full, nullptr, 1}, {});
        EXPECT_EQ(pixel | 0xFF000000, want);
    }
}

TEST(BlendModes, EveryWeightFollowsTheRule) {
    std::mt19937 generator(5);
    const auto random = [&] { return static_cast<uint32_t>(generator()); };
    struct Case {
        uint32_t mode;
        bool fast, ranges;
    };
    const Case cases[] = {
        {kBlendNormal, true, false},     {kBlendNormal, true, true},        {kBlendNormal, false, false},
        {kBlendDissolve, false, false},  {kBlendDissolve, false, true},     {kBlendColorDodge, false, false},
        {kBlendLuminosity, false, true}, {kBlendPassThrough, false, false},
    };
    for (const Case& test : cases) {
        for (const int opacity : {255, 254, 100, 0}) {
            for (const uint32_t keep : {0u, 0xFF00FFu}) {
                if (keep != 0 && !test.ranges) continue;
                int wrong = 0;
                for (uint32_t fixed = 0; fixed < 256; ++fixed) {
                    // Once with one canvas alpha in all the row, once with one coverage.
                    for (const bool fixedCanvas : {true, false}) {
                        std::vector<uint32_t> layer, canvas;
                        std::vector<uint8_t> coverage, noise;
                        for (uint32_t i = 0; i < 256; ++i) {
                            const uint32_t covered = fixedCanvas ? i : fixed;
                            // Where a mask lowered the coverage the pixel's own alpha is higher.
                            const uint32_t alpha = covered == 0 ? 9 : std::max(covered, random() & 255);
                            layer.push_back(alpha << 24 | (random() & 0xFFFFFF));
                            canvas.push_back((fixedCanvas ? fixed : i) << 24 | (random() & 0xFFFFFF));
                            coverage.push_back(static_cast<uint8_t>(covered));
                            noise.push_back(static_cast<uint8_t>(random()));
                        }
                        wrong += Differences({test.mode, test.fast, test.ranges, opacity, keep}, layer,
                                             coverage, canvas, noise);
                    }
                }
                EXPECT_EQ(wrong, 0) << "mode " << test.mode << " fast " << test.fast << " ranges "
                                    << test.ranges << " opacity " << opacity << " keep " << keep;
            }
        }
    }
}

}  // namespace
}  // namespace tessary::test
