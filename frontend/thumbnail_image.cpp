#include "frontend/thumbnail_image.h"

#include <cstring>

#include "document/allowance.h"

namespace tessary {
namespace {

constexpr int16_t kBitsPerPixel = 24;
constexpr uint32_t kBytesPerPixel = kBitsPerPixel / 8;

}  // namespace

bool IsThumbnailFormat(const PsdThumbnail& thumbnail) {
    return thumbnail.bitsPerPixel == kBitsPerPixel && thumbnail.planes == 1 &&
           thumbnail.format == kThumbnailJpeg;
}

bool IsThumbnailSize(uint32_t width, uint32_t height) {
    return width != 0 && height != 0 &&
           static_cast<uint64_t>(width) * height <= kMostThumbnailBytes / kBytesPerPixel;
}

bool IsUsableThumbnail(const PsdThumbnail& thumbnail) {
    return thumbnail.present && IsThumbnailFormat(thumbnail) && thumbnail.width != 0 &&
           thumbnail.height != 0 &&
           thumbnail.rowBytes >= static_cast<uint64_t>(thumbnail.width) * kBytesPerPixel &&
           static_cast<uint64_t>(thumbnail.height) * thumbnail.rowBytes <= kMostThumbnailBytes &&
           thumbnail.compressedSize <= thumbnail.data.count();
}

void CopyThumbnail(const ThumbnailRecord& record, const CopyArea& area, int32_t originX, int32_t originY,
                   uint32_t stride, uint8_t* buffer) {
    if (record.stored.bitsPerPixel / 8 != kBitsPerPixel / 8) return;
    const bool moved = originX >= 0 && originY >= 0;
    const uint64_t x = static_cast<uint64_t>(area.x) + static_cast<uint64_t>(moved ? originX : 0);
    const uint64_t y = static_cast<uint64_t>(area.y) + static_cast<uint64_t>(moved ? originY : 0);
    const uint64_t rowBytes = static_cast<uint64_t>(area.width) * kBytesPerPixel;
    const Owned<uint8_t>& pixels = record.Served();
    for (int32_t row = 0; row < area.height && rowBytes != 0; ++row) {
        const uint64_t start = (y + static_cast<uint64_t>(row)) * record.stored.rowBytes + x * kBytesPerPixel;
        if (start > pixels.count() || pixels.count() - start < rowBytes) return;
        std::memcpy(buffer + static_cast<size_t>(row) * stride, pixels.get() + start,
                    static_cast<size_t>(rowBytes));
    }
}

}  // namespace tessary
