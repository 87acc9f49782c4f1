#include "document/prediction.h"

#include <emmintrin.h>

#include <algorithm>

#include "document/big_endian.h"

namespace tessary {
namespace {

void StoreU16(uint8_t* to, uint32_t value) {
    to[0] = static_cast<uint8_t>(value >> 8);
    to[1] = static_cast<uint8_t>(value);
}

// How far a row can be summed up in steps of one register; the caller goes on behind that.
size_t SumBytes(uint8_t* row, size_t count) {
    __m128i carry = _mm_setzero_si128();
    size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        __m128i* const at = reinterpret_cast<__m128i*>(row + i);
        __m128i sum = _mm_loadu_si128(at);
        sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 1));
        sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 2));
        sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 4));
        sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 8));
        _mm_storeu_si128(at, _mm_add_epi8(sum, carry));
        // The step's own total goes to every byte of the carry, so that steps wait for one addition only.
        __m128i last = _mm_srli_si128(sum, 15);
        last = _mm_unpacklo_epi8(last, last);
        last = _mm_shuffle_epi32(_mm_shufflelo_epi16(last, 0), 0);
        carry = _mm_add_epi8(carry, last);
    }
    return i;
}

__m128i SwapBytes16(__m128i words) {
    return _mm_or_si128(_mm_slli_epi16(words, 8), _mm_srli_epi16(words, 8));
}

size_t SumBigEndian16(uint8_t* row, size_t bytes) {
    __m128i carry = _mm_setzero_si128();
    size_t i = 0;
    for (; i + 16 <= bytes; i += 16) {
        __m128i* const at = reinterpret_cast<__m128i*>(row + i);
        __m128i sum = SwapBytes16(_mm_loadu_si128(at));
        sum = _mm_add_epi16(sum, _mm_slli_si128(sum, 2));
        sum = _mm_add_epi16(sum, _mm_slli_si128(sum, 4));
        sum = _mm_add_epi16(sum, _mm_slli_si128(sum, 8));
        _mm_storeu_si128(at, SwapBytes16(_mm_add_epi16(sum, carry)));
        __m128i last = _mm_srli_si128(sum, 14);
        last = _mm_shuffle_epi32(_mm_shufflelo_epi16(last, 0), 0);
        carry = _mm_add_epi16(carry, last);
    }
    return i;
}

}  // namespace

void UndoPrediction(uint8_t* row, size_t rowBytes, uint32_t depth) {
    switch (depth) {
    case 8:
        for (size_t i = std::max<size_t>(SumBytes(row, rowBytes), 1); i < rowBytes; ++i)
            row[i] = static_cast<uint8_t>(row[i] + row[i - 1]);
        break;
    case 16:
        for (size_t i = std::max<size_t>(SumBigEndian16(row, rowBytes), 2); i < rowBytes; i += 2)
            StoreU16(row + i, uint32_t{LoadU16(row + i)} + LoadU16(row + i - 2));
        break;
    case 32:
        // Nothing is carried from one sample to the next: each gets its own high half added to its low half,
        // and the row's last sample stays as it is.
        for (size_t i = 0; i + 4 < rowBytes; i += 4)
            StoreU16(row + i + 2, uint32_t{LoadU16(row + i)} + LoadU16(row + i + 2));
        break;
    default: break;
    }
}

}  // namespace tessary
