// Planes of any colour mode and depth to pixels, and single colours to pixels. Knows no document.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "document/plane_format.h"

namespace tessary {

// The planes of one image. Each plane is height rows of PlaneRowBytes(width, depth) bytes, samples as the
// file stores them: 1 bit (most significant bit first), 8 bits, 16 bits or 32-bit floats big-endian.
struct PlaneBlock {
    uint32_t colorMode = 0;  // PsdColorMode
    uint32_t depth = 8;
    uint32_t width = 0;
    uint32_t height = 0;
    // The transparency plane. Ignored (the image is opaque) unless planeCount is PlanesWithTransparency.
    const uint8_t* alpha = nullptr;
    const uint8_t* color[4] = {};            // colour planes in the mode's order; null = all samples 0
    uint32_t planeCount = 0;                 // planes the image has, transparency included, masks not
    std::span<const uint32_t> palette = {};  // ARGB; null: every pixel becomes 0
    int32_t transparencyIndex = -1;          // palette entry that is drawn with alpha 0; -1 = none
};

// Whether ConvertPlanes does anything with planes of this mode and depth.
bool ConvertsPlanes(const PlaneBlock& block);

// Converts the block to `pixels`, width x height words. 1 bit exists for bitmaps, 8 bits for all other modes,
// 16 and 32 bits for grayscale, duotone, RGB, CMYK and Lab; any other combination leaves the pixels as they
// are. Samples of 16 bits are cut to their high byte; floats are scaled by 255 and cut, those beyond 0..1
// wrap in 8 bits, and those that no 32-bit integer can hold are 0.
void ConvertPlanes(const PlaneBlock& block, uint32_t* pixels);

// Reduces `count` samples of 8, 16 or 32 bits to bytes; other depths leave `reduced` as it is. It may be the
// memory of `samples`: no byte is overwritten before it is read.
void ReduceSamples(const uint8_t* samples, uint32_t depth, size_t count, uint8_t* reduced);

// Truncates to a byte; what lies outside 0..1 is clamped and a value that is not a number becomes 0.
inline uint32_t FractionToByte(double value) {
    if (!(value > 0)) return 0;
    return value < 1 ? static_cast<uint32_t>(value * 255) : 255;
}

// Single colours, each one opaque unless `alpha` (0..255) says otherwise.
//   lightness 0..100, a and b around 0
uint32_t LabToArgb(uint32_t alpha, int32_t lightness, int32_t a, int32_t b);
//   fractions of ink
uint32_t CmykToArgb(double cyan, double magenta, double yellow, double black);
//   hue in degrees of either sign, saturation and brightness as fractions; brightness is taken as lightness,
//   and channels are clamped
uint32_t HsbToArgb(uint32_t alpha, int32_t hue, double saturation, double brightness);

}  // namespace tessary
