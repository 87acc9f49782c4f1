#include "render/image_ops.h"

#include <algorithm>

#include "document/checked_math.h"

namespace tessary {

TESSARY_WRAPS uint64_t MixBits(uint64_t key) {
    key = (key ^ key >> 30) * 0xBF58476D1CE4E5B9u;
    key = (key ^ key >> 27) * 0x94D049BB133111EBu;
    return key ^ key >> 31;
}

void FillRect(uint32_t* pixels, size_t rowPixels, const Rect& rect, uint32_t color) {
    if (rect.IsEmpty()) return;
    const size_t width = static_cast<size_t>(rect.Width());
    for (int32_t y = rect.top; y < rect.bottom; ++y) {
        uint32_t* row = pixels + static_cast<size_t>(y) * rowPixels + static_cast<size_t>(rect.left);
        std::fill_n(row, width, color);
    }
}

void ReplaceTransparent(uint32_t* pixels, size_t count, uint32_t color) {
    for (size_t i = 0; i < count; ++i) pixels[i] = Alpha(pixels[i]) == 0 ? color : pixels[i];
}

TESSARY_WRAPS int32_t NoiseAt(uint64_t seed, uint64_t index, int32_t reach) {
    const uint64_t steps = 2 * static_cast<uint64_t>(reach) + 1;
    const uint64_t random = MixBits(MixBits(seed) + index * 0x9E3779B97F4A7C15u) >> 32;
    return static_cast<int32_t>(random * steps >> 32) - reach;
}

void AddNoise(uint32_t* pixels, size_t count, uint32_t percent, uint64_t seed) {
    const int32_t reach = static_cast<int32_t>(std::min(percent, 100u) * 255 / 100);
    for (size_t i = 0; i < count; ++i) {
        const int32_t alpha = static_cast<int32_t>(Alpha(pixels[i]));
        if (alpha == 0) continue;  // no grains where nothing is drawn
        const int32_t moved = std::clamp(alpha + NoiseAt(seed, i, reach), 0, 255);
        pixels[i] = (pixels[i] & 0x00FFFFFF) | static_cast<uint32_t>(moved) << 24;
    }
}

}  // namespace tessary
