// The thumbnail of a document as its source serves it, and the checks that come before its decoding.
#pragma once

#include <cstdint>

#include "document/psd_document.h"
#include "frontend/pixel_copy.h"

namespace tessary {

inline constexpr uint32_t kThumbnailJpeg = 1;  // PsdThumbnail::format

// What the file says about the thumbnail, and its pixels once they are decoded.
struct ThumbnailRecord {
    PsdThumbnail stored;
    Owned<uint8_t> pixels;       // height x rowBytes, three bytes a pixel
    Owned<uint8_t> otherPixels;  // serve when `pixels` is null

    const Owned<uint8_t>& Served() const { return pixels ? pixels : otherPixels; }
};

// True when pictures of this size are decoded: neither side is 0, and the pixels take at most 64 MiB.
bool IsThumbnailSize(uint32_t width, uint32_t height);

// True for a JPEG thumbnail of such a size whose numbers agree with one another.
bool IsUsableThumbnail(const PsdThumbnail& thumbnail);

// True when the numbers describe the only kind of pixels a source can name: three bytes from a JPEG.
bool IsThumbnailFormat(const PsdThumbnail& thumbnail);

// Copies an area that has passed CheckRect, moved by the origin when both its parts are non-negative.
// Pixels that are not three bytes are not copied; neither are rows that are not there.
//   stride  bytes from one row of the buffer to the next; the caller answers for the buffer's size
void CopyThumbnail(const ThumbnailRecord& record, const CopyArea& area, int32_t originX, int32_t originY,
                   uint32_t stride, uint8_t* buffer);

}  // namespace tessary
