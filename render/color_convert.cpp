#include "render/color_convert.h"

#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "document/big_endian.h"
#include "document/checked_math.h"
#include "render/lab_convert.h"
#include "render/pixel.h"

namespace tessary {
namespace {

constexpr uint32_t kBeyondPalette = 0xFFFEFEFE;

// Samples of every depth become bytes in pieces of this many, so that each mode needs one loop only.
constexpr size_t kChunk = 1024;

constexpr auto kAbsentSamples = std::array<uint8_t, kChunk>{};
constexpr auto kOpaqueSamples = [] {
    std::array<uint8_t, kChunk> samples{};
    samples.fill(255);
    return samples;
}();

// Values above 1 and below 0 wrap. The product of a float and 255 is exact in double precision.
uint8_t ReduceFloat(const uint8_t* sample) {
    return static_cast<uint8_t>(TruncateToInt32(LoadFloat(sample) * 255.0));
}

// One piece of an image, every sample a byte. None of the pointers is null.
struct Chunk {
    const uint8_t* alpha;
    const uint8_t* color[4];
    const uint32_t* palette;  // 256 entries
};

// Both bytes are stored as 255 - ink. Equals (65535 - (255 - x) * k - 256 * (255 - k)) >> 8, so full ink
// without black is 1, not 0.
constexpr uint32_t InkToByte(uint32_t x, uint32_t k) { return (255 + k * (x + 1)) >> 8; }

__m128i Load16(const uint8_t* bytes) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)); }

void Store16(uint32_t* pixels, __m128i alpha, __m128i red, __m128i green, __m128i blue) {
    __m128i* const out = reinterpret_cast<__m128i*>(pixels);
    const __m128i lowBg = _mm_unpacklo_epi8(blue, green), highBg = _mm_unpackhi_epi8(blue, green);
    const __m128i lowRa = _mm_unpacklo_epi8(red, alpha), highRa = _mm_unpackhi_epi8(red, alpha);
    _mm_storeu_si128(out, _mm_unpacklo_epi16(lowBg, lowRa));
    _mm_storeu_si128(out + 1, _mm_unpackhi_epi16(lowBg, lowRa));
    _mm_storeu_si128(out + 2, _mm_unpacklo_epi16(highBg, highRa));
    _mm_storeu_si128(out + 3, _mm_unpackhi_epi16(highBg, highRa));
}

// The first pixels of a chunk, sixteen at a time; tells how many. The compiler's own way to bytes in words
// takes several times as long.
size_t PackSteps(const uint8_t* alpha, const uint8_t* red, const uint8_t* green, const uint8_t* blue,
                 uint32_t* pixels, size_t count) {
    size_t i = 0;
    for (; i + 16 <= count; i += 16)
        Store16(pixels + i, Load16(alpha + i), Load16(red + i), Load16(green + i), Load16(blue + i));
    return i;
}

// InkToByte: no sum is above 16 bits.
__m128i InkToBytes(__m128i x, __m128i k) {
    const __m128i zero = _mm_setzero_si128(), one = _mm_set1_epi16(1), round = _mm_set1_epi16(255);
    const auto half = [&](__m128i xs, __m128i ks) {
        return _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(ks, _mm_add_epi16(xs, one)), round), 8);
    };
    return _mm_packus_epi16(half(_mm_unpacklo_epi8(x, zero), _mm_unpacklo_epi8(k, zero)),
                            half(_mm_unpackhi_epi8(x, zero), _mm_unpackhi_epi8(k, zero)));
}

size_t InkSteps(const Chunk& in, uint32_t* pixels, size_t count) {
    size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m128i k = Load16(in.color[3] + i);
        const auto ink = [&](int plane) { return InkToBytes(Load16(in.color[plane] + i), k); };
        Store16(pixels + i, Load16(in.alpha + i), ink(0), ink(1), ink(2));
    }
    return i;
}

void PackPixels(const uint8_t* alpha, const uint8_t* red, const uint8_t* green, const uint8_t* blue,
                uint32_t* pixels, size_t count) {
    for (size_t i = PackSteps(alpha, red, green, blue, pixels, count); i < count; ++i)
        pixels[i] = PackPixel(alpha[i], red[i], green[i], blue[i]);
}

void GrayChunk(const Chunk& in, uint32_t* pixels, size_t count) {
    PackPixels(in.alpha, in.color[0], in.color[0], in.color[0], pixels, count);
}

void IndexedChunk(const Chunk& in, uint32_t* pixels, size_t count) {
    const uint8_t* index = in.color[0];
    const uint32_t* palette = in.palette;
    for (size_t i = 0; i < count; ++i) pixels[i] = palette[index[i]];
}

void RgbChunk(const Chunk& in, uint32_t* pixels, size_t count) {
    PackPixels(in.alpha, in.color[0], in.color[1], in.color[2], pixels, count);
}

void CmykChunk(const Chunk& in, uint32_t* pixels, size_t count) {
    for (size_t i = InkSteps(in, pixels, count); i < count; ++i) {
        const uint32_t k = in.color[3][i];
        const auto ink = [&](int plane) { return InkToByte(in.color[plane][i], k); };
        pixels[i] = PackPixel(in.alpha[i], ink(0), ink(1), ink(2));
    }
}

void MultichannelChunk(const Chunk& in, uint32_t* pixels, size_t count) {
    const uint8_t* red = in.color[0];
    const uint8_t* green = in.color[1];
    const uint8_t* blue = in.color[2];
    const auto scale = [](uint32_t x) { return (x + 2) * 255 >> 8; };
    for (size_t i = 0; i < count; ++i) {
        pixels[i] = PackPixel(255, scale(red[i]), scale(green[i]), scale(blue[i]));
    }
}

void LabChunk(const Chunk& in, uint32_t* pixels, size_t count) {
    ConvertLab(in.alpha, in.color[0], in.color[1], in.color[2], pixels, count);
}

struct ModeRow {
    uint32_t colorMode;
    bool allDepths;  // else 8 bits only
    void (*convert)(const Chunk& in, uint32_t* pixels, size_t count);
};

// Bitmaps are not here: their samples are bits.
constexpr ModeRow kModes[] = {
    {kColorGrayscale, true, GrayChunk},
    {kColorDuotone, true, GrayChunk},
    {kColorIndexed, false, IndexedChunk},
    {kColorRgb, true, RgbChunk},
    {kColorCmyk, true, CmykChunk},
    {kColorLab, true, LabChunk},
    {kColorMultichannel, false, MultichannelChunk},
};
// Four channels of which nothing else is known are taken for process inks.
constexpr ModeRow kFourChannels = {kColorMultichannel, false, CmykChunk};

const ModeRow* FindMode(uint32_t colorMode, uint32_t planeCount) {
    if (colorMode == kColorMultichannel && planeCount == 4) return &kFourChannels;
    for (const ModeRow& row : kModes) {
        if (row.colorMode == colorMode) return &row;
    }
    return nullptr;
}

void ConvertBitmap(const PlaneBlock& block, uint32_t* pixels) {
    const size_t width = block.width;
    const size_t rowBytes = static_cast<size_t>(PlaneRowBytes(width, 1));
    for (size_t y = 0; y < block.height; ++y) {
        uint32_t* out = pixels + y * width;
        if (!block.color[0]) {
            std::fill_n(out, width, 0xFFFFFFFFu);
            continue;
        }
        const uint8_t* bits = block.color[0] + y * rowBytes;
        // A set bit is black.
        const auto pixelOf = [](uint32_t bit) { return 0xFFFFFFFFu - (bit & 1) * 0x00FFFFFFu; };
        for (size_t x = 0; x < width / 8 * 8; x += 8) {
            for (uint32_t i = 0; i < 8; ++i) out[x + i] = pixelOf(uint32_t{bits[x / 8]} >> (7 - i));
        }
        for (size_t x = width / 8 * 8; x < width; ++x) out[x] = pixelOf(uint32_t{bits[x / 8]} >> (7 - x % 8));
    }
}

std::array<uint32_t, 256> FullPalette(const PlaneBlock& block) {
    std::array<uint32_t, 256> palette{};
    if (!block.palette.data()) return palette;
    palette.fill(kBeyondPalette);
    std::copy_n(block.palette.begin(), std::min(block.palette.size(), palette.size()), palette.begin());
    if (block.transparencyIndex >= 0 && block.transparencyIndex < 256) {
        palette[static_cast<size_t>(block.transparencyIndex)] &= 0x00FFFFFF;
    }
    return palette;
}

}  // namespace

bool ConvertsPlanes(const PlaneBlock& block) {
    if (block.colorMode == kColorBitmap && block.depth == 1) return true;
    const ModeRow* mode = FindMode(block.colorMode, block.planeCount);
    return mode && (block.depth == 8 || (mode->allDepths && (block.depth == 16 || block.depth == 32)));
}

void ConvertPlanes(const PlaneBlock& block, uint32_t* pixels) {
    // Without a width there may be four billion rows of nothing.
    if (block.width == 0) return;
    if (block.colorMode == kColorBitmap && block.depth == 1) return ConvertBitmap(block, pixels);
    if (!ConvertsPlanes(block)) return;
    const ModeRow* mode = FindMode(block.colorMode, block.planeCount);
    const bool transparent = block.alpha && block.planeCount == PlanesWithTransparency(block.colorMode);
    const auto palette = mode->colorMode == kColorIndexed ? FullPalette(block) : std::array<uint32_t, 256>{};
    const uint32_t colors = ColorPlanesUsed(block.colorMode, block.planeCount);
    const size_t sampleBytes = block.depth / 8;
    uint8_t reduced[5][kChunk];
    // Rows of whole bytes leave no gaps, so the rows are one run of samples.
    const size_t end = size_t{block.height} * block.width;
    for (size_t at = 0; at < end; at += kChunk) {
        const size_t count = std::min(kChunk, end - at);
        const auto bytesOf = [&](const uint8_t* plane, uint8_t* storage, const uint8_t* absent) {
            if (!plane) return absent;
            const uint8_t* samples = plane + at * sampleBytes;
            if (sampleBytes == 1) return samples;
            ReduceSamples(samples, block.depth, count, storage);
            return static_cast<const uint8_t*>(storage);
        };
        Chunk chunk;
        chunk.alpha = bytesOf(transparent ? block.alpha : nullptr, reduced[4], kOpaqueSamples.data());
        for (size_t i = 0; i < 4; ++i) {
            const uint8_t* plane = i < colors ? block.color[i] : nullptr;
            chunk.color[i] = bytesOf(plane, reduced[i], kAbsentSamples.data());
        }
        chunk.palette = palette.data();
        mode->convert(chunk, pixels + at, count);
    }
}

void ReduceSamples(const uint8_t* samples, uint32_t depth, size_t count, uint8_t* reduced) {
    if (depth == 8) {
        if (reduced != samples && count) std::memcpy(reduced, samples, count);
    } else if (depth == 16) {
        size_t i = 0;
        const __m128i high = _mm_set1_epi16(0xFF);
        for (; i + 16 <= count; i += 16) {
            const __m128i first = _mm_and_si128(Load16(samples + 2 * i), high);
            const __m128i second = _mm_and_si128(Load16(samples + 2 * i + 16), high);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(reduced + i), _mm_packus_epi16(first, second));
        }
        for (; i < count; ++i) reduced[i] = samples[2 * i];
    } else if (depth == 32) {
        for (size_t i = 0; i < count; ++i) reduced[i] = ReduceFloat(samples + 4 * i);
    }
}

uint32_t CmykToArgb(double cyan, double magenta, double yellow, double black) {
    // The fraction is cut to an integer before it is scaled, so a channel is 255 without any ink, else 0.
    const auto channel = [black](double ink) -> uint32_t {
        return 1 - ((1 - black) * ink + black) >= 1 ? 255 : 0;
    };
    return PackPixel(255, channel(cyan), channel(magenta), channel(yellow));
}

uint32_t HsbToArgb(uint32_t alpha, int32_t hue, double saturation, double brightness) {
    const double lightness = brightness;
    if (saturation == 0) {
        const uint32_t gray = FractionToByte(lightness);
        return PackPixel(alpha, gray, gray, gray);
    }
    const double high =
        lightness > 0.5 ? saturation + lightness - saturation * lightness : (saturation + 1) * lightness;
    const double low = 2 * lightness - high;
    // The remainder keeps the sign of the angle: a negative one takes the first branch and falls below `low`.
    const auto channel = [&](int64_t angle) {
        const int64_t degrees = angle % 360;
        double value = low;
        if (degrees < 60) {
            value = low + (high - low) * static_cast<double>(degrees) / 60;
        } else if (degrees < 180) {
            value = high;
        } else if (degrees < 240) {
            value = low + (high - low) * static_cast<double>(240 - degrees) / 60;
        }
        return FractionToByte(value);
    };
    return PackPixel(alpha, channel(int64_t{hue} + 120), channel(hue), channel(int64_t{hue} - 120));
}

}  // namespace tessary
