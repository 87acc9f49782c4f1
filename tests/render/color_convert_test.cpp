#include "render/color_convert.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <vector>

namespace tessary::test {
namespace {

using Planes = std::vector<std::vector<uint8_t>>;

// One row of `width` pixels; the planes are given as they are handed over: colours, then transparency.
struct RowOf {
    uint32_t mode, depth, width;
    Planes planes;
    bool lastIsAlpha = false;
    std::vector<uint32_t> palette = {};
    int32_t transparencyIndex = -1;

    std::vector<uint32_t> Convert() const {
        PlaneBlock block;
        block.colorMode = mode;
        block.depth = depth;
        block.width = width;
        block.height = 1;
        block.planeCount = static_cast<uint32_t>(planes.size());
        for (size_t i = 0; i < std::min<size_t>(planes.size() - lastIsAlpha, 4); ++i) {
            block.color[i] = planes[i].data();
        }
        if (lastIsAlpha) block.alpha = planes.back().data();
        block.palette = palette;
        block.transparencyIndex = transparencyIndex;
        std::vector<uint32_t> pixels(width, 0x12345678);
        ConvertPlanes(block, 0, 1, pixels.data());
        return pixels;
    }
};

using Pixels = std::vector<uint32_t>;
constexpr uint32_t kLeft = 0x12345678;  // not converted

TEST(ConvertPlanes, HandComputedPixels) {
    const std::vector<uint8_t> floats = {0x3F, 0x80, 0, 0, 0x3F, 0xC0, 0, 0, 0xBF, 0, 0, 0};  // 1, 1.5, -0.5
    const std::vector<uint8_t> beyond = {
        0x7F, 0xC0, 0, 0, 0xFF, 0x80, 0, 0,
        0x4B, 0x81, 0, 0, 0x4B, 0x00, 0, 1};  // NaN, -infinity, 2^24 * 1.0078125, 2^23 + 1
    const struct {
        const char* what;
        RowOf row;
        Pixels want;
    } cases[] = {
        {"bitmap, 9 wide",
         {0, 1, 9, {{0xA5, 0x7F}}},
         {0xFF000000, ~0u, 0xFF000000, ~0u, ~0u, 0xFF000000, ~0u, 0xFF000000, ~0u}},
        {"bitmap, 8 bits", {0, 8, 2, {{0, 1}}}, {kLeft, kLeft}},
        {"gray, 1 bit", {1, 1, 2, {{0, 1}}}, {kLeft, kLeft}},
        {"gray, three planes", {1, 8, 1, {{5}, {6}, {7}}, true}, {0xFF050505}},
        {"gray, 16 bits", {1, 16, 3, {{1, 0xFF, 0xFF, 0, 0, 0xFF}}}, {0xFF010101, 0xFFFFFFFF, 0xFF000000}},
        {"gray, 32 bits", {1, 32, 3, {floats}}, {0xFFFFFFFF, 0xFF7E7E7E, 0xFF818181}},
        {"floats no integer holds", {8, 32, 4, {beyond}}, {0xFF000000, 0xFF000000, 0xFF000000, 0xFFFFFFFF}},
        {"duotone with alpha", {8, 8, 1, {{9}, {1}}, true}, {0x01090909}},
        {"rgb, five planes", {3, 8, 1, {{1}, {3}, {5}, {7}, {9}}, true}, {0xFF010305}},
        {"rgb, 32 bits, alpha",
         {3, 32, 1, {{0x3F, 0x80, 0, 0}, {0, 0, 0, 0}, {0x3F, 0, 0, 0}, {0x3E, 0x80, 0, 0}}, true},
         {0x3FFF007F}},
        {"cmyk: no ink, full cyan, full black",
         {4, 8, 3, {{255, 0, 9}, {255, 255, 9}, {255, 255, 9}, {255, 255, 0}}},
         {0xFFFFFFFF, 0xFF01FFFF, 0xFF000000}},
        {"cmyk, 16 bits", {4, 16, 1, {{255, 0}, {128, 255}, {0, 255}, {255, 1}}}, {0xFFFF8101}},
        {"cmyk without black", {4, 8, 1, {{255}, {255}, {255}}}, {0xFF000000}},
        {"multichannel, three", {7, 8, 2, {{0, 255}, {1, 128}, {100, 254}}}, {0xFF010265, 0xFFFF81FF}},
        {"multichannel, two", {7, 8, 1, {{0}, {1}}}, {0xFF010201}},
        {"multichannel, 16 bits", {7, 16, 1, {{1, 2}, {1, 2}, {1, 2}}}, {kLeft}},
        {"indexed",
         {2, 8, 3, {{1, 0, 2}}, false, {0xFF010203, 0xFF040506}, 1},
         {0x00040506, 0xFF010203, 0xFFFEFEFE}},
        {"indexed without palette", {2, 8, 2, {{1, 0}}, false, {}, 1}, {0, 0}},
        {"indexed, 16 bits", {2, 16, 1, {{1, 0}}, false, {0xFF010203}}, {kLeft}},
        {"lab, stored zeros", {9, 8, 1, {{0}, {0}, {0}}}, {0xFF0049C1}},
        {"lab black and white",
         {9, 8, 3, {{0, 2, 255}, {128, 128, 128}, {128, 128, 128}}},
         {0xFF000000, 0xFF000000, 0xFFFCFCFC}},
        {"lab with alpha", {9, 8, 1, {{128}, {128}, {128}, {7}}, true}, {0x07767676}},
    };
    for (const auto& test : cases) EXPECT_EQ(test.row.Convert(), test.want) << test.what;
}

TEST(ConvertPlanes, InkFormulaHoldsForEveryPairOfBytes) {
    Planes planes(4);
    for (uint32_t i = 0; i < 65536; ++i) {
        for (int plane = 0; plane < 3; ++plane) planes[size_t(plane)].push_back(static_cast<uint8_t>(i));
        planes[3].push_back(static_cast<uint8_t>(i >> 8));
    }
    const Pixels pixels = RowOf{4, 8, 65536, planes}.Convert();
    for (uint32_t i = 0; i < 65536; ++i) {
        const uint32_t x = i & 255, k = i >> 8;
        const uint32_t want = (65535 - (255 - x) * k - 256 * (255 - k)) >> 8;
        ASSERT_EQ(pixels[i], 0xFF000000 | want * 0x010101) << x << ' ' << k;
    }
}

TEST(ConvertPlanes, LabBytesGiveWhatTheFormulaGives) {
    Planes planes(3, std::vector<uint8_t>(65536));
    for (uint32_t i = 0; i < 65536; ++i) {
        planes[1][i] = static_cast<uint8_t>(i >> 8);
        planes[2][i] = static_cast<uint8_t>(i);
    }
    int32_t done = -1;
    for (int32_t stored = 0; stored < 256; ++stored) {
        const int32_t lightness = stored * 100 >> 8;
        if (lightness == done) continue;
        done = lightness;
        std::fill(planes[0].begin(), planes[0].end(), static_cast<uint8_t>(stored));
        const Pixels pixels = RowOf{9, 8, 65536, planes}.Convert();
        for (int32_t i = 0; i < 65536; ++i) {
            ASSERT_EQ(pixels[size_t(i)], LabToArgb(255, lightness, (i >> 8) - 128, (i & 255) - 128))
                << lightness << ' ' << i;
        }
    }
}

TEST(ConvertPlanes, TouchesOnlyTheRowsAsked) {
    // More than one piece, and a width that leaves a rest.
    constexpr uint32_t kWidth = 1027, kHeight = 4;
    std::vector<uint8_t> plane(kWidth * kHeight * 2);
    for (size_t i = 0; i < plane.size(); ++i) plane[i] = static_cast<uint8_t>(i * 31 >> 3);
    for (const uint32_t depth : {1u, 8u, 16u}) {
        PlaneBlock block;
        block.colorMode = depth == 1 ? 0 : 1;
        block.depth = depth;
        block.width = kWidth;
        block.height = kHeight;
        block.planeCount = 1;
        block.color[0] = plane.data();
        Pixels all(kWidth * kHeight), part(kWidth * kHeight), tail(kWidth * kHeight);
        ConvertPlanes(block, 0, kHeight, all.data());
        ConvertPlanes(block, 1, 2, part.data());
        ConvertPlanes(block, 3, 0xFFFFFFFF, tail.data());
        for (size_t i = 0; i < all.size(); ++i) {
            const size_t y = i / kWidth, x = i % kWidth;
            const uint32_t bit = uint32_t{plane[y * ((kWidth + 7) / 8) + x / 8]} >> (7 - x % 8) & 1;
            const uint32_t want = depth == 1 ? (bit ? 0 : 0xFFFFFF) : plane[i * depth / 8] * 0x010101u;
            ASSERT_EQ(all[i], 0xFF000000 | want) << depth << ' ' << i;
            ASSERT_EQ(part[i], y == 1 || y == 2 ? all[i] : 0) << i;
            ASSERT_EQ(tail[i], y == 3 ? all[i] : 0) << i;
        }
    }
}

TEST(ReduceMaskPlane, InPlaceAtEveryDepth) {
    for (const uint32_t depth : {8u, 16u, 32u}) {
        std::vector<uint8_t> samples;
        for (uint32_t i = 0; i < 256; ++i) {
            const uint32_t word = depth == 32 ? std::bit_cast<uint32_t>((static_cast<float>(i) + 0.5f) / 255)
                                              : i << 24 | 0xFFFFFF;
            for (uint32_t byte = 0; byte < depth / 8; ++byte) {
                samples.push_back(static_cast<uint8_t>(word >> (24 - 8 * byte)));
            }
        }
        ReduceMaskPlane(samples.data(), depth, 256, samples.data());
        for (uint32_t i = 0; i < 256; ++i) ASSERT_EQ(samples[i], i) << depth;
    }
    uint8_t bit = 0x80, mask = 9;
    ReduceMaskPlane(&bit, 1, 1, &mask);
    EXPECT_EQ(mask, 9);
}

TEST(SingleColors, Lab) {
    EXPECT_EQ(LabToArgb(7, 0, 0, 0), 0x07000000u);
    EXPECT_EQ(LabToArgb(255, 100, 0, 0), 0xFFFFFFFEu);
    EXPECT_EQ(LabToArgb(255, 54, 81, 70), 0xFFFF0000u);
    EXPECT_EQ(LabToArgb(255, std::numeric_limits<int32_t>::max(), 0, 0) & 0xFF000000u, 0xFF000000u);
}

TEST(SingleColors, CmykIsCutBeforeItIsScaled) {
    EXPECT_EQ(CmykToArgb(0, 0, 0, 0), 0xFFFFFFFFu);
    EXPECT_EQ(CmykToArgb(0.01, 0, 1, 0), 0xFF00FF00u);
    EXPECT_EQ(CmykToArgb(0, 0, 0, 0.01), 0xFF000000u);
    EXPECT_EQ(CmykToArgb(-1.28, -0.01, 1e300, 0), 0xFFFFFF00u);
    EXPECT_EQ(CmykToArgb(std::nan(""), 0, 0, 0), 0xFF00FFFFu);
}

TEST(SingleColors, Hsb) {
    const struct {
        int32_t hue;
        double saturation, brightness;
        uint32_t want;
    } cases[] = {
        {0, 0, 0.5, 0x7F7F7F},     {0, 0, 1.27, 0xFFFFFF},    {0, 0, -0.1, 0x000000},
        {180, 1, 0.5, 0x00FFFF},                               // 300, 180 and 60 degrees
        {120, 1, 0.5, 0x00FF00},   {0, 1, 0.5, 0xFF0000},      // blue at -120 falls to -2, clamped
        {30, 1, 0.5, 0xFF7F00},    {90, 0.5, 0.25, 0x3F5F00},  // blue at -30 is 0.125 - 0.125
        {90, 0.5, 0.75, 0xBFDF7F}, {-128, 1, 0.5, 0x000000},  {2147483647, 1, 0.5, 0x00FF1D},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(HsbToArgb(255, test.hue, test.saturation, test.brightness), 0xFF000000 | test.want)
            << test.hue << ' ' << test.saturation << ' ' << test.brightness;
    }
}

}  // namespace
}  // namespace tessary::test
