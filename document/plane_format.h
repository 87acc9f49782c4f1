// What the file format says of planes: the colour modes and their planes, rows and samples, compression
// codes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace tessary {

enum PsdColorMode : uint32_t {
    kColorBitmap = 0,
    kColorGrayscale = 1,
    kColorIndexed = 2,
    kColorRgb = 3,
    kColorCmyk = 4,
    kColorMultichannel = 7,
    kColorDuotone = 8,
    kColorLab = 9,
};

enum ChannelCompression : uint16_t {
    kCompressionRaw = 0,
    kCompressionPackBits = 1,
    kCompressionZip = 2,
    kCompressionZipPrediction = 3,
};

inline constexpr size_t kMostPlanes = 5;  // that an image is made of: process inks and a transparency

// How many bytes one stored byte can become at most; 0 for a compression code that does not exist.
constexpr uint32_t CompressionExpansion(uint16_t compression) {
    switch (compression) {
    case kCompressionRaw: return 1;
    case kCompressionPackBits: return 64;
    case kCompressionZip:
    case kCompressionZipPrediction: return 1032;
    default: return 0;
    }
}

inline constexpr uint32_t kMostExpansion = CompressionExpansion(kCompressionZip);

// Bytes of one row of a plane; 64 bits, so that any width fits. 0 for a depth that does not exist.
constexpr uint64_t PlaneRowBytes(uint64_t width, uint32_t depth) {
    switch (depth) {
    case 1: return (width + 7) / 8;
    case 8:
    case 16:
    case 32: return width * (depth / 8);
    default: return 0;
    }
}

// Bytes of a sample; 1 also for bits, of which a byte holds eight.
constexpr size_t SampleBytes(uint32_t depth) { return std::max<size_t>(depth / 8, 1); }

// Samples that so many bytes of a plane hold, the bits behind the end of a row included.
constexpr uint64_t SamplesIn(uint64_t bytes, uint32_t depth) {
    return depth == 1 ? 8 * bytes : bytes / SampleBytes(depth);
}

// How many planes an image of this mode has when one of them is its transparency plane: 2, 4 or 5; 0 for
// modes that have none. Any other count means that the image is opaque.
constexpr uint32_t PlanesWithTransparency(uint32_t colorMode) {
    switch (colorMode) {
    case kColorGrayscale:
    case kColorDuotone: return 2;
    case kColorRgb:
    case kColorLab: return 4;
    case kColorCmyk: return 5;
    default: return 0;
    }
}

// Colour planes that the conversion of a mode looks at: 1, 3 or 4. Four channels of a multichannel image are
// taken for process inks.
constexpr uint32_t ColorPlanesUsed(uint32_t colorMode, uint32_t planeCount) {
    switch (colorMode) {
    case kColorRgb:
    case kColorLab: return 3;
    case kColorCmyk: return 4;
    case kColorMultichannel: return planeCount == 4 ? 4 : 3;
    default: return 1;
    }
}

}  // namespace tessary
