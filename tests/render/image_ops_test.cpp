#include "render/image_ops.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

namespace tessary::test {
namespace {

TEST(ImageOps, FillAndCopyStayInsideTheirRectangle) {
    std::vector<uint32_t> image(5 * 4, 1);
    FillRect(image.data(), 5, {1, 1, 4, 3}, 9);
    FillRect(image.data(), 5, {4, 0, 2, 4}, 7);  // empty
    EXPECT_EQ(image, (std::vector<uint32_t>{1, 1, 1, 1, 1, 1, 9, 9, 9, 1, 1, 9, 9, 9, 1, 1, 1, 1, 1, 1}));
    std::vector<uint32_t> copy(3 * 2, 5);
    CopyRect(copy.data(), 3, image.data() + 5, 5, 2, 2);
    EXPECT_EQ(copy, (std::vector<uint32_t>{1, 9, 5, 1, 9, 5}));
}

TEST(ImageOps, ShiftMovesByAnyDistance) {
    constexpr int32_t kWidth = 4, kHeight = 3;
    constexpr int32_t kLow = std::numeric_limits<int32_t>::min(), kHigh = std::numeric_limits<int32_t>::max();
    for (const int64_t dx : {-5, -4, -3, -1, 0, 1, 3, 4, 5, kLow, kHigh}) {
        for (const int64_t dy : {-4, -3, -2, -1, 0, 1, 2, 3, 4, kLow, kHigh}) {
            std::vector<uint32_t> image, want;
            for (int32_t i = 0; i < kWidth * kHeight; ++i) image.push_back(static_cast<uint32_t>(100 + i));
            for (int64_t y = 0; y < kHeight; ++y) {
                for (int64_t x = 0; x < kWidth; ++x) {
                    const int64_t fromX = x - dx, fromY = y - dy;
                    const bool inside = fromX >= 0 && fromX < kWidth && fromY >= 0 && fromY < kHeight;
                    want.push_back(inside ? static_cast<uint32_t>(100 + fromY * kWidth + fromX) : 7);
                }
            }
            ShiftImage(image.data(), kWidth, kHeight, static_cast<int32_t>(dx), static_cast<int32_t>(dy), 7);
            EXPECT_EQ(image, want) << dx << ", " << dy;
        }
    }
}

TEST(ImageOps, ColorAndNoiseKeepTheOtherBytes) {
    std::vector<uint32_t> image(64 * 64, 0x80123456);
    SetColorKeepAlpha(image.data(), image.size(), 0xFFABCDEF);
    EXPECT_EQ(image[5], 0x80ABCDEFu);
    std::vector<uint32_t> again = image, other = image;
    AddNoise(image.data(), 64, 64, 20, 3);
    AddNoise(again.data(), 64, 64, 20, 3);
    AddNoise(other.data(), 64, 64, 20, 4);
    EXPECT_EQ(image, again);
    EXPECT_NE(image, other);
    uint32_t lowest = 255, highest = 0;
    for (const uint32_t pixel : image) {
        EXPECT_EQ(pixel & 0x00FFFFFF, 0xABCDEFu);
        lowest = std::min(lowest, Alpha(pixel));
        highest = std::max(highest, Alpha(pixel));
    }
    EXPECT_EQ(lowest, 0x80u - 51);  // 20 percent of 255 either way
    EXPECT_EQ(highest, 0x80u + 51);
    AddNoise(image.data(), 64, 64, 0, 9);
    EXPECT_EQ(image, again);
}

}  // namespace
}  // namespace tessary::test
