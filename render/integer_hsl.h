// Hue, saturation and lightness in integers, as four blend modes and some adjustments use them. Without
// branches, so that loops over it vectorise.
#pragma once

#include <cmath>
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

// Inside, whole numbers are kept in floats, which hold them exactly at these sizes: the baseline vector unit
// compares, selects and multiplies floats in one step each, and 32-bit integers in many. A choice between a
// value and 0 costs half of a choice between two values, hence the form of some sums.
inline float LowerOf(float a, float b) { return b < a ? b : a; }
inline float HigherOf(float a, float b) { return b > a ? b : a; }
inline float WholePart(float value) { return static_cast<float>(static_cast<int32_t>(value)); }

// Channels 0..255. A grey has hue and saturation 0.
inline IntegerHsl RgbToHsl(int32_t redByte, int32_t greenByte, int32_t blueByte) {
    const float red = static_cast<float>(redByte);
    const float green = static_cast<float>(greenByte);
    const float blue = static_cast<float>(blueByte);
    const float highest = HigherOf(HigherOf(red, green), blue);
    const float lowest = LowerOf(LowerOf(red, green), blue);
    const float span = highest - lowest;
    const float sum = highest + lowest;
    const int32_t lightness = static_cast<int32_t>((sum + 1.0f) * 0.5f);
    // Both numerators are 0 where a divisor would be; 1 stands in for it there.
    const float reach = sum + (sum >= 255.0f ? 511.0f - 2.0f * sum : 0.0f);  // from a lightness of 128 on
    const int32_t saturation = static_cast<int32_t>(span * 255.0f / (reach + (reach == 0.0f ? 1.0f : 0.0f)));
    // Red goes before green where both are highest.
    const float notRed = green == highest ? blue - red : red - green;
    const float difference = red == highest ? green - blue : notRed;
    const float notRedSector = 240.0f - (green == highest ? 120.0f : 0.0f);
    const float sector = red == highest ? 0.0f : notRedSector;
    const float angle = WholePart(difference * 60.0f / (span + (span == 0.0f ? 1.0f : 0.0f))) + sector;
    return {static_cast<int32_t>(angle + (angle < 0.0f ? 360.0f : 0.0f)), saturation, lightness};
}

// One channel of HslToRgb: `rise` held in 0..60, as sixtieths of the way up from the lowest channel.
inline int32_t HslChannel(float low, float span, float rise) {
    const float twiceHeld = std::abs(rise) - std::abs(rise - 60.0f) + 60.0f;
    // The one keeps whole quotients whole.
    return static_cast<int32_t>(low + (span * twiceHeld + 1.0f) * (1.0f / 120.0f));
}

// hue 0..359, saturation and lightness 0..255. Channels are 0..256: a light colour of full saturation passes
// 255 by one, and what becomes of that is the caller's.
inline IntegerRgb HslToRgb(const IntegerHsl& color) {
    const float hue = static_cast<float>(color.hue);
    const float saturation = static_cast<float>(color.saturation);
    const float lightness = static_cast<float>(color.lightness);
    const float share = WholePart(saturation * lightness * (1.0f / 256.0f));
    const float half = share + (lightness >= 128.0f ? saturation - 2.0f * share : 0.0f);
    const float low = lightness - half;
    // Each channel falls off over 60 degrees beyond 60 degrees from its own hue: 0, 120 and 240.
    return {HslChannel(low, 2.0f * half, std::abs(hue - 180.0f) - 60.0f),
            HslChannel(low, 2.0f * half, 120.0f - std::abs(hue - 120.0f)),
            HslChannel(low, 2.0f * half, 120.0f - std::abs(hue - 240.0f))};
}

}  // namespace tessary
