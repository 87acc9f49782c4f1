// The pixel word and rectangles.
#pragma once

#include <algorithm>
#include <cstdint>

namespace tessary {

// A pixel is 0xAARRGGBB with straight alpha: B, G, R, A in memory.
inline constexpr uint32_t kBackground = 0x00FFFFFF;  // what no layer covers

constexpr uint32_t PackPixel(uint32_t alpha, uint32_t red, uint32_t green, uint32_t blue) {
    return alpha << 24 | red << 16 | green << 8 | blue;
}
constexpr uint32_t Alpha(uint32_t pixel) { return pixel >> 24; }
constexpr uint32_t Red(uint32_t pixel) { return pixel >> 16 & 255; }
constexpr uint32_t Green(uint32_t pixel) { return pixel >> 8 & 255; }
constexpr uint32_t Blue(uint32_t pixel) { return pixel & 255; }

// Right and bottom are exclusive.
struct Rect {
    int32_t left = 0;
    int32_t top = 0;
    int32_t right = 0;
    int32_t bottom = 0;

    constexpr bool IsEmpty() const { return left >= right || top >= bottom; }
    // The sides of a rectangle from a file can be 2^32 apart, hence 64 bits.
    constexpr int64_t Width() const { return static_cast<int64_t>(right) - left; }
    constexpr int64_t Height() const { return static_cast<int64_t>(bottom) - top; }
    friend constexpr bool operator==(const Rect&, const Rect&) = default;
};

constexpr Rect Intersect(const Rect& a, const Rect& b) {
    return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
            std::min(a.bottom, b.bottom)};
}

}  // namespace tessary
