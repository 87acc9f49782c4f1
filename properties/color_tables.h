// What an adjustment that knows nothing but tables makes of a colour, and what several make one after
// another.
#pragma once

#include <array>
#include <cstdint>

#include "properties/curve_spline.h"
#include "render/pixel.h"

namespace tessary {

// A colour is the sum of three entries. Of adjustments that see nothing but the luminance, the sum in 256ths
// is that luminance, and `colors` has the colour.
struct ColorTables {
    using Table = std::array<uint32_t, 256>;
    Table red, green, blue;
    Table colors;  // 0x00RRGGBB
    bool isByLuminance = false;

    void SetChannels(const ByteTable& ofRed, const ByteTable& ofGreen, const ByteTable& ofBlue) {
        isByLuminance = false;
        for (size_t i = 0; i < 256; ++i) {
            red[i] = uint32_t{ofRed[i]} << 16;
            green[i] = uint32_t{ofGreen[i]} << 8;
            blue[i] = ofBlue[i];
        }
    }

    template <class ColorOf>
    void SetLuminance(const ColorOf& colorOf) {
        isByLuminance = true;
        for (uint32_t i = 0; i < 256; ++i) {
            red[i] = 77 * i;
            green[i] = 151 * i;
            blue[i] = 28 * i;
            colors[i] = colorOf(i) & 0x00FFFFFF;
        }
    }

    // Makes these tables do what `next` does to what they gave so far.
    void Append(const ColorTables& next) {
        if (isByLuminance) return next.MapRow(colors.data(), colors.data(), colors.size());
        for (size_t i = 0; i < 256; ++i) {
            red[i] = next.red[red[i] >> 16];
            green[i] = next.green[green[i] >> 8];
            blue[i] = next.blue[blue[i]];
        }
        colors = next.colors;
        isByLuminance = next.isByLuminance;
    }

    // Keeps the alpha bytes; `in` may be `out`.
    void MapRow(const uint32_t* in, uint32_t* out, size_t count) const {
        WithMap([&](const auto& map) {
            for (size_t i = 0; i < count; ++i) out[i] = map(in[i]);
        });
    }

    // Calls use(map) with the function of one pixel.
    template <class Use>
    void WithMap(const Use& use) const {
        const auto sumOf = [this](uint32_t pixel) {
            return red[Red(pixel)] + green[Green(pixel)] + blue[Blue(pixel)];
        };
        if (isByLuminance)
            use([&](uint32_t pixel) { return (pixel & 0xFF000000) | colors[sumOf(pixel) >> 8]; });
        else
            use([&](uint32_t pixel) { return (pixel & 0xFF000000) | sumOf(pixel); });
    }
};

}  // namespace tessary
