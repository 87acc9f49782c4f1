#include "render/image_ops.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

namespace tessary::test {
namespace {

TEST(ImageOps, ShiftMovesByAnyDistance) {
    constexpr int32_t kLow = std::numeric_limits<int32_t>::min(), kHigh = std::numeric_limits<int32_t>::max();
    for (const int64_t dx : {-5, -4, -3, -1, 0, 1, 3, 4, 5, kLow, kHigh}) {
        for (const int64_t dy : {-4, -3, -2, -1, 0, 1, 2, 3, 4, kLow, kHigh}) {
            std::vector<uint32_t> image, want;
            for (int64_t i = 0; i < 4 * 3; ++i) {
                const int64_t fromX = i % 4 - dx, fromY = i / 4 - dy;
                const bool inside = fromX >= 0 && fromX < 4 && fromY >= 0 && fromY < 3;
                image.push_back(static_cast<uint32_t>(100 + i));
                want.push_back(inside ? static_cast<uint32_t>(100 + fromY * 4 + fromX) : 7);
            }
            ShiftImage(image.data(), 4, 3, static_cast<int32_t>(dx), static_cast<int32_t>(dy), 7);
            EXPECT_EQ(image, want) << dx << ", " << dy;
        }
    }
}

TEST(ImageOps, NoiseStaysInItsShareAndRepeats) {
    std::vector<uint32_t> image(64 * 64, 0x80123456), again = image, other = image;
    AddNoise(image.data(), 64, 64, 20, 3);
    AddNoise(again.data(), 64, 64, 20, 3);
    AddNoise(other.data(), 64, 64, 20, 4);
    EXPECT_TRUE(image == again && image != other);
    const auto [lowest, highest] = std::minmax_element(image.begin(), image.end());
    EXPECT_EQ(*lowest, 0x80123456 - (51u << 24));  // 20 percent of 255 either way
    EXPECT_EQ(*highest, 0x80123456 + (51u << 24));
    EXPECT_TRUE(std::ranges::all_of(image, [](uint32_t pixel) { return (pixel & 0xFFFFFF) == 0x123456; }));
}

}  // namespace
}  // namespace tessary::test
