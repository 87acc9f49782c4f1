// Hue, saturation and lightness in integers, as four blend modes and some adjustments use them. Without
// branches, for loops that vectorise and for numbers that are registers of many.
#pragma once

#include <cmath>
#include <cstdint>

namespace tessary {

// hue 0..359; saturation and lightness 0..255
template <class Number>
struct Hsl {
    Number hue, saturation, lightness;
};

template <class Number>
struct Rgb {
    Number red, green, blue;
};

using IntegerHsl = Hsl<int32_t>;
using IntegerRgb = Rgb<int32_t>;

// numerator / denominator toward zero, by a float division that vectorises. Exact while |numerator| is at
// most 65535 and the denominator lies in 1..511: a quotient of such numbers that is no whole number lies
// farther from the next one than a float's rounding reaches.
constexpr int32_t SmallQuotient(int32_t numerator, int32_t denominator) {
    return static_cast<int32_t>(static_cast<float>(numerator) / static_cast<float>(denominator));
}

// Whole numbers are kept in floats, which hold them exactly at these sizes: vector units compare, select and
// multiply floats in one step each, and 32-bit integers in many. `Number` is a float, or a register of floats
// with the same functions and operators. A choice between a value and 0 costs half of a choice between two
// values, hence the form of some sums.
inline float LowerOf(float a, float b) { return b < a ? b : a; }
inline float HigherOf(float a, float b) { return b > a ? b : a; }
inline float AbsoluteOf(float value) { return std::abs(value); }
inline float WholePart(float value) { return static_cast<float>(static_cast<int32_t>(value)); }
inline float Choose(bool condition, float a, float b) { return condition ? a : b; }
inline float Where(bool condition, float a) { return condition ? a : 0.0f; }

// Channels 0..255. A grey has hue and saturation 0.
template <class Number>
Hsl<Number> RgbToHsl(const Rgb<Number>& color) {
    const auto [red, green, blue] = color;
    const Number highest = HigherOf(HigherOf(red, green), blue);
    const Number lowest = LowerOf(LowerOf(red, green), blue);
    const Number span = highest - lowest;
    const Number sum = highest + lowest;
    const Number lightness = WholePart((sum + 1.0f) * 0.5f);
    // Both numerators are 0 where a divisor would be; 1 stands in for it there.
    const Number reach = sum + Where(sum >= 255.0f, 511.0f - 2.0f * sum);  // from a lightness of 128 on
    const Number saturation = WholePart(span * 255.0f / (reach + Where(reach == 0.0f, 1.0f)));
    // Red goes before green where both are highest.
    const Number notRed = Choose(green == highest, blue - red, red - green);
    const Number difference = Choose(red == highest, green - blue, notRed);
    const Number notRedSector = 240.0f - Where(green == highest, 120.0f);
    const Number sector = Choose(red == highest, 0.0f, notRedSector);
    const Number angle = WholePart(difference * 60.0f / (span + Where(span == 0.0f, 1.0f))) + sector;
    return {angle + Where(angle < 0.0f, 360.0f), saturation, lightness};
}

// One channel of HslToRgb: `rise` held in 0..60, as sixtieths of the way up from the lowest channel.
template <class Number>
Number HslChannel(Number low, Number span, Number rise) {
    const Number twiceHeld = AbsoluteOf(rise) - AbsoluteOf(rise - 60.0f) + 60.0f;
    // The one keeps whole quotients whole.
    return low + (span * twiceHeld + 1.0f) * (1.0f / 120.0f);
}

// hue 0..359, saturation and lightness 0..255. Channels are to be cut to whole numbers, which are 0..256: a
// light colour of full saturation passes 255 by one, and what becomes of that is the caller's.
template <class Number>
Rgb<Number> HslToRgb(const Hsl<Number>& color) {
    const auto [hue, saturation, lightness] = color;
    const Number share = WholePart(saturation * lightness * (1.0f / 256.0f));
    const Number half = share + Where(lightness >= 128.0f, saturation - 2.0f * share);
    const Number low = lightness - half;
    const Number span = 2.0f * half;
    // Each channel falls off over 60 degrees beyond 60 degrees from its own hue: 0, 120 and 240.
    return {HslChannel<Number>(low, span, AbsoluteOf(hue - 180.0f) - 60.0f),
            HslChannel<Number>(low, span, 120.0f - AbsoluteOf(hue - 120.0f)),
            HslChannel<Number>(low, span, 120.0f - AbsoluteOf(hue - 240.0f))};
}

inline IntegerHsl RgbToHsl(int32_t red, int32_t green, int32_t blue) {
    const Hsl<float> hsl =
        RgbToHsl<float>({static_cast<float>(red), static_cast<float>(green), static_cast<float>(blue)});
    return {static_cast<int32_t>(hsl.hue), static_cast<int32_t>(hsl.saturation),
            static_cast<int32_t>(hsl.lightness)};
}

inline IntegerRgb HslToRgb(const IntegerHsl& color) {
    const Rgb<float> rgb =
        HslToRgb<float>({static_cast<float>(color.hue), static_cast<float>(color.saturation),
                         static_cast<float>(color.lightness)});
    return {static_cast<int32_t>(rgb.red), static_cast<int32_t>(rgb.green), static_cast<int32_t>(rgb.blue)};
}

}  // namespace tessary
