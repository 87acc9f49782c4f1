// The loops behind adjustment_pixels.h, for the instruction set that pixel_vectors.h was asked for;
// part of its kernels.
#pragma once

#include "properties/adjustment_pixels.h"
#include "render/integer_hsl.h"
#include "render/pixel_vectors.h"

namespace tessary::TESSARY_VECTORS {

namespace {

// Rows are mapped in chunks, in loops over registers with the lookups between them.
constexpr size_t kChunk = 256;

// Calls mapChunk(pixels, n) for copies of up to kChunk pixels, which it changes; n is their number rounded up
// to whole registers.
template <class MapChunk>
void MapChunks(const uint32_t* in, uint32_t* out, size_t count, const MapChunk& mapChunk) {
    uint32_t pixels[kChunk] = {};
    for (size_t begin = 0; begin < count; begin += kChunk) {
        const size_t n = count - begin < kChunk ? count - begin : kChunk;
        std::memcpy(pixels, in + begin, n * sizeof *pixels);
        mapChunk(pixels, (n + kPixels - 1) / kPixels * kPixels);
        std::memcpy(out + begin, pixels, n * sizeof *pixels);
    }
}

Pixels PackOver(Pixels alphaOf, Pixels red, Pixels green, Pixels blue) {
    return (alphaOf & 0xFF000000) | red << 16 | green << 8 | blue;
}

// value + trunc(value * percent / 100), held in 0..255.
Floats ChangeByPercent(Floats value, Pixels percent) {
    const Floats changed = value + WholePart(value * ToFloats(percent) / 100.0f);
    return HigherOf(LowerOf(changed, 255.0f), 0.0f);
}

// The inks 0..255 of a pixel, in the bytes of a word.
Pixels InksOf(const Rgb<Floats>& color, Floats brightest) {
    // Black has no other ink: its three dividends are 0, and only the divisor must not be.
    const Floats divisor = HigherOf(brightest, 1.0f);
    const auto inkOf = [&](Floats channel) {
        return DividedByReciprocal((brightest - channel) * 255.0f, divisor, 255.0f);
    };
    return inkOf(color.red) | inkOf(color.green) << 8 | inkOf(color.blue) << 16 |
           Truncate(255.0f - brightest) << 24;
}

// Four products, cut to whole numbers.
__m128i CutProducts(__m128i shares, const double* values) {
#if defined(TESSARY_AVX2)
    return _mm256_cvttpd_epi32(_mm256_mul_pd(_mm256_cvtepi32_pd(shares), _mm256_loadu_pd(values)));
#else
    const __m128d low = _mm_cvtepi32_pd(shares), high = _mm_cvtepi32_pd(_mm_unpackhi_epi64(shares, shares));
    return _mm_unpacklo_epi64(_mm_cvttpd_epi32(_mm_mul_pd(low, _mm_loadu_pd(values))),
                              _mm_cvttpd_epi32(_mm_mul_pd(high, _mm_loadu_pd(values + 2))));
#endif
}

// The four inks of one pixel with what its hue and tone add, held in 0..255. Each part is cut by itself.
uint32_t AddInks(uint32_t inks, const SelectiveMap::HueValues& hue, const SelectiveMap::InkValues& tone,
                 int whole) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i bytes = _mm_cvtsi32_si128(static_cast<int>(inks));
    const __m128i own = _mm_unpacklo_epi16(_mm_unpacklo_epi8(bytes, zero), zero);
    const __m128i shares = _mm_or_si128(own, _mm_set1_epi32(whole));
    const __m128i ofHue =
        _mm_add_epi32(CutProducts(shares, hue.first.of), CutProducts(shares, hue.second.of));
    const __m128i sums = _mm_add_epi32(_mm_add_epi32(own, ofHue), CutProducts(shares, tone.of));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(_mm_packs_epi32(sums, zero), zero)));
}

void MapHueRow(const HueMap& map, const uint32_t* in, uint32_t* out, size_t count) {
    MapChunks(in, out, count, [&map](uint32_t* pixels, size_t n) {
        uint32_t hues[kChunk], saturations[kChunk], lightnesses[kChunk];
        for (size_t i = 0; i < n; i += kPixels) {
            const Hsl<Floats> hsl = RgbToHsl(ChannelsOf(Load(pixels + i)));
            Store(hues + i, Truncate(hsl.hue));
            Store(saturations + i, Truncate(hsl.saturation));
            Store(lightnesses + i, Truncate(hsl.lightness));
        }
        uint32_t shifts[kChunk];
        for (size_t i = 0; i < n; ++i) std::memcpy(shifts + i, &map.shifts[hues[i]], sizeof *shifts);
        for (size_t i = 0; i < n; i += kPixels) {
            const Pixels pixel = Load(pixels + i);
            const Pixels shift = Load(shifts + i);
            const Floats hue = ToFloats(Load(hues + i) + (shift & 0xFFFF));
            const Rgb<Floats> rgb = HslToRgb<Floats>(
                {hue - Where(hue >= 360.0f, 360.0f),
                 ChangeByPercent(ToFloats(Load(saturations + i)), SignedShift(shift << 8, 24)),
                 ChangeByPercent(ToFloats(Load(lightnesses + i)), SignedShift(shift, 24))});
            const Pixels mapped =
                PackOver(pixel, LowerOf(Truncate(rgb.red), 255), LowerOf(Truncate(rgb.green), 255),
                         LowerOf(Truncate(rgb.blue), 255));
            Store(pixels + i, Choose((shift & 0xFFFF) == 0xFFFF, pixel, mapped));
        }
    });
}

void MapSelectiveRow(const SelectiveMap& map, const uint32_t* in, uint32_t* out, size_t count) {
    MapChunks(in, out, count, [&map](uint32_t* pixels, size_t n) {
        uint32_t hues[kChunk], inks[kChunk];
        for (size_t i = 0; i < n; i += kPixels) {
            const Rgb<Floats> color = ChannelsOf(Load(pixels + i));
            Store(hues + i, Truncate(RgbToHsl(color).hue));
            Store(inks + i, InksOf(color, HigherOf(HigherOf(color.red, color.green), color.blue)));
        }
        for (size_t i = 0; i < n; ++i) {
            const uint32_t black = inks[i] >> 24;
            const SelectiveMap::InkValues& tone = map.tones[black == 0 ? 0 : black < 255 ? 1 : 2];
            inks[i] = AddInks(inks[i], map.hues[hues[i]], tone, map.whole);
        }
        for (size_t i = 0; i < n; i += kPixels) {
            const Pixels ink = Load(inks + i);
            const Pixels black = ink >> 24;
            const Pixels light = 255 - black;
            const Pixels brightest = 65535 - (black << 8);
            Store(pixels + i, PackOver(Load(pixels + i), (brightest - light * (ink & 255)) >> 8,
                                       (brightest - light * (ink >> 8 & 255)) >> 8,
                                       (brightest - light * (ink >> 16 & 255)) >> 8));
        }
    });
}

}  // namespace

}  // namespace tessary::TESSARY_VECTORS
