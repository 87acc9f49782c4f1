#include "frontend/thumbnail_image.h"

#include <gtest/gtest.h>

#include <vector>

namespace tessary::test {
namespace {

// Width 2, height 3, rows of 8 bytes whose values are their places.
ThumbnailRecord MakeRecord() {
    ThumbnailRecord record;
    record.stored.present = true;
    record.stored.format = kThumbnailJpeg;
    record.stored.width = 2;
    record.stored.height = 3;
    record.stored.rowBytes = 8;
    record.stored.compressedSize = 5;
    record.stored.bitsPerPixel = 24;
    record.stored.planes = 1;
    record.stored.data = AllocateZeroed<uint8_t>({5});
    record.pixels = AllocateZeroed<uint8_t>({3, 8});
    for (uint8_t i = 0; i < 24; ++i) record.pixels[i] = i;
    return record;
}

TEST(ThumbnailImage, RefusesNumbersThatDisagree) {
    const struct {
        const char* what;
        void (*change)(PsdThumbnail&);
        bool want;
    } cases[] = {
        {"as made", [](PsdThumbnail&) {}, true},
        {"absent", [](PsdThumbnail& t) { t.present = false; }, false},
        {"raw pixels", [](PsdThumbnail& t) { t.format = 0; }, false},
        {"no width", [](PsdThumbnail& t) { t.width = 0; }, false},
        {"no height", [](PsdThumbnail& t) { t.height = 0; }, false},
        {"short rows", [](PsdThumbnail& t) { t.width = 3; }, false},
        {"width times 3 wraps", [](PsdThumbnail& t) { t.width = 0x55555556; }, false},
        {"32 bits", [](PsdThumbnail& t) { t.bitsPerPixel = 32; }, false},
        {"two planes", [](PsdThumbnail& t) { t.planes = 2; }, false},
        {"64 MiB", [](PsdThumbnail& t) { t.height = 1 << 23; }, true},
        {"over 64 MiB", [](PsdThumbnail& t) { t.height = (1 << 23) + 1; }, false},
        {"size wraps", [](PsdThumbnail& t) { t.height = 0x20000001; }, false},
        {"more JPEG than there is", [](PsdThumbnail& t) { t.compressedSize = 6; }, false},
    };
    for (const auto& test : cases) {
        ThumbnailRecord record = MakeRecord();
        test.change(record.stored);
        EXPECT_EQ(IsUsableThumbnail(record.stored), test.want) << test.what;
    }
}

TEST(ThumbnailImage, CopiesRowsByStride) {
    ThumbnailRecord record = MakeRecord();
    const auto copy = [&](const CopyArea& area, int32_t originX, int32_t originY) {
        std::vector<uint8_t> buffer(10, 0xEE);
        CopyThumbnail(record, area, originX, originY, 4, buffer.data());
        return buffer;
    };
    using Bytes = std::vector<uint8_t>;
    const Bytes untouched(10, 0xEE);
    EXPECT_EQ(copy({1, 1, 1, 2}, -1, -1), (Bytes{11, 12, 13, 0xEE, 19, 20, 21, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(copy({0, 0, 1, 2}, 1, 1), (Bytes{11, 12, 13, 0xEE, 19, 20, 21, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(copy({0, 0, 1, 1}, 1, -1), (Bytes{0, 1, 2, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(copy({0, 0, 1, 1}, 0, 3), untouched) << "an origin that leads past the pixels";
    record.stored.bitsPerPixel = 32;
    EXPECT_EQ(copy({0, 0, 1, 1}, -1, -1), untouched);
}

}  // namespace
}  // namespace tessary::test
