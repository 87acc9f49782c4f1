#include "tests/support/sha256.h"

#include <bit>
#include <cmath>
#include <cstdio>

#include "document/big_endian.h"

namespace tessary::test {
namespace {

// The first 32 bits of the fractional part of a root.
uint32_t Fraction(long double root) {
    return static_cast<uint32_t>((root - std::floor(root)) * 4294967296.0L);
}

bool IsPrime(uint32_t n) {
    for (uint32_t i = 2; i * i <= n; ++i) {
        if (n % i == 0) return false;
    }
    return true;
}

}  // namespace

std::string Sha256(const Bytes& message) {
    uint32_t state[8], constants[64];
    for (uint32_t n = 2, count = 0; count < 64; ++n) {
        if (!IsPrime(n)) continue;
        if (count < 8) state[count] = Fraction(std::sqrt(static_cast<long double>(n)));
        constants[count++] = Fraction(std::cbrt(static_cast<long double>(n)));
    }
    ByteWriter padded;
    padded.Raw(message).U8(0x80).Zeros((119 - message.size() % 64) % 64);
    padded.U32(static_cast<uint32_t>(uint64_t{message.size()} >> 29))
        .U32(static_cast<uint32_t>(message.size() << 3));

    for (size_t block = 0; block < padded.size(); block += 64) {
        uint32_t w[64];
        for (size_t i = 0; i < 16; ++i) w[i] = LoadU32(padded.bytes().data() + block + 4 * i);
        for (size_t i = 16; i < 64; ++i) {
            const uint32_t a = w[i - 15], b = w[i - 2];
            w[i] = w[i - 16] + w[i - 7] + (std::rotr(a, 7) ^ std::rotr(a, 18) ^ a >> 3) +
                   (std::rotr(b, 17) ^ std::rotr(b, 19) ^ b >> 10);
        }
        uint32_t v[8];
        std::copy(std::begin(state), std::end(state), v);
        for (size_t i = 0; i < 64; ++i) {
            const uint32_t e = v[4], a = v[0];
            const uint32_t first = v[7] + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                                   ((e & v[5]) ^ (~e & v[6])) + constants[i] + w[i];
            const uint32_t second = (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) +
                                    ((a & v[1]) ^ (a & v[2]) ^ (v[1] & v[2]));
            for (size_t k = 7; k > 0; --k) v[k] = v[k - 1];
            v[4] += first;
            v[0] = first + second;
        }
        for (size_t i = 0; i < 8; ++i) state[i] += v[i];
    }
    std::string digits;
    for (const uint32_t word : state) {
        char text[9];
        std::snprintf(text, sizeof text, "%08x", word);
        digits += text;
    }
    return digits;
}

}  // namespace tessary::test
