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

// Two's complement sums of file values.
constexpr int32_t WrapAdd(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
constexpr int32_t WrapSubtract(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

}  // namespace tessary
