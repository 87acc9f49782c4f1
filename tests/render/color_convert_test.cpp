#include "render/color_convert.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <tuple>
#include <vector>

namespace tessary::test {
namespace {

using Pixels = std::vector<uint32_t>;
constexpr uint32_t kLeft = 0x12345678;  // not converted

// One row of `width` pixels; the planes are given as they are handed over: colours, then transparency.
struct RowOf {
    uint32_t mode, depth, width;
    std::vector<std::vector<uint8_t>> planes;
    bool lastIsAlpha = false;
    Pixels palette = {};
    int32_t transparencyIndex = -1;

    Pixels Convert() const {
        PlaneBlock block = {.colorMode = mode, .depth = depth, .width = width, .height = 1};
        block.planeCount = static_cast<uint32_t>(planes.size());
        for (size_t i = 0; i < planes.size() - lastIsAlpha && i < 4; ++i) block.color[i] = planes[i].data();
        if (lastIsAlpha) block.alpha = planes.back().data();
        block.palette = palette;
        block.transparencyIndex = transparencyIndex;
        Pixels pixels(width, kLeft);
        ConvertPlanes(block, 0, 1, pixels.data());
        return pixels;
    }
};

TEST(ConvertPlanes, HandComputedPixels) {
    const std::vector<uint8_t> floats = {0x3F, 0x80, 0, 0, 0x3F, 0xC0, 0, 0, 0xBF, 0, 0, 0};  // 1, 1.5, -0.5
    // NaN, -infinity, 2^24 * 1.0078125, 2^23 + 1
    const std::vector<uint8_t> beyond = {0x7F, 0xC0, 0, 0, 0xFF, 0x80, 0, 0, 0x4B, 0x81, 0, 0, 0x4B, 0, 0, 1};
    const std::vector<uint8_t> half = {0x3F, 0, 0, 0}, quarter = {0x3E, 0x80, 0, 0};
    constexpr uint32_t kBlack = 0xFF000000, kWhite = 0xFFFFFFFF;
    const std::pair<RowOf, Pixels> cases[] = {
        {{0, 1, 9, {{0xA5, 0x7F}}}, {kBlack, ~0u, kBlack, ~0u, ~0u, kBlack, ~0u, kBlack, ~0u}},
        {{0, 8, 2, {{0, 1}}}, {kLeft, kLeft}},
        {{1, 8, 1, {{5}, {6}, {7}}, true}, {0xFF050505}},  // three planes: the last is no transparency
        {{1, 16, 3, {{1, 0xFF, 0xFF, 0, 0, 0xFF}}}, {0xFF010101, kWhite, kBlack}},
        {{1, 32, 3, {floats}}, {kWhite, 0xFF7E7E7E, 0xFF818181}},
        {{8, 32, 4, {beyond}}, {kBlack, kBlack, kBlack, kWhite}},
        {{3, 8, 1, {{1}, {3}, {5}, {7}, {9}}, true}, {0xFF010305}},
        {{3, 32, 1, {floats, {0, 0, 0, 0}, half, quarter}, true}, {0x3FFF007F}},
        {{4, 8, 3, {{255, 0, 9}, {255, 255, 9}, {255, 255, 9}, {255, 255, 0}}}, {kWhite, 0xFF01FFFF, kBlack}},
        {{4, 16, 1, {{255, 0}, {128, 255}, {0, 255}, {255, 1}}}, {0xFFFF8101}},
        {{7, 8, 2, {{0, 255}, {1, 128}, {100, 254}}}, {0xFF010265, 0xFFFF81FF}},
        {{2, 8, 3, {{1, 0, 2}}, false, {0xFF010203, 0xFF040506}, 1}, {0x00040506, 0xFF010203, 0xFFFEFEFE}},
        {{2, 8, 2, {{1, 0}}, false, {}, 1}, {0, 0}},
        {{9, 8, 2, {{2, 255}, {128, 128}, {128, 128}}}, {kBlack, 0xFFFCFCFC}},
        {{9, 8, 1, {{128}, {128}, {128}, {7}}, true}, {0x07767676}},
    };
    for (const auto& [row, want] : cases) EXPECT_EQ(row.Convert(), want) << row.mode << ' ' << row.depth;
}

TEST(ConvertPlanes, LabBytesGiveWhatTheFormulaGives) {
    std::vector<uint8_t> high(65536), low(high);
    for (uint32_t i = 0; i < 65536; ++i) high[i] = static_cast<uint8_t>(i >> 8);
    for (uint32_t i = 0; i < 65536; ++i) low[i] = static_cast<uint8_t>(i);
    for (int32_t stored = 0; stored < 256; stored += 3) {
        const std::vector<uint8_t> light(65536, static_cast<uint8_t>(stored));
        const Pixels pixels = RowOf{9, 8, 65536, {light, high, low}}.Convert();
        for (int32_t i = 0; i < 65536; ++i) {
            const uint32_t want = LabToArgb(255, stored * 100 >> 8, (i >> 8) - 128, (i & 255) - 128);
            ASSERT_EQ(pixels[size_t(i)], want) << stored << ' ' << i;
        }
    }
}

TEST(ReduceMaskPlane, InPlaceAtEveryDepth) {
    for (const uint32_t depth : {8u, 16u, 32u}) {
        std::vector<uint8_t> samples;
        for (uint32_t i = 0; i < 256; ++i) {
            const float value = (static_cast<float>(i) + 0.5f) / 255;
            const uint32_t word = depth == 32 ? std::bit_cast<uint32_t>(value) : i << 24 | 0xFFFFFF;
            for (uint32_t bit = 0; bit < depth; bit += 8)
                samples.push_back(static_cast<uint8_t>(word >> (24 - bit)));
        }
        ReduceMaskPlane(samples.data(), depth, 256, samples.data());
        for (uint32_t i = 0; i < 256; ++i) ASSERT_EQ(samples[i], i) << depth;
    }
}

TEST(SingleColors, AreCutBeforeTheyAreScaled) {
    EXPECT_EQ(LabToArgb(255, 100, 0, 0), 0xFFFFFFFEu);
    EXPECT_EQ(LabToArgb(255, 54, 81, 70), 0xFFFF0000u);
    EXPECT_EQ(LabToArgb(255, std::numeric_limits<int32_t>::max(), 0, 0) & 0xFF000000u, 0xFF000000u);
    EXPECT_EQ(CmykToArgb(0.01, 0, 1, 0), 0xFF00FF00u);
    EXPECT_EQ(CmykToArgb(-1.28, -0.01, 1e300, 0), 0xFFFFFF00u);
    EXPECT_EQ(CmykToArgb(std::nan(""), 0, 0, 0), 0xFF00FFFFu);
    const std::tuple<int32_t, double, double, uint32_t> cases[] = {
        {0, 0, 1.27, 0xFFFFFF},
        {30, 1, 0.5, 0xFF7F00},
        {90, 0.5, 0.75, 0xBFDF7F},
        {-128, 1, 0.5, 0},
    };
    for (const auto& [hue, saturation, brightness, want] : cases)
        EXPECT_EQ(HsbToArgb(255, hue, saturation, brightness), 0xFF000000 | want) << hue << ' ' << saturation;
}

}  // namespace
}  // namespace tessary::test
