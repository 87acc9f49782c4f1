#include "render/lab_convert.h"

#include <emmintrin.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>

#include "render/color_convert.h"
#include "render/pixel.h"

namespace tessary {
namespace {

struct LinearRgb {
    double red, green, blue;
};

double CubeOfLab(double t) {
    const double cube = t * t * t;
    return cube > 0.008856 ? cube : t * 0.1284191601386927;
}

double YOfLab(int32_t lightness) { return CubeOfLab((lightness + 16.0) / 116) * 100.0 / 100; }
double XOfLab(int32_t lightness, int32_t a) {
    return CubeOfLab((lightness + 16.0) / 116 + a * 0.002) * 95.047 / 100;
}
double ZOfLab(int32_t lightness, int32_t b) {
    return CubeOfLab((lightness + 16.0) / 116 - b * 0.005) * 108.883 / 100;
}

LinearRgb LabToLinear(int32_t lightness, int32_t a, int32_t b) {
    const double x = XOfLab(lightness, a), y = YOfLab(lightness), z = ZOfLab(lightness, b);
    return {3.2406 * x - 1.5372 * y - 0.4986 * z, -0.9689 * x + 1.8758 * y + 0.0415 * z,
            0.0557 * x - 0.2040 * y + 1.0570 * z};
}

uint32_t EncodeGamma(double linear) {
    return FractionToByte(linear > 0.0031308 ? 1.055 * std::pow(linear, 1 / 2.4) - 0.055 : 12.92 * linear);
}

// What the stored bytes, which know 100 lightnesses and 256 values each of a and b, give with LabToArgb.
// Linear colours are taken in floats, as numbers of cells. They are less than kDoubt of a cell away from the
// formula's doubles, which decide where a byte ends so close to the sum.
struct LabTables {
    static constexpr int32_t kRows = 100 * 256;
    static constexpr int32_t kCells = 1 << 16;
    static constexpr int32_t kFirstCell = INT16_MIN;  // so that packing cuts what lies beside the cells
    static constexpr double kCellsOfOne = kCells - 64;
    static constexpr double kDoubt = 0.125;
    static constexpr uint16_t kIsUncertain = 256;
    static constexpr uint32_t kBlack = 128;  // both rows of it: the curve does not get there

    alignas(
        16) float y[100][4];   // what it adds to blue, green and red, and what makes the fourth a place of 0
    float x[kRows], z[kRows];  // lightness * 256 + a or b
    double first[257];         // the least value that gives this byte; none does for the last
    float firstOfCells[257];   // the same as a number of cells
    uint16_t cells[kCells];    // the least byte, from kFirstCell on; of those above 1 it is 255

    LabTables() {
        const auto inCells = [](double value) { return static_cast<float>(value * kCellsOfOne); };
        for (int32_t i = 0; i < kRows; ++i) {
            const int32_t lightness = i / 256, ab = i % 256 - 128;
            const double ofY = YOfLab(lightness);
            const float inY[] = {inCells(-0.2040 * ofY), inCells(1.8758 * ofY), inCells(-1.5372 * ofY),
                                 -kFirstCell};
            std::ranges::copy(inY, y[lightness]);
            x[i] = inCells(XOfLab(lightness, ab));
            z[i] = inCells(ZOfLab(lightness, ab));
        }
        first[0] = 0;
        first[256] = std::numeric_limits<double>::infinity();
        for (uint32_t n = 1; n <= 255; ++n) {
            // Positive doubles are ordered as their bit patterns are.
            uint64_t below = 0, reached = std::bit_cast<uint64_t>(2.0);
            while (reached - below > 1) {
                const uint64_t middle = below + (reached - below) / 2;
                (EncodeGamma(std::bit_cast<double>(middle)) >= n ? reached : below) = middle;
            }
            first[n] = std::bit_cast<double>(reached);
        }
        std::transform(first, std::end(first), firstOfCells,
                       [](double value) { return static_cast<float>(value * kCellsOfOne); });
        FillCells();
    }

    void FillCells() {
        uint32_t byte = 0;
        for (int32_t cell = 0; cell < kCells; ++cell) {
            while (first[byte + 1] * kCellsOfOne < cell - kDoubt) ++byte;
            const bool isUncertain = first[byte + 1] * kCellsOfOne <= cell + 1 + kDoubt;
            cells[PlaceOf(cell)] = static_cast<uint16_t>(byte | (isUncertain ? kIsUncertain : 0));
        }
        uint16_t places[8];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(places),
                         _mm_packs_epi32(Places(Sum(kBlack, kBlack)), _mm_setzero_si128()));
        cells[places[2]] |= kIsUncertain;
    }
    static uint16_t PlaceOf(int32_t cell) { return static_cast<uint16_t>(cell + kFirstCell); }

    // Blue, green and red of two rows.
    __m128 Sum(size_t ofA, size_t ofB) const {
        const __m128 inX = _mm_mul_ps(_mm_set1_ps(x[ofA]), _mm_setr_ps(0.0557f, -0.9689f, 3.2406f, 0));
        const __m128 inZ = _mm_mul_ps(_mm_set1_ps(z[ofB]), _mm_setr_ps(1.0570f, 0.0415f, -0.4986f, 0));
        return _mm_add_ps(_mm_add_ps(inX, _mm_load_ps(y[ofA / 256])), inZ);
    }
    // Where the cells of four sums lie.
    static __m128i Places(__m128 sum) {
        return _mm_add_epi32(_mm_cvttps_epi32(sum), _mm_set1_epi32(kFirstCell));
    }
    uint32_t Settled(uint32_t pixel, uint16_t ofA, uint16_t ofB) const;
};

// From the least bytes of a colour's cells. The floats tell but for a few pixels.
uint32_t LabTables::Settled(uint32_t pixel, uint16_t ofA, uint16_t ofB) const {
    if (ofA == kBlack && ofB == kBlack) return pixel & 0xFF000000;
    const uint32_t blue = Blue(pixel) + 1, green = Green(pixel) + 1, red = Red(pixel) + 1;
    const __m128 next = _mm_setr_ps(firstOfCells[blue], firstOfCells[green], firstOfCells[red], 0);
    const __m128 beyond = _mm_sub_ps(Sum(ofA, ofB), next), doubt = _mm_set1_ps(float{kDoubt});
    const int reaches = _mm_movemask_ps(_mm_cmpgt_ps(beyond, doubt));
    const int fallsShort = _mm_movemask_ps(_mm_cmplt_ps(beyond, _mm_sub_ps(_mm_setzero_ps(), doubt)));
    uint32_t steps = static_cast<uint32_t>(reaches);
    if ((reaches | fallsShort) != 15) {
        const int32_t lightness = ofA / 256, a = ofA % 256 - 128, b = ofB % 256 - 128;
        const LinearRgb linear = LabToLinear(lightness, a, b);
        steps = (linear.blue >= first[blue] ? 1u : 0u) | (linear.green >= first[green] ? 2u : 0u) |
                (linear.red >= first[red] ? 4u : 0u);
    }
    return pixel + (steps & 1) + ((steps & 2) << 7) + ((steps & 4) << 14);
}

constexpr size_t kLabStage = 128;

// In stages, because only those without lookups take several pixels at once. At most kLabStage pixels, in
// fours.
void LabFours(const LabTables& tables, const uint8_t* alpha, const uint8_t* light, const uint8_t* a,
              const uint8_t* b, uint32_t* pixels, size_t count) {
    uint16_t ofA[kLabStage], ofB[kLabStage];
    for (size_t i = 0; i < count; ++i) {
        const uint32_t row = light[i] * 100u & 0xFF00;
        ofA[i] = static_cast<uint16_t>(row | a[i]);
        ofB[i] = static_cast<uint16_t>(row | b[i]);
    }
    alignas(16) uint16_t places[4 * kLabStage];  // blue, green, red and 0 of each pixel
    for (size_t i = 0; i < count; i += 2) {
        const auto placesOf = [&](size_t k) { return LabTables::Places(tables.Sum(ofA[k], ofB[k])); };
        _mm_store_si128(reinterpret_cast<__m128i*>(places + 4 * i),
                        _mm_packs_epi32(placesOf(i), placesOf(i + 1)));
    }
    for (size_t i = 0; i < 4 * count; i += 4) {
        for (size_t channel = 0; channel < 3; ++channel)
            places[i + channel] = tables.cells[places[i + channel]];
    }
    uint8_t uncertain[kLabStage / 4];
    size_t uncertainCount = 0;
    for (size_t i = 0; i < count; i += 4) {
        const __m128i zero = _mm_setzero_si128(), bytes = _mm_set1_epi16(255);
        const __m128i* const in = reinterpret_cast<const __m128i*>(places + 4 * i);
        const __m128i low = _mm_load_si128(in), high = _mm_load_si128(in + 1);
        const __m128i color = _mm_packus_epi16(_mm_and_si128(low, bytes), _mm_and_si128(high, bytes));
        int32_t alphas;
        std::memcpy(&alphas, alpha + i, sizeof alphas);
        const __m128i words = _mm_unpacklo_epi8(zero, _mm_cvtsi32_si128(alphas));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(pixels + i),
                         _mm_or_si128(color, _mm_unpacklo_epi16(zero, words)));
        uncertain[uncertainCount] = static_cast<uint8_t>(i);
        uncertainCount += _mm_movemask_epi8(_mm_cmpgt_epi16(_mm_or_si128(low, high), bytes)) != 0;
    }
    for (size_t k = 0; k < uncertainCount; ++k) {
        for (size_t i = uncertain[k]; i < size_t{uncertain[k]} + 4; ++i)
            pixels[i] = tables.Settled(pixels[i], ofA[i], ofB[i]);
    }
}

}  // namespace

void ConvertLab(const uint8_t* alpha, const uint8_t* light, const uint8_t* a, const uint8_t* b,
                uint32_t* pixels, size_t count) {
    static const LabTables tables;
    const size_t fours = count / 4 * 4;
    for (size_t at = 0; at < fours; at += kLabStage)
        LabFours(tables, alpha + at, light + at, a + at, b + at, pixels + at,
                 std::min(kLabStage, fours - at));
    for (size_t i = fours; i < count; ++i)
        pixels[i] = LabToArgb(alpha[i], light[i] * 100 >> 8, a[i] - 128, b[i] - 128);
}

uint32_t LabToArgb(uint32_t alpha, int32_t lightness, int32_t a, int32_t b) {
    // The curve does not reach black by itself: without this, lightness 0 would be a dark gray.
    if (lightness == 0 && a == 0 && b == 0) return PackPixel(alpha, 0, 0, 0);
    const LinearRgb linear = LabToLinear(lightness, a, b);
    return PackPixel(alpha, EncodeGamma(linear.red), EncodeGamma(linear.green), EncodeGamma(linear.blue));
}

}  // namespace tessary
