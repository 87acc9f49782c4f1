#include "frontend/pixel_copy.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <vector>

namespace tessary::test {
namespace {

TEST(PixelCopy, TakesOnlyAreasInsideTheImage) {
    const struct {
        CopyArea area;
        bool want;
    } cases[] = {
        {{0, 0, 30, 20}, true},
        {{29, 19, 1, 1}, true},
        {{30, 20, 0, 0}, true},
        {{25, 0, 10, 1}, false},
        {{0, 15, 1, 6}, false},
        {{-1, 0, 1, 1}, false},
        {{0, -1, 1, 1}, false},
        {{5, 5, -1, 1}, false},
        {{5, 5, 1, -1}, false},
        {{1, 0, INT_MAX, 1}, false},
        {{INT_MAX, 0, INT_MAX, 1}, false},
        {{0, INT_MAX, 1, INT_MAX}, false},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(CheckRect(test.area, 30, 20), test.want)
            << test.area.x << ' ' << test.area.y << ' ' << test.area.width << ' ' << test.area.height;
    }
}

TEST(PixelCopy, StopsWhenTheBudgetIsSpent) {
    std::vector<uint32_t> image(6 * 5);
    for (size_t i = 0; i < image.size(); ++i) image[i] = 0x01010101u * static_cast<uint32_t>(i + 1);
    const CopyArea area = {2, 1, 3, 4};  // 12 bytes a row
    const uint32_t stride = 17;
    for (const uint32_t budget : {0u, 1u, 12u, 13u, 30u, 48u, 1000u}) {
        std::vector<uint8_t> buffer(4 * stride, 0xEE);
        CopyRows(image.data(), 6, area, stride, budget, buffer.data());
        uint32_t left = budget;
        for (uint32_t row = 0; row < 4; ++row) {
            for (uint32_t i = 0; i < stride; ++i) {
                const bool copied = i < 12 && left > 0;
                const uint32_t pixel = (row + 1) * 6 + 2 + i / 4;
                ASSERT_EQ(buffer[row * stride + i], copied ? pixel + 1 : 0xEE)
                    << budget << ' ' << row << ' ' << i;
                left -= copied ? 1 : 0;
            }
        }
    }
}

}  // namespace
}  // namespace tessary::test
