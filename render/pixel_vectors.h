// Several pixels in one register, for the loops over rows. A file includes this once and is compiled for one
// instruction set: SSE2, which every 64-bit processor has, or, when it defines TESSARY_AVX2 first, AVX2. All
// that stands in namespace TESSARY_VECTORS exists once for each of them, so that the linker cannot put code
// for the wider set into the place of the other.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "render/integer_hsl.h"

#if defined(TESSARY_AVX2)
#define TESSARY_VECTORS avx2
#define TESSARY_INTRINSIC(name) _mm256_##name
#else
#define TESSARY_VECTORS sse2
#define TESSARY_INTRINSIC(name) _mm_##name
#endif

namespace tessary::TESSARY_VECTORS {

#if defined(TESSARY_AVX2)
using IntegerRegister = __m256i;
using FloatRegister = __m256;
#else
using IntegerRegister = __m128i;
using FloatRegister = __m128;
#endif

inline constexpr size_t kPixels = sizeof(IntegerRegister) / 4;  // of one register

// A 32-bit number for each pixel. What is multiplied, its product and what LowerOf gets are below 2^16 or
// 2^15.
struct Pixels {
    IntegerRegister bits;

    Pixels(IntegerRegister all) : bits(all) {}
    Pixels(uint32_t each) : bits(TESSARY_INTRINSIC(set1_epi32)(static_cast<int>(each))) {}
};

// 16-bit numbers, four for each pixel, of half of the pixels. They wrap; comparisons are signed and give all
// ones or 0.
struct Words {
    IntegerRegister bits;

    Words(IntegerRegister all) : bits(all) {}
    Words(int32_t each) : bits(TESSARY_INTRINSIC(set1_epi16)(static_cast<int16_t>(each))) {}
};

// A float for each pixel. Comparisons give all ones or 0.
struct Floats {
    FloatRegister bits;

    Floats(FloatRegister all) : bits(all) {}
    Floats(float each) : bits(TESSARY_INTRINSIC(set1_ps)(each)) {}
};

// Where the two sets differ by more than the length of their names.
#if defined(TESSARY_AVX2)
inline IntegerRegister BitAnd(IntegerRegister a, IntegerRegister b) { return _mm256_and_si256(a, b); }
inline IntegerRegister BitOr(IntegerRegister a, IntegerRegister b) { return _mm256_or_si256(a, b); }
inline IntegerRegister BitXor(IntegerRegister a, IntegerRegister b) { return _mm256_xor_si256(a, b); }
inline IntegerRegister NotAnd(IntegerRegister a, IntegerRegister b) { return _mm256_andnot_si256(a, b); }
inline FloatRegister Equal(FloatRegister a, FloatRegister b) { return _mm256_cmp_ps(a, b, _CMP_EQ_OQ); }
inline FloatRegister AtLeast(FloatRegister a, FloatRegister b) { return _mm256_cmp_ps(a, b, _CMP_GE_OQ); }
inline FloatRegister Below(FloatRegister a, FloatRegister b) { return _mm256_cmp_ps(a, b, _CMP_LT_OQ); }
inline Pixels Load(const uint32_t* pixels) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels));
}
inline void Store(uint32_t* pixels, Pixels value) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(pixels), value.bits);
}
// A byte for each pixel.
inline Pixels LoadBytes(const uint8_t* bytes) {
    return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes)));
}
inline bool IsAllOnes(Pixels value) { return _mm256_movemask_epi8(value.bits) == -1; }
#else
inline IntegerRegister BitAnd(IntegerRegister a, IntegerRegister b) { return _mm_and_si128(a, b); }
inline IntegerRegister BitOr(IntegerRegister a, IntegerRegister b) { return _mm_or_si128(a, b); }
inline IntegerRegister BitXor(IntegerRegister a, IntegerRegister b) { return _mm_xor_si128(a, b); }
inline IntegerRegister NotAnd(IntegerRegister a, IntegerRegister b) { return _mm_andnot_si128(a, b); }
inline FloatRegister Equal(FloatRegister a, FloatRegister b) { return _mm_cmpeq_ps(a, b); }
inline FloatRegister AtLeast(FloatRegister a, FloatRegister b) { return _mm_cmpge_ps(a, b); }
inline FloatRegister Below(FloatRegister a, FloatRegister b) { return _mm_cmplt_ps(a, b); }
inline Pixels Load(const uint32_t* pixels) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels));
}
inline void Store(uint32_t* pixels, Pixels value) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pixels), value.bits);
}
// A byte for each pixel.
inline Pixels LoadBytes(const uint8_t* bytes) {
    int32_t four;
    std::memcpy(&four, bytes, sizeof four);
    const __m128i zero = _mm_setzero_si128();
    return _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(four), zero), zero);
}
inline bool IsAllOnes(Pixels value) { return _mm_movemask_epi8(value.bits) == 0xFFFF; }
#endif

inline Pixels operator+(Pixels a, Pixels b) { return TESSARY_INTRINSIC(add_epi32)(a.bits, b.bits); }
inline Pixels operator-(Pixels a, Pixels b) { return TESSARY_INTRINSIC(sub_epi32)(a.bits, b.bits); }
inline Pixels operator*(Pixels a, Pixels b) { return TESSARY_INTRINSIC(mullo_epi16)(a.bits, b.bits); }
inline Pixels operator>>(Pixels a, int n) { return TESSARY_INTRINSIC(srli_epi32)(a.bits, n); }
inline Pixels operator<<(Pixels a, int n) { return TESSARY_INTRINSIC(slli_epi32)(a.bits, n); }
inline Pixels SignedShift(Pixels a, int n) { return TESSARY_INTRINSIC(srai_epi32)(a.bits, n); }
inline Pixels operator&(Pixels a, Pixels b) { return BitAnd(a.bits, b.bits); }
inline Pixels operator|(Pixels a, Pixels b) { return BitOr(a.bits, b.bits); }
inline Pixels operator==(Pixels a, Pixels b) { return TESSARY_INTRINSIC(cmpeq_epi32)(a.bits, b.bits); }
inline Pixels operator>(Pixels a, Pixels b) { return TESSARY_INTRINSIC(cmpgt_epi32)(a.bits, b.bits); }
inline Pixels HigherOf(Pixels a, Pixels b) { return TESSARY_INTRINSIC(max_epi16)(a.bits, b.bits); }
inline Pixels LowerOf(Pixels a, Pixels b) { return TESSARY_INTRINSIC(min_epi16)(a.bits, b.bits); }
// Byte by byte.
inline Pixels LowerBytes(Pixels a, Pixels b) { return TESSARY_INTRINSIC(min_epu8)(a.bits, b.bits); }
inline Pixels HigherBytes(Pixels a, Pixels b) { return TESSARY_INTRINSIC(max_epu8)(a.bits, b.bits); }
inline Pixels Without(Pixels a, Pixels mask) { return NotAnd(mask.bits, a.bits); }
inline Pixels Choose(Pixels mask, Pixels a, Pixels b) { return (a & mask) | Without(b, mask); }

inline Words operator+(Words a, Words b) { return TESSARY_INTRINSIC(add_epi16)(a.bits, b.bits); }
inline Words operator-(Words a, Words b) { return TESSARY_INTRINSIC(sub_epi16)(a.bits, b.bits); }
inline Words operator*(Words a, Words b) { return TESSARY_INTRINSIC(mullo_epi16)(a.bits, b.bits); }
inline Words operator>>(Words a, int n) { return TESSARY_INTRINSIC(srli_epi16)(a.bits, n); }
inline Words operator<<(Words a, int n) { return TESSARY_INTRINSIC(slli_epi16)(a.bits, n); }
inline Words operator&(Words a, Words b) { return BitAnd(a.bits, b.bits); }
inline Words operator^(Words a, Words b) { return BitXor(a.bits, b.bits); }
inline Words operator>(Words a, Words b) { return TESSARY_INTRINSIC(cmpgt_epi16)(a.bits, b.bits); }
inline Words HighProduct(Words a, Words b) { return TESSARY_INTRINSIC(mulhi_epu16)(a.bits, b.bits); }
inline Words LowerOf(Words a, Words b) { return TESSARY_INTRINSIC(min_epi16)(a.bits, b.bits); }
inline Words HigherOf(Words a, Words b) { return TESSARY_INTRINSIC(max_epi16)(a.bits, b.bits); }

inline Floats operator+(Floats a, Floats b) { return TESSARY_INTRINSIC(add_ps)(a.bits, b.bits); }
inline Floats operator-(Floats a, Floats b) { return TESSARY_INTRINSIC(sub_ps)(a.bits, b.bits); }
inline Floats operator*(Floats a, Floats b) { return TESSARY_INTRINSIC(mul_ps)(a.bits, b.bits); }
inline Floats operator/(Floats a, Floats b) { return TESSARY_INTRINSIC(div_ps)(a.bits, b.bits); }
inline Floats operator==(Floats a, Floats b) { return Equal(a.bits, b.bits); }
inline Floats operator>=(Floats a, Floats b) { return AtLeast(a.bits, b.bits); }
inline Floats operator<(Floats a, Floats b) { return Below(a.bits, b.bits); }
// b where a is not a number.
inline Floats LowerOf(Floats a, Floats b) { return TESSARY_INTRINSIC(min_ps)(a.bits, b.bits); }
inline Floats HigherOf(Floats a, Floats b) { return TESSARY_INTRINSIC(max_ps)(a.bits, b.bits); }
inline Floats Where(Floats mask, Floats a) { return TESSARY_INTRINSIC(and_ps)(mask.bits, a.bits); }
inline Floats Choose(Floats mask, Floats a, Floats b) {
    return TESSARY_INTRINSIC(or_ps)(Where(mask, a).bits, TESSARY_INTRINSIC(andnot_ps)(mask.bits, b.bits));
}
inline Floats AbsoluteOf(Floats a) { return TESSARY_INTRINSIC(andnot_ps)(Floats(-0.0f).bits, a.bits); }

inline Floats ToFloats(Pixels a) { return TESSARY_INTRINSIC(cvtepi32_ps)(a.bits); }
inline Pixels Truncate(Floats a) { return TESSARY_INTRINSIC(cvttps_epi32)(a.bits); }
inline Floats WholePart(Floats a) { return ToFloats(Truncate(a)); }

// min(numerator / divisor, limit) cut to a whole number, and limit where the divisor is 0. Exact for whole
// numbers up to 65535 over 0..256 and limits up to 511.
inline Pixels Divided(Floats numerator, Floats divisor, float limit) {
    return Truncate(LowerOf(numerator / divisor, limit));
}
// The same for places where the processor's divider is busy or several numbers have one divisor. The first
// guess is wrong by up to 1 part in 2700, which leaves 1 in 2 million after a step of refinement; the
// reciprocal is made larger by 1 part in 500,000, enough to keep whole quotients from falling short, and too
// little to lift any other to the next whole number: those are away from it by 1 part in 130,000 at least.
inline Pixels DividedByReciprocal(Floats numerator, Floats divisor, float limit) {
    constexpr float kTwoAndMore = 2.0f + 1.0f / (1 << 19);
    const Floats guess = TESSARY_INTRINSIC(rcp_ps)(divisor.bits);
    const Floats reciprocal = guess * (kTwoAndMore - divisor * guess);  // no number for a divisor of 0
    return Truncate(LowerOf(numerator * reciprocal, limit));
}

inline Rgb<Floats> ChannelsOf(Pixels pixels) {
    return {ToFloats(pixels >> 16 & 255), ToFloats(pixels >> 8 & 255), ToFloats(pixels & 255)};
}

// The channels of some pixels, B, G, R, A of each. `low` and `high` hold half of the pixels each; which is
// which differs between the sets and matters to nobody, as long as all words come from these functions.
struct ChannelWords {
    Words low, high;
};
inline ChannelWords Spread(Pixels pixels) {
    const IntegerRegister zero = Words(0).bits;
    return {TESSARY_INTRINSIC(unpacklo_epi8)(pixels.bits, zero),
            TESSARY_INTRINSIC(unpackhi_epi8)(pixels.bits, zero)};
}
// Words from pairs of them.
inline ChannelWords Interleave(Pixels blueGreen, Pixels redAlpha) {
    return {TESSARY_INTRINSIC(unpacklo_epi32)(blueGreen.bits, redAlpha.bits),
            TESSARY_INTRINSIC(unpackhi_epi32)(blueGreen.bits, redAlpha.bits)};
}
// Words 0..255 back to pixels.
inline Pixels Gather(ChannelWords words) {
    return TESSARY_INTRINSIC(packus_epi16)(words.low.bits, words.high.bits);
}

// a * weights.first + b * weights.second for each pair of words of two registers, which hold 2 * kPixels
// words in the order of memory. The second weight is the upper half of `weights`; sums are signed 32-bit
// numbers.
struct WordSums {
    Pixels low, high;
};
inline WordSums SumOfProducts(Words a, Words b, Pixels weights) {
    return {TESSARY_INTRINSIC(madd_epi16)(TESSARY_INTRINSIC(unpacklo_epi16)(a.bits, b.bits), weights.bits),
            TESSARY_INTRINSIC(madd_epi16)(TESSARY_INTRINSIC(unpackhi_epi16)(a.bits, b.bits), weights.bits)};
}
inline Words LoadWords(const uint16_t* words) { return Load(reinterpret_cast<const uint32_t*>(words)).bits; }
inline void StoreSums(uint32_t* sums, WordSums value) {
#if defined(TESSARY_AVX2)
    Store(sums, _mm256_permute2x128_si256(value.low.bits, value.high.bits, 0x20));
    Store(sums + kPixels, _mm256_permute2x128_si256(value.low.bits, value.high.bits, 0x31));
#else
    Store(sums, value.low);
    Store(sums + kPixels, value.high);
#endif
}

}  // namespace tessary::TESSARY_VECTORS
