// Hue, saturation and lightness in integers, as four blend modes and some adjustments use them. Without
// branches, so that loops over it vectorise.
#pragma once

#include <cstdint>

namespace tessary {

// hue 0..359; saturation and lightness 0..255
struct IntegerHsl {
    int32_t hue;
    int32_t saturation;
    int32_t lightness;
};

struct IntegerRgb {
    int32_t red;
    int32_t green;
    int32_t blue;
};

// numerator / denominator toward zero, by a float division that vectorises. Exact while |numerator| is at
// most 65535 and the denominator lies in 1..511: a quotient of such numbers that is no whole number lies
// farther from the next one than a float's rounding reaches.
constexpr int32_t SmallQuotient(int32_t numerator, int32_t denominator) {
    return static_cast<int32_t>(static_cast<float>(numerator) / static_cast<float>(denominator));
}

// Channels 0..255. A grey has hue and saturation 0.
constexpr IntegerHsl RgbToHsl(int32_t red, int32_t green, int32_t blue) {
    const int32_t redOrGreen = red > green ? red : green;
    const int32_t highest = redOrGreen > blue ? redOrGreen : blue;
    const int32_t lowerOfTwo = red < green ? red : green;
    const int32_t lowest = lowerOfTwo < blue ? lowerOfTwo : blue;
    const int32_t span = highest - lowest;
    const int32_t sum = highest + lowest;
    const int32_t lightness = (sum + 1) >> 1;
    // Both numerators are 0 for a grey; only the divisors must not be.
    const int32_t reach = lightness >= 128 ? 511 - sum : sum;
    const int32_t saturation = SmallQuotient(span * 255, reach > 1 ? reach : 1);
    // Red goes before green where both are highest.
    const bool redFirst = red == highest;
    const bool greenFirst = green == highest;
    const int32_t difference = redFirst ? green - blue : greenFirst ? blue - red : red - green;
    const int32_t sector = redFirst ? 0 : greenFirst ? 120 : 240;
    const int32_t angle = SmallQuotient(difference * 60, span > 1 ? span : 1) + sector;
    return {angle < 0 ? angle + 360 : angle, saturation, lightness};
}

// One channel of HslToRgb; `angle` 0..359.
constexpr int32_t HslChannel(int32_t low, int32_t high, int32_t angle) {
    const int32_t upward = angle < 60 ? angle : 240 - angle;
    const int32_t slope = angle >= 60 && angle < 180 ? 60 : angle >= 240 ? 0 : upward;
    // * 17477 >> 20 is / 60 for every product up to 256 * 60.
    return low + ((high - low) * slope * 17477 >> 20);
}

// hue 0..359, saturation and lightness 0..255. Channels are 0..256: a light colour of full saturation passes
// 255 by one, and what becomes of that is the caller's.
constexpr IntegerRgb HslToRgb(const IntegerHsl& color) {
    const int32_t share = color.saturation * color.lightness >> 8;
    const int32_t high = color.lightness + (color.lightness < 128 ? share : color.saturation - share);
    const int32_t low = 2 * color.lightness - high;
    const int32_t redAngle = color.hue + 120;
    const int32_t blueAngle = color.hue + 240;
    return {HslChannel(low, high, redAngle >= 360 ? redAngle - 360 : redAngle),
            HslChannel(low, high, color.hue),
            HslChannel(low, high, blueAngle >= 360 ? blueAngle - 360 : blueAngle)};
}

}  // namespace tessary
