// The blend modes: what a channel s of the layer and the same channel d of the canvas make, both 0..255. The
// shifts by 8 and 7 are the modes' own, no approximation of a division by 255. Words are registers full of
// 16-bit channels, which wrap and so hold every product of two bytes.
#pragma once

#include "render/hsl_vectors.h"
#include "render/pixel_vectors.h"

namespace tessary::TESSARY_VECTORS {

struct BlendNormal {
    static Words Blend(Words s, Words) { return s; }
};
struct BlendDarken {
    static Words Blend(Words s, Words d) { return LowerOf(s, d); }
};
struct BlendMultiply {
    static Words Blend(Words s, Words d) { return s * d >> 8; }
};
struct BlendLighten {
    static Words Blend(Words s, Words d) { return HigherOf(s, d); }
};
struct BlendScreen {
    static Words Blend(Words s, Words d) { return 255 - ((255 - d) * (255 - s) >> 8); }
};
struct BlendLinearBurn {
    static Words Blend(Words s, Words d) { return HigherOf(s + d - 255, 0); }
};
struct BlendLinearDodge {
    static Words Blend(Words s, Words d) { return LowerOf(s + d, 255); }
};

// (d * s) >> 7 when `turn` is 0; when it is 255, the same seen from white: 255 - (((255 - d) * (255 - s)) >>
// 7).
inline Words DoubledProduct(Words s, Words d, Words turn) { return ((s ^ turn) * (d ^ turn) >> 7) ^ turn; }
struct BlendOverlay {
    static Words Blend(Words s, Words d) { return DoubledProduct(s, d, (d > 127) & 255); }
};
struct BlendHardLight {
    static Words Blend(Words s, Words d) { return DoubledProduct(s, d, (s > 127) & 255); }
};
struct BlendSoftLight {
    static Words Blend(Words s, Words d) {
        return ((d * s >> 8) * (255 - d) >> 8) + ((255 - ((255 - s) * (255 - d) >> 8)) * d >> 8);
    }
};
struct BlendPinLight {
    // d held between 2s - 256 and 2s: of the two bounds only one can bind. White leaves white at 254.
    static Words Blend(Words s, Words d) { return HigherOf(LowerOf(d, s + s), s + s - 256); }
};
struct BlendHardMix {
    static Words Blend(Words s, Words d) { return (s + d > 255) & 255; }
};
struct BlendDifference {
    static Words Blend(Words s, Words d) { return HigherOf(s, d) - LowerOf(s, d); }
};
struct BlendExclusion {
    static Words Blend(Words s, Words d) { return d + s - (d * s >> 7); }
};

// The modes that divide take one channel of each pixel.
struct BlendColorBurn {
    static Pixels Blend(Floats s, Floats d) { return 255 - Divided((255.0f - d) * 256.0f, s, 255.0f); }
};
struct BlendColorDodge {
    static Pixels Blend(Floats s, Floats d) { return Divided(d * 256.0f, 255.0f - s, 255.0f); }
};
// Not the usual formulas of these two names; they are this system's own.
struct BlendVividLight {
    static Pixels Blend(Floats s, Floats d) {
        // One quotient at its limit is enough for white, which is also the answer where a divisor is 0. A
        // processor divides beside its other work, so that two ways are faster than one way twice.
        const Pixels sum =
            DividedByReciprocal(s * s, 255.0f - d, 511.0f) + Divided(d * d, 255.0f - s, 511.0f);
        return LowerOf(sum >> 1, 255);
    }
};
struct BlendLinearLight {
    static Pixels Blend(Floats s, Floats d) { return Divided(s * s, 255.0f - d, 255.0f); }
};

// The modes that take hue, saturation and lightness from the layer or the canvas. Results go up to 256.
template <bool kHue, bool kSaturation, bool kLightness>
struct BlendHsl {
    static ChannelWords BlendColors(Pixels layer, Pixels canvas) {
        const ChannelExtremes s(layer), d(canvas);
        return ColorOf(SixtiethsOf(kHue ? layer : canvas, kHue ? s : d), SaturationOf(kSaturation ? s : d),
                       LightnessOf(kLightness ? s : d));
    }
};
using BlendHue = BlendHsl<true, false, false>;
using BlendSaturation = BlendHsl<false, true, false>;
using BlendColor = BlendHsl<true, true, false>;
using BlendLuminosity = BlendHsl<false, false, true>;

// A mode that no layer can have leaves the colours alone.
struct BlendNothing {
    static Words Blend(Words, Words d) { return d; }
};

template <class Mode>
inline constexpr bool kReaches256 = requires(Pixels s, Pixels d) {
    Mode::BlendColors(s, d);
};

// What a mode makes of whole pixels. The word of alpha is anything.
template <class Mode>
ChannelWords BlendPixels(Pixels layer, Pixels canvas) {
    if constexpr (requires(Words s, Words d) { Mode::Blend(s, d); }) {
        const ChannelWords s = Spread(layer), d = Spread(canvas);
        return {Mode::Blend(s.low, d.low), Mode::Blend(s.high, d.high)};
    } else if constexpr (kReaches256<Mode>) {
        return Mode::BlendColors(layer, canvas);
    } else {
        const Rgb<Floats> s = ChannelsOf(layer), d = ChannelsOf(canvas);
        return ToWords(Mode::Blend(s.red, d.red), Mode::Blend(s.green, d.green), Mode::Blend(s.blue, d.blue));
    }
}

}  // namespace tessary::TESSARY_VECTORS
