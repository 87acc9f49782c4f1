#include "render/image_ops.h"

#include <algorithm>
#include <cstring>

#include "document/checked_math.h"

namespace tessary {

namespace {

// Bits without pattern for every key (the finaliser of a 64-bit counter generator).
TESSARY_WRAPS uint64_t MixBits(uint64_t key) {
    key = (key ^ key >> 30) * 0xBF58476D1CE4E5B9u;
    key = (key ^ key >> 27) * 0x94D049BB133111EBu;
    return key ^ key >> 31;
}

}  // namespace

void FillRect(uint32_t* pixels, size_t rowPixels, const Rect& rect, uint32_t color) {
    if (rect.IsEmpty()) return;
    const size_t width = static_cast<size_t>(rect.Width());
    for (int32_t y = rect.top; y < rect.bottom; ++y) {
        uint32_t* row = pixels + static_cast<size_t>(y) * rowPixels + static_cast<size_t>(rect.left);
        std::fill_n(row, width, color);
    }
}

void CopyRect(uint32_t* destination, size_t destinationRowPixels, const uint32_t* source,
              size_t sourceRowPixels, size_t width, size_t height) {
    if (width == 0) return;
    for (size_t y = 0; y < height; ++y) {
        std::memcpy(destination + y * destinationRowPixels, source + y * sourceRowPixels,
                    width * sizeof(uint32_t));
    }
}

void ShiftImage(uint32_t* pixels, size_t width, size_t height, int32_t dx, int32_t dy, uint32_t fill) {
    const uint64_t stepX = static_cast<uint64_t>(dx < 0 ? -static_cast<int64_t>(dx) : dx);
    const uint64_t stepY = static_cast<uint64_t>(dy < 0 ? -static_cast<int64_t>(dy) : dy);
    if (stepX >= width || stepY >= height) {
        std::fill_n(pixels, width * height, fill);
        return;
    }
    const size_t gapX = static_cast<size_t>(stepX);
    const size_t gapY = static_cast<size_t>(stepY);
    // Rows are taken in the order in which a row is read before it is written over.
    for (size_t i = 0; i < height; ++i) {
        const size_t y = dy > 0 ? height - 1 - i : i;
        uint32_t* row = pixels + y * width;
        const bool uncovered = dy > 0 ? y < gapY : y >= height - gapY;
        if (uncovered) {
            std::fill_n(row, width, fill);
            continue;
        }
        const uint32_t* from = dy > 0 ? row - gapY * width : row + gapY * width;
        const size_t kept = width - gapX;
        std::memmove(dx > 0 ? row + gapX : row, dx > 0 ? from : from + gapX, kept * sizeof(uint32_t));
        std::fill_n(dx > 0 ? row : row + kept, gapX, fill);
    }
}

void SetColorKeepAlpha(uint32_t* pixels, size_t count, uint32_t color) {
    const uint32_t colorBytes = color & 0x00FFFFFF;
    for (size_t i = 0; i < count; ++i) pixels[i] = (pixels[i] & 0xFF000000) | colorBytes;
}

TESSARY_WRAPS int32_t NoiseAt(uint64_t seed, uint64_t index, int32_t reach) {
    const uint64_t steps = static_cast<uint64_t>(2 * reach + 1);
    const uint64_t random = MixBits(MixBits(seed) + index * 0x9E3779B97F4A7C15u) >> 32;
    return static_cast<int32_t>(random * steps >> 32) - reach;
}

void AddNoise(uint32_t* pixels, size_t width, size_t height, uint32_t percent, uint64_t seed) {
    const int32_t reach = static_cast<int32_t>(std::min(percent, 100u) * 255 / 100);
    const size_t count = width * height;
    for (size_t i = 0; i < count; ++i) {
        const int32_t alpha = static_cast<int32_t>(Alpha(pixels[i]));
        if (alpha == 0) continue;  // no grains where nothing is drawn
        const int32_t moved = std::clamp(alpha + NoiseAt(seed, i, reach), 0, 255);
        pixels[i] = (pixels[i] & 0x00FFFFFF) | static_cast<uint32_t>(moved) << 24;
    }
}

}  // namespace tessary
