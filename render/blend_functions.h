// The blend modes: what a channel s of the layer and the same channel d of the canvas make, both 0..255. The
// shifts by 8 and 7 are the modes' own, no approximation of a division by 255. Nothing here branches, so that
// the loops over it vectorise.
#pragma once

#include <cstdint>

#include "render/integer_hsl.h"

namespace tessary {

struct BlendNormal {
    static constexpr int32_t Blend(int32_t s, int32_t) { return s; }
};
struct BlendDarken {
    static constexpr int32_t Blend(int32_t s, int32_t d) { return s < d ? s : d; }
};
struct BlendMultiply {
    static constexpr int32_t Blend(int32_t s, int32_t d) { return s * d >> 8; }
};
struct BlendLighten {
    static constexpr int32_t Blend(int32_t s, int32_t d) { return s > d ? s : d; }
};
struct BlendScreen {
    static constexpr int32_t Blend(int32_t s, int32_t d) { return 255 - ((255 - d) * (255 - s) >> 8); }
};
struct BlendLinearBurn {
    static constexpr int32_t Blend(int32_t s, int32_t d) { return s + d < 255 ? 0 : s + d - 255; }
};
struct BlendLinearDodge {
    static constexpr int32_t Blend(int32_t s, int32_t d) { return s + d < 255 ? s + d : 255; }
};

// (d * s) >> 7 when `turn` is 0; when it is 255, the same seen from white: 255 - (((255 - d) * (255 - s)) >>
// 7).
constexpr int32_t DoubledProduct(int32_t s, int32_t d, int32_t turn) {
    return ((s ^ turn) * (d ^ turn) >> 7) ^ turn;
}
struct BlendOverlay {
    static constexpr int32_t Blend(int32_t s, int32_t d) { return DoubledProduct(s, d, (d >> 7) * 255); }
};
struct BlendHardLight {
    static constexpr int32_t Blend(int32_t s, int32_t d) { return DoubledProduct(s, d, (s >> 7) * 255); }
};
struct BlendSoftLight {
    static constexpr int32_t Blend(int32_t s, int32_t d) {
        return ((d * s >> 8) * (255 - d) >> 8) + ((255 - ((255 - s) * (255 - d) >> 8)) * d >> 8);
    }
};
struct BlendPinLight {
    // d held between 2s - 256 and 2s: of the two bounds only one can bind. White leaves white at 254.
    static constexpr int32_t Blend(int32_t s, int32_t d) {
        const int32_t low = 2 * s - 256;
        const int32_t below = d < 2 * s ? d : 2 * s;
        return below > low ? below : low;
    }
};
struct BlendHardMix {
    static constexpr int32_t Blend(int32_t s, int32_t d) { return ((s + d) >> 8) * 255; }
};
struct BlendDifference {
    static constexpr int32_t Blend(int32_t s, int32_t d) { return (s > d ? s : d) - (s < d ? s : d); }
};
struct BlendExclusion {
    static constexpr int32_t Blend(int32_t s, int32_t d) { return d + s - (d * s >> 7); }
};

// min(numerator / divisor, limit) with the quotient rounded down, and limit where the divisor is 0. Exact for
// whole numbers up to 65535 over 0..255 and limits up to 511: the half keeps a whole quotient from falling
// short, and both additions stay far below a step of 1 / divisor.
constexpr int32_t LimitedQuotient(int32_t numerator, int32_t divisor, float limit) {
    const float quotient =
        (static_cast<float>(numerator) + 0.5f) / (static_cast<float>(divisor) + 1.0f / 4096.0f);
    return static_cast<int32_t>(quotient < limit ? quotient : limit);
}
struct BlendColorBurn {
    static constexpr int32_t Blend(int32_t s, int32_t d) {
        return 255 - LimitedQuotient((255 - d) * 256, s, 255.0f);
    }
};
struct BlendColorDodge {
    static constexpr int32_t Blend(int32_t s, int32_t d) { return LimitedQuotient(d * 256, 255 - s, 255.0f); }
};
// Not the usual formulas of these two names; they are this system's own.
struct BlendVividLight {
    static constexpr int32_t Blend(int32_t s, int32_t d) {
        // One quotient at its limit is enough for white, which is also the answer where a divisor is 0.
        const int32_t sum = LimitedQuotient(s * s, 255 - d, 511.0f) + LimitedQuotient(d * d, 255 - s, 511.0f);
        return sum < 511 ? sum >> 1 : 255;
    }
};
struct BlendLinearLight {
    static constexpr int32_t Blend(int32_t s, int32_t d) { return LimitedQuotient(s * s, 255 - d, 255.0f); }
};

// The modes that need all three channels of a pixel. Results go up to 256.
struct BlendHue {
    static IntegerRgb Blend(const IntegerHsl& s, const IntegerHsl& d) {
        return HslToRgb({s.hue, d.saturation, d.lightness});
    }
};
struct BlendSaturation {
    static IntegerRgb Blend(const IntegerHsl& s, const IntegerHsl& d) {
        return HslToRgb({d.hue, s.saturation, d.lightness});
    }
};
struct BlendColor {
    static IntegerRgb Blend(const IntegerHsl& s, const IntegerHsl& d) {
        return HslToRgb({s.hue, s.saturation, d.lightness});
    }
};
struct BlendLuminosity {
    static IntegerRgb Blend(const IntegerHsl& s, const IntegerHsl& d) {
        return HslToRgb({d.hue, d.saturation, s.lightness});
    }
};

}  // namespace tessary
