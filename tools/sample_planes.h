// The planes that a picture has in a document of some mode and depth.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "tools/document_builder.h"
#include "tools/sample_picture.h"

namespace tessary::tools {

using test::Bytes;
using test::ByteWriter;

inline Bytes AlphaOf(const Picture& picture) {
    Bytes samples;
    for (const uint32_t pixel : picture.pixels) samples.push_back(static_cast<uint8_t>(pixel >> 24));
    return samples;
}

inline double Luma(uint32_t pixel) {
    return (0.299 * Red(pixel) + 0.587 * Green(pixel) + 0.114 * Blue(pixel)) / 255;
}

// The sample of one stored channel, 0 to 1. The channel behind the colours is an oval of transparency.
inline double Sample(uint32_t mode, uint32_t channel, uint32_t pixel, double oval) {
    const std::array<double, 3> rgb = {Red(pixel) / 255.0, Green(pixel) / 255.0, Blue(pixel) / 255.0};
    const double brightest = std::max({rgb[0], rgb[1], rgb[2]});
    const auto cube = [&](double x, double y, double z) {
        const auto linear = [](double v) {
            return v > 0.04045 ? std::pow((v + 0.055) / 1.055, 2.4) : v / 12.92;
        };
        return std::cbrt(x * linear(rgb[0]) + y * linear(rgb[1]) + z * linear(rgb[2]));
    };
    const double fy = cube(0.2126, 0.7152, 0.0722);
    if (mode == kColorGrayscale || mode == kColorDuotone) return channel == 0 ? Luma(pixel) : oval;
    if (mode == kColorCmyk && channel < 3) return brightest > 0 ? rgb[channel] / brightest : 1;
    if (mode == kColorCmyk && channel == 3) return brightest;
    if (mode == kColorLab && channel == 0) return std::max(1.16 * fy - 0.16, 0.0);
    if (mode == kColorLab && channel == 1) return (500 * (cube(0.4339, 0.3762, 0.1899) - fy) + 128) / 255;
    if (mode == kColorLab && channel == 2) return (200 * (fy - cube(0.0178, 0.1094, 0.8728)) + 128) / 255;
    return channel < 3 ? rgb[channel] : oval;
}

inline Bytes PlanesOf(const Picture& picture, uint32_t mode, uint32_t depth, uint32_t channels) {
    ByteWriter planes;
    const double rx = picture.width / 2.0, ry = picture.height / 2.0;
    for (uint32_t channel = 0; channel < channels; ++channel) {
        for (size_t i = 0; i < picture.pixels.size(); ++i) {
            const Point p = picture.At(i);
            const double oval = std::clamp((1.05 - std::hypot(p.x / rx - 1, p.y / ry - 1)) * 12, 0.0, 1.0);
            const double value = std::clamp(Sample(mode, channel, picture.pixels[i], oval), 0.0, 1.0);
            if (depth == 8) planes.U8(static_cast<uint32_t>(value * 255 + 0.5));
            if (depth == 16) planes.U16(static_cast<uint32_t>(value * 65535 + 0.5));
            if (depth == 32) planes.F32(static_cast<float>(value));
        }
    }
    return planes;
}

// Ordered dither, 0 to 1.
inline double Bayer(Point p) {
    const uint32_t x = static_cast<uint32_t>(p.x), y = static_cast<uint32_t>(p.y);
    uint32_t value = 0;
    for (int bit = 0; bit < 3; ++bit) value = value << 2 | ((x ^ y) >> bit & 1) << 1 | (y >> bit & 1);
    return (value + 0.5) / 64;
}

inline Bytes BitmapPlane(const Picture& picture) {
    Bytes plane;
    const size_t width = static_cast<size_t>(picture.width);
    for (size_t i = 0; i < picture.pixels.size(); ++i) {
        if (i % width % 8 == 0) plane.push_back(0);
        const bool black = Luma(picture.pixels[i]) < Bayer(picture.At(i));
        plane.back() = static_cast<uint8_t>(plane.back() | (black ? 128 >> (i % width % 8) : 0));
    }
    return plane;
}

// Indices into a palette of 6 x 6 x 6 colours; index 216 surrounds the oval.
inline constexpr uint8_t kTransparentEntry = 216;
inline Bytes IndexedPlane(const Picture& picture) {
    Bytes plane;
    for (size_t i = 0; i < picture.pixels.size(); ++i) {
        const Point p = picture.At(i);
        const auto level = [&](uint32_t byte) {
            return static_cast<uint32_t>(byte / 51.0 + Bayer(p) * 0.98);
        };
        const uint32_t pixel = picture.pixels[i];
        const uint32_t index = level(Red(pixel)) * 36 + level(Green(pixel)) * 6 + level(Blue(pixel));
        const bool inside = std::hypot(p.x * 2 / picture.width - 1, p.y * 2 / picture.height - 1) < 1;
        plane.push_back(inside ? static_cast<uint8_t>(index) : kTransparentEntry);
    }
    return plane;
}

inline Bytes PaletteTables() {
    ByteWriter tables;
    for (const uint32_t step : {36u, 6u, 1u}) {
        for (uint32_t i = 0; i < 256; ++i) tables.U8(i < 216 ? i / step % 6 * 51 : 255);
    }
    return tables;
}

}  // namespace tessary::tools
