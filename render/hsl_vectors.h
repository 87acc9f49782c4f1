// Hue, saturation and lightness as four blend modes use them: never the hue itself. A colour that is taken
// apart and put together again keeps the order of its channels, and where its middle one lies between the
// others, in sixtieths; that is all of a hue that the others do not hold.
#pragma once

#include "render/pixel_vectors.h"

namespace tessary::TESSARY_VECTORS {

// The word of alpha is 0.
inline ChannelWords ToWords(Pixels red, Pixels green, Pixels blue) {
    return Interleave(blue | green << 16, red);
}
// The same for all channels.
inline ChannelWords ToWords(Pixels value) {
    const Pixels pair = value | value << 16;
    return Interleave(pair, pair);
}

struct ChannelExtremes {
    Pixels highest, lowest;

    explicit ChannelExtremes(Pixels color)
        : highest(HigherBytes(HigherBytes(color, color >> 8), color >> 16) & 255),
          lowest(LowerBytes(LowerBytes(color, color >> 8), color >> 16) & 255) {}
};

inline Pixels LightnessOf(const ChannelExtremes& of) { return (of.highest + of.lowest + 1) >> 1; }

inline Pixels SaturationOf(const ChannelExtremes& of) {
    const Pixels sum = of.highest + of.lowest;
    // The sum itself up to a lightness of 127, from there on what is left to 511. 1 stands in for black's 0.
    const Pixels reach = HigherOf(LowerOf(sum - (sum == 255), 511 - sum), 1);
    // A quotient that is not whole lies farther from the next whole number than a float's rounding reaches.
    return Truncate(ToFloats(of.highest - of.lowest) * 255.0f / ToFloats(reach));
}

// How far each channel lies above the lowest one. Greys count as reds.
inline ChannelWords SixtiethsOf(Pixels color, const ChannelExtremes& of) {
    const Pixels span = of.highest - of.lowest;
    constexpr float kSixtyAndMore = 60.0f + 60.0f / (1 << 18);  // whole products stay whole
    const Floats step = Floats(kSixtyAndMore) / ToFloats(HigherOf(span, 1));
    const auto sixtieths = [&](Pixels channel) {
        return Truncate(ToFloats((channel & 255) - of.lowest) * step);
    };
    const Pixels red = sixtieths(color >> 16) | ((span == 0) & 60);
    return ToWords(red, sixtieths(color >> 8), sixtieths(color));
}

// Saturation and lightness 0..255. Channels are 0..256: a light colour of full saturation passes 255 by one.
inline ChannelWords ColorOf(ChannelWords sixtieths, Pixels saturation, Pixels lightness) {
    const Pixels share = saturation * lightness >> 8;
    const Pixels half = Choose(lightness > 127, saturation - share, share);
    const ChannelWords lowest = ToWords(lightness - half), span = ToWords(half + half);
    const auto rise = [](Words all, Words part) {
        constexpr uint32_t kReciprocal = 4370;  // of 15, in 65536ths
        static_assert([] {
            for (uint32_t n = 0; n <= 256 * 60; ++n) {
                if ((n >> 2) * kReciprocal >> 16 != n / 60) return false;
            }
            return true;
        }());
        return HighProduct(all * part >> 2, kReciprocal);
    };
    return {lowest.low + rise(span.low, sixtieths.low), lowest.high + rise(span.high, sixtieths.high)};
}

}  // namespace tessary::TESSARY_VECTORS
