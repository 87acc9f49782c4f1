#include "frontend/pixel_copy.h"

#include <algorithm>
#include <cstring>

namespace tessary {

bool CheckRect(const CopyArea& area, uint32_t imageWidth, uint32_t imageHeight) {
    return area.x >= 0 && area.y >= 0 && area.width >= 0 && area.height >= 0 &&
           static_cast<int64_t>(area.x) + area.width <= imageWidth &&
           static_cast<int64_t>(area.y) + area.height <= imageHeight;
}

void CopyRows(const uint32_t* pixels, uint32_t imageWidth, const CopyArea& area, uint32_t stride,
              uint32_t bufferSize, uint8_t* buffer) {
    const size_t rowBytes = static_cast<size_t>(area.width) * sizeof(uint32_t);
    const uint32_t* source = pixels + static_cast<size_t>(area.y) * imageWidth + static_cast<size_t>(area.x);
    size_t budget = bufferSize;
    for (int32_t row = 0; row < area.height && budget != 0 && rowBytes != 0; ++row) {
        const size_t copied = std::min(budget, rowBytes);
        std::memcpy(buffer + static_cast<size_t>(row) * stride,
                    source + static_cast<size_t>(row) * imageWidth, copied);
        budget -= copied;
    }
}

}  // namespace tessary
