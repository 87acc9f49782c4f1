// Hue, saturation and lightness in whole numbers, as adjustments use them. Without
// branches, for registers of many numbers: `Number` is one of floats, which hold whole numbers of these sizes
// exactly. Vector units compare, select and multiply floats in one step each, and 32-bit integers in many. A
// choice between a value and 0 costs half of a choice between two values, hence the form of some sums.
#pragma once

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

// Channels 0..255. A grey has hue and saturation 0.
template <class Number>
Hsl<Number> RgbToHsl(const Rgb<Number>& color) {
    const auto [red, green, blue] = color;
    const Number highest = HigherOf(HigherOf(red, green), blue);
    const Number lowest = LowerOf(LowerOf(red, green), blue);
    const Number span = highest - lowest;
    const Number sum = highest + lowest;
    const Number lightness = WholePart((sum + 1.0f) * 0.5f);
    // Quotients of numbers below 65536 by numbers below 512, cut to whole ones: one that is not whole lies
    // farther from the next whole number than a float's rounding reaches. Both numerators are 0 where a
    // divisor would be; 1 stands in for it there.
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

}  // namespace tessary
