// How one pixel of a layer meets one pixel of the canvas, said as plainly as can be: no rows, no stages, no
// tables. The renderer is compared with it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "document/psd_document.h"

namespace tessary::test {

inline int PlainBlend(uint32_t mode, int s, int d) {
    switch (mode) {
    case kBlendNormal: return s;
    case kBlendDarken: return std::min(s, d);
    case kBlendMultiply: return s * d / 256;
    case kBlendColorBurn: {
        if (s == 0) return 0;
        const int q = (255 - d) * 256 / s;
        return q > 255 ? 0 : 255 - q;
    }
    case kBlendLinearBurn: return s < 255 - d ? 0 : s + d - 255;
    case kBlendLighten: return std::max(s, d);
    case kBlendScreen: return 255 - (255 - d) * (255 - s) / 256;
    case kBlendColorDodge: return s == 255 ? 255 : std::min(d * 256 / (255 - s), 255);
    case kBlendLinearDodge: return std::min(s + d, 255);
    case kBlendOverlay: return d < 128 ? d * s / 128 : 255 - (255 - d) * (255 - s) / 128;
    case kBlendSoftLight:
        return (d * s / 256) * (255 - d) / 256 + (255 - (255 - s) * (255 - d) / 256) * d / 256;
    case kBlendHardLight: return s > 127 ? 255 - (255 - d) * (255 - s) / 128 : d * s / 128;
    case kBlendVividLight:
        if (s == 255 || d == 255) return 255;
        return std::min((s * s / (255 - d) + d * d / (255 - s)) / 2, 255);
    case kBlendLinearLight: return d == 255 ? 255 : std::min(s * s / (255 - d), 255);
    case kBlendPinLight: return s < 128 ? std::min(d, 2 * s) : std::max(2 * s - 256, d);
    case kBlendHardMix: return s + d > 255 ? 255 : 0;
    case kBlendDifference: return std::abs(d - s);
    case kBlendExclusion: return d + s - d * s / 128;
    default: return d;
    }
}

struct PlainColor {
    int c[3];  // R, G, B or H, S, L
};

inline PlainColor ColorOf(uint32_t pixel) {
    return {{static_cast<int>(Red(pixel)), static_cast<int>(Green(pixel)), static_cast<int>(Blue(pixel))}};
}

inline PlainColor PlainToHsl(const PlainColor& rgb) {
    const auto [r, g, b] = rgb.c;
    const int high = std::max({r, g, b}), low = std::min({r, g, b}), span = high - low;
    const int l = (high + low + 1) / 2;
    if (span == 0) return {{0, 0, l}};
    const int s = span * 255 / (l >= 128 ? 511 - high - low : high + low);
    const int h = r == high   ? (g - b) * 60 / span
                  : g == high ? (b - r) * 60 / span + 120
                              : (r - g) * 60 / span + 240;
    return {{(h + 360) % 360, s, l}};
}

inline PlainColor PlainToRgb(const PlainColor& hsl) {
    const auto [hue, s, l] = hsl.c;
    if (s == 0) return {{l, l, l}};
    const int t = s * l / 256, m2 = l + (l < 128 ? t : s - t), m1 = 2 * l - m2;
    PlainColor rgb{};
    for (int i = 0; i < 3; ++i) {
        const int turns[] = {120, 0, 240};
        const int h = (hue + turns[i]) % 360;
        rgb.c[i] = h < 60    ? m1 + (m2 - m1) * h / 60
                   : h < 180 ? m2
                   : h < 240 ? m1 + (m2 - m1) * (240 - h) / 60
                             : m1;
    }
    return rgb;
}

inline PlainColor PlainBlendColor(uint32_t mode, const PlainColor& s, const PlainColor& d) {
    if (mode < kBlendHue || mode > kBlendLuminosity) {
        return {{PlainBlend(mode, s.c[0], d.c[0]), PlainBlend(mode, s.c[1], d.c[1]),
                 PlainBlend(mode, s.c[2], d.c[2])}};
    }
    const PlainColor a = PlainToHsl(s), b = PlainToHsl(d);
    if (mode == kBlendHue) return PlainToRgb({{a.c[0], b.c[1], b.c[2]}});
    if (mode == kBlendSaturation) return PlainToRgb({{b.c[0], a.c[1], b.c[2]}});
    if (mode == kBlendColor) return PlainToRgb({{a.c[0], a.c[1], b.c[2]}});
    return PlainToRgb({{b.c[0], b.c[1], a.c[2]}});
}

// What a layer brings to each of its pixels.
struct PlainLayer {
    uint32_t mode = kBlendNormal;
    bool fast = false;  // Normal of its own, in no group with a mode
    bool ranges = false;
    int opacity = 255;
    uint32_t keep = 0;  // excluded channels
};

// The canvas pixel afterwards.
//   coverage   the layer's alpha under its mask
//   passes     whether the pair lies inside the blending ranges
inline uint32_t PlainPixel(const PlainLayer& rule, uint32_t layer, int coverage, uint32_t canvas, bool passes,
                           int noise) {
    const int da = static_cast<int>(Alpha(canvas));
    const uint32_t color = layer & 0xFFFFFF;
    const uint32_t kept = (layer & ~rule.keep) | (canvas & rule.keep);
    if (coverage == 0) return canvas;
    const bool normal = rule.fast && rule.mode == kBlendNormal;
    if (!passes && (normal || da != 0 || !rule.ranges)) return canvas;
    if (rule.mode == kBlendDissolve && !rule.ranges) {
        const int t = coverage * 256 / (da * (256 - coverage) / 256 + coverage);
        return coverage == 255 || noise <= t ? 0xFF000000 | color : canvas;
    }
    int alpha = coverage * rule.opacity / 256;
    if (normal && rule.opacity == 255) {
        alpha = coverage;
        if (alpha == 255 && rule.ranges) return 0xFF000000 | kept;
        if (!rule.ranges && (alpha == 255 || da == 0)) return layer;
    }
    if (da == 0 && !(normal && rule.ranges)) return static_cast<uint32_t>(alpha) << 24 | color;
    const int divisor = (256 - alpha) * da / 256 + alpha;
    const int w = da == 255 ? alpha : divisor == 0 ? 256 : alpha * 256 / divisor;
    if (rule.mode == kBlendDissolve) {
        return w != 0 && (w == 255 || noise <= w) ? 0xFF000000 | kept : canvas;
    }
    const int newAlpha = da == 255 ? 255 : da + (256 - da) * alpha / 256;
    const PlainColor d = ColorOf(canvas), b = PlainBlendColor(rule.mode, ColorOf(layer), d);
    uint32_t mixed = 0;
    for (int i = 0; i < 3; ++i) {
        const int value = ((d.c[i] * 256) + (b.c[i] - d.c[i]) * w) >> 8;
        mixed = mixed << 8 | static_cast<uint32_t>(std::min(value, 255));
    }
    return static_cast<uint32_t>(newAlpha) << 24 | (mixed & ~rule.keep) | (canvas & rule.keep & 0xFFFFFF);
}

}  // namespace tessary::test
