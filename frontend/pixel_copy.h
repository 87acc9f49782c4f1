// Copies a rectangle of a picture into a caller's buffer.
#pragma once

#include <cstdint>

namespace tessary {

// A rectangle as imaging clients state it; any value may be in any field.
struct CopyArea {
    int32_t x = 0;
    int32_t y = 0;
    int32_t width = 0;
    int32_t height = 0;
};

// True when the area lies in an image of this size. Empty areas do, negative extents never.
bool CheckRect(const CopyArea& area, uint32_t imageWidth, uint32_t imageHeight);

// Copies the area's rows until `bufferSize` bytes have been written, the last row perhaps in part. Only the
// bytes copied count against bufferSize, not those that a wide stride leaves out.
//   pixels  the image, rows of imageWidth pixels; the area has passed CheckRect
//   stride  bytes from one row of the buffer to the next, taken as it is
void CopyRows(const uint32_t* pixels, uint32_t imageWidth, const CopyArea& area, uint32_t stride,
              uint32_t bufferSize, uint8_t* buffer);

}  // namespace tessary
