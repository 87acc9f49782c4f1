#include "frontend/pixel_copy.h"

#include <gtest/gtest.h>

#include <climits>
#include <vector>

namespace tessary::test {
namespace {

TEST(PixelCopy, TakesOnlyAreasInsideTheImage) {
    for (const CopyArea& area : {CopyArea{0, 0, 30, 20}, CopyArea{29, 19, 1, 1}, CopyArea{30, 20, 0, 0}})
        EXPECT_TRUE(CheckRect(area, 30, 20)) << area.x;
    const CopyArea outside[] = {{25, 0, 10, 1}, {0, 15, 1, 6}, {-1, 0, 1, 1},      {0, -1, 1, 1},
                                {5, 5, -1, 1},  {5, 5, 1, -1}, {1, 0, INT_MAX, 1}, {0, INT_MAX, 1, INT_MAX}};
    for (const CopyArea& area : outside) EXPECT_FALSE(CheckRect(area, 30, 20)) << area.x << ' ' << area.y;
}

TEST(PixelCopy, StopsWhenTheBudgetIsSpent) {
    std::vector<uint32_t> image(6 * 5);
    for (size_t i = 0; i < image.size(); ++i) image[i] = 0x01010101u * static_cast<uint32_t>(i + 1);
    for (const uint32_t budget : {0u, 1u, 12u, 13u, 30u, 48u, 1000u}) {
        std::vector<uint8_t> buffer(4 * 17, 0xEE);
        CopyRows(image.data(), 6, {2, 1, 3, 4}, 17, budget, buffer.data());
        uint32_t left = budget;
        for (uint32_t i = 0; i < buffer.size(); ++i) {
            const bool copied = i % 17 < 12 && left > 0;
            ASSERT_EQ(buffer[i], copied ? (i / 17 + 1) * 6 + 3 + i % 17 / 4 : 0xEE) << budget << ' ' << i;
            left -= copied ? 1 : 0;
        }
    }
}

}  // namespace
}  // namespace tessary::test
