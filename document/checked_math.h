// Sizes that cannot wrap unnoticed, and conversions that are defined for every value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>

namespace tessary {

// The product of the factors, or nothing when it does not fit in size_t.
inline std::optional<size_t> CheckedProduct(std::initializer_list<uint64_t> factors) {
    size_t product = 1;
    for (const uint64_t factor : factors) {
        if (factor > std::numeric_limits<size_t>::max()) return std::nullopt;
        const size_t next = static_cast<size_t>(factor);
        if (next != 0 && product > std::numeric_limits<size_t>::max() / next) return std::nullopt;
        product *= next;
    }
    return product;
}

// Truncates toward zero. Values that do not fit in 32 bits, infinities and NaN give 0.
constexpr int32_t TruncateToInt32(double value) {
    return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int32_t>(value) : 0;
}

// Sums of 32-bit file values that wrap by definition. Taken in 64 bits, so that every other sum that wraps
// can be reported as a fault.
template <class T>
constexpr T WrapAdd(T a, T b) {
    static_assert(sizeof(T) == 4);
    return static_cast<T>(int64_t{a} + int64_t{b});
}
template <class T>
constexpr T WrapSubtract(T a, T b) {
    static_assert(sizeof(T) == 4);
    return static_cast<T>(int64_t{a} - int64_t{b});
}

// Marks a function whose sums and products of 64 bits wrap on purpose.
#if defined(__clang__)
#define TESSARY_WRAPS __attribute__((no_sanitize("unsigned-integer-overflow")))
#else
#define TESSARY_WRAPS
#endif

}  // namespace tessary
