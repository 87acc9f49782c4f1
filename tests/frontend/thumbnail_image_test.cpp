#include "frontend/thumbnail_image.h"

#include <gtest/gtest.h>

#include <vector>

namespace tessary::test {
namespace {

TEST(ThumbnailImage, RefusesNumbersThatDisagree) {
    const struct {
        void (*change)(PsdThumbnail&);
        bool want;
    } cases[] = {
        {[](PsdThumbnail&) {}, true},
        {[](PsdThumbnail& t) { t.format = 0; }, false},
        {[](PsdThumbnail& t) { t.width = 0; }, false},
        {[](PsdThumbnail& t) { t.width = 3; }, false},
        {[](PsdThumbnail& t) { t.width = 0x55555556; }, false},  // three times that wraps
        {[](PsdThumbnail& t) { t.bitsPerPixel = 32; }, false},
        {[](PsdThumbnail& t) { t.planes = 2; }, false},
        {[](PsdThumbnail& t) { t.height = 1 << 23; }, true},  // 64 MiB
        {[](PsdThumbnail& t) { t.height = (1 << 23) + 1; }, false},
        {[](PsdThumbnail& t) { t.height = 0x20000001; }, false},  // the size wraps
        {[](PsdThumbnail& t) { t.compressedSize = 6; }, false},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        PsdThumbnail thumbnail{true, kThumbnailJpeg, 2, 3, 8, 24, 5, 24, 1, AllocateZeroed<uint8_t>({5})};
        cases[i].change(thumbnail);
        EXPECT_EQ(IsUsableThumbnail(thumbnail), cases[i].want) << "case " << i;
    }
}

}  // namespace
}  // namespace tessary::test
