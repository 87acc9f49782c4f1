#include "properties/effect_steps.h"

#include <gtest/gtest.h>

#include <numeric>

#include "document/platform.h"
#include "properties/effect_buffers.h"
#include "render/image_ops.h"

namespace tessary::test {
namespace {

TEST(Contour, IsSoftenedToTheNearestAndBentOnlyBetweenCorners) {
    const struct {
        const char* what;
        std::vector<ContourPoint> points;
        bool antiAlias;
        std::vector<std::pair<size_t, int>> want;  // entries of the table
    } cases[] = {
        {"nothing", {}, true, {{0, 0}, {1, 1}, {128, 128}, {255, 255}}},
        {"step",
         {{0, 0, false}, {100, 0, false}, {101, 255, false}, {255, 255, false}},
         false,
         {{99, 0}, {100, 0}, {101, 255}, {102, 255}}},
        // A quarter of 255 is 63.75, three quarters are 191.25.
        {"softened step",
         {{0, 0, false}, {100, 0, false}, {101, 255, false}, {255, 255, false}},
         true,
         {{99, 0}, {100, 64}, {101, 191}, {102, 255}}},
        {"softened ends",
         {{0, 255, false}, {1, 0, false}, {255, 0, false}},
         true,
         {{0, 255}, {1, 64}, {2, 0}}},
        // Of what falls on column 75 the last counts: 10 + 190 * 25.49 / 50.
        {"flat beside the points", {{50, 10}, {100, 200}}, false, {{0, 10}, {49, 10}, {75, 107}, {101, 200}}},
        // Halfway along the middle piece: (9 * 85 + 9 * 85) / 16.
        {"bent", {{0, 0}, {85, 85}, {170, 85}, {255, 0}}, false, {{85, 85}, {128, 96}, {170, 85}}},
        {"cornered", {{0, 0}, {85, 85, false}, {170, 85, false}, {255, 0}}, false, {{86, 85}, {128, 85}}},
    };
    for (const auto& test : cases) {
        ContourSettings contour;
        for (const ContourPoint& point : test.points) *contour.points.Append() = point;
        uint8_t table[256];
        BuildContourTable(contour, test.antiAlias, table);
        for (const auto& [at, want] : test.want) EXPECT_EQ(table[at], want) << test.what << ", " << at;
    }
}

TEST(EffectSteps, RangeAndBoostEndAtFull) {
    const struct {
        int range;
        uint32_t before, want;
    } cases[] = {{50, 127, 254}, {50, 128, 255}, {33, 40, 121}, {100, 77, 77}, {0, 2, 200}, {0, 3, 255}};
    for (const auto& test : cases) {
        uint32_t pixel = test.before << 24 | 0x123456;
        ApplyRange(&pixel, 1, test.range);
        EXPECT_EQ(pixel, test.want << 24 | 0x123456) << test.range << " of " << test.before;
    }
    uint32_t pixels[] = {0, 1u << 24, 23u << 24, 24u << 24};
    BoostAlpha(pixels, 4);
    EXPECT_EQ((std::vector<uint32_t>{pixels, pixels + 4}),
              (std::vector<uint32_t>{0, 10u << 24, 230u << 24, 255u << 24}));
}

std::vector<uint32_t> Noisy(uint64_t seed, uint32_t alpha = 128, uint32_t percent = 50) {
    std::vector<uint32_t> pixels(1 << 14, alpha << 24 | 0x123456);
    AddNoise(pixels.data(), pixels.size(), percent, seed);
    return pixels;
}

TEST(Noise, LiesEvenlyAroundTheAlphaAndElsewhereForEachPlace) {
    std::vector<uint32_t> alphas;
    for (const uint32_t pixel : Noisy(1)) {
        alphas.push_back(pixel >> 24);
        ASSERT_EQ(pixel & 0xFFFFFF, 0x123456u);
    }
    // 128 less 127 up to 128 and 127; five deviations of the mean are 2.9.
    EXPECT_EQ(*std::ranges::min_element(alphas), 1u);
    EXPECT_EQ(*std::ranges::max_element(alphas), 255u);
    EXPECT_NEAR(std::accumulate(alphas.begin(), alphas.end(), 0.0) / double(alphas.size()), 128, 3);
    EXPECT_EQ(Noisy(1), Noisy(1));
    EXPECT_NE(Noisy(1), Noisy(2));
    EXPECT_EQ(Noisy(1, 0), std::vector<uint32_t>(1 << 14, 0x123456)) << "grains where nothing is drawn";
    PsdLayer layer;
    EffectBuffer buffer;
    const uint64_t seed = NoiseSeed(layer, buffer);
    layer.bounds.left = 1;
    const uint64_t right = NoiseSeed(layer, buffer);
    layer.bounds = {0, 1, 0, 1};
    const uint64_t below = NoiseSeed(layer, buffer);
    EXPECT_NE(seed, right);
    EXPECT_NE(seed, below);
    EXPECT_NE(right, below);
}

TEST(GlowGradient, BeginsWhereAlphaIsHighest) {
    GradientSettings gradient;
    gradient.interpolation = 0;
    *gradient.colorStops.Append() = {0xFF000000, 0, 50, {}};
    *gradient.colorStops.Append() = {0xFFFFFFFF, 4096, 50, {}};
    const auto mapped = [&](std::vector<uint32_t> pixels, int32_t jitter) {
        EXPECT_EQ(MapThroughGradient(pixels.data(), pixels.size(), gradient, jitter, 5), PsdReadResult::kOk);
        return pixels;
    };
    std::vector<uint32_t> ramp(256);
    for (uint32_t alpha = 0; alpha < 256; ++alpha) ramp[alpha] = alpha << 24 | 0xABCDEF;
    ramp = mapped(ramp, 0);
    EXPECT_EQ(ramp[0], 0x00ABCDEFu);
    for (uint32_t alpha = 1; alpha < 256; ++alpha)
        EXPECT_EQ(ramp[alpha], PackPixel(255, 255 - alpha, 255 - alpha, 255 - alpha));
    // A fifth of 255 to either side of 127.
    std::vector<uint32_t> places;
    for (const uint32_t pixel : mapped(std::vector<uint32_t>(1 << 14, 0x80000000), 20))
        places.push_back(Red(pixel));
    EXPECT_EQ(*std::ranges::min_element(places), 127u - 51);
    EXPECT_EQ(*std::ranges::max_element(places), 127u + 51);
    EXPECT_NEAR(std::accumulate(places.begin(), places.end(), 0.0) / double(places.size()), 127, 2);
}

}  // namespace
}  // namespace tessary::test
