// The loops behind effect_blur.h, for the instruction set that pixel_vectors.h was asked for; part of its
// kernels.
#pragma once

#include "properties/effect_blur.h"
#include "render/pixel_vectors.h"

namespace tessary::TESSARY_VECTORS {

namespace {

// Sums of up to 2^17 each, times 255: their quotient by the kernel's sum, rounded. The product is less than
// 2^53, and the factor, less than 1 too large, adds less than a step of the quotient.
struct Divider {
    uint64_t half, factor;

    explicit Divider(uint64_t divisor) : half(divisor / 2), factor((uint64_t{1} << 44) / divisor + 1) {}
    uint8_t operator()(uint32_t value) const { return static_cast<uint8_t>((value + half) * factor >> 44); }
};

// One row of a strip from the rows around it, two distances at a time.
void BlurRow(const uint16_t* center, const BlurJob& job, uint32_t* sums) {
    constexpr size_t kColumns = 2 * kPixels;
    for (size_t x = 0; x < kBlurStripColumns; x += kColumns) {
        const uint16_t* const middle = center + x;
        const auto pair = [middle](size_t distance) {
            return LoadWords(middle - distance * kBlurStripColumns) +
                   LoadWords(middle + distance * kBlurStripColumns);
        };
        WordSums total = SumOfProducts(LoadWords(middle), 0, job.weights[0]);
        for (size_t i = 1; i < job.reach; i += 2) {
            uint32_t weights;
            std::memcpy(&weights, job.weights + i, sizeof weights);
            const WordSums products = SumOfProducts(pair(i), pair(i + 1), weights);
            total = {total.low + products.low, total.high + products.high};
        }
        StoreSums(sums + x, total);
    }
}

// Blurs `columns` columns of `rows` rows, some columns at a time: fetch(x, y) gives a byte, put(x, y, value)
// takes the blurred one, when all bytes of its columns have been fetched.
template <class Fetch, class Put>
void BlurColumns(const BlurJob& job, size_t columns, size_t rows, const Fetch& fetch, const Put& put) {
    const Divider divide(job.sum);
    uint16_t* const firstRow = job.strip + job.reach * kBlurStripColumns;  // rows around it are outside and 0
    std::memset(job.strip, 0, (rows + 2 * job.reach) * kBlurStripColumns * sizeof *job.strip);
    for (size_t x0 = 0; x0 < columns; x0 += kBlurStripColumns) {
        const size_t width = columns - x0 < kBlurStripColumns ? columns - x0 : size_t{kBlurStripColumns};
        for (size_t y = 0; y < rows; ++y) {
            for (size_t x = 0; x < width; ++x) firstRow[y * kBlurStripColumns + x] = fetch(x0 + x, y);
        }
        // The next row of the strip that differs from the one before: a row stays as it is when there is none
        // within the kernel's reach.
        size_t next = 1;
        for (size_t y = 0; y < rows; ++y) {
            const uint16_t* const center = firstRow + y * kBlurStripColumns;
            const size_t end = y + 2 * job.reach + 1;
            next = next > y ? next : y + 1;
            while (next < end && !std::memcmp(job.strip + next * kBlurStripColumns,
                                              job.strip + (next - 1) * kBlurStripColumns,
                                              kBlurStripColumns * sizeof *center))
                ++next;
            if (next == end) {
                for (size_t x = 0; x < width; ++x) put(x0 + x, y, static_cast<uint8_t>(center[x]));
                continue;
            }
            uint32_t sums[kBlurStripColumns];
            BlurRow(center, job, sums);
            for (size_t x = 0; x < width; ++x) put(x0 + x, y, divide(sums[x]));
        }
    }
}

void BlurAlpha(const BlurJob& job) {
    const auto get = [&job](size_t x, size_t y) {
        return static_cast<uint8_t>(job.pixels[y * job.width + x] >> 24);
    };
    const auto put = [&job](size_t x, size_t y, uint8_t alpha) {
        uint32_t& pixel = job.pixels[y * job.width + x];
        pixel = (pixel & 0x00FFFFFF) | uint32_t{alpha} << 24;
    };
    BlurColumns(
        job, job.height, job.width, [&get](size_t y, size_t x) { return get(x, y); },
        [&put](size_t y, size_t x, uint8_t alpha) { put(x, y, alpha); });
    BlurColumns(job, job.width, job.height, get, put);
}

}  // namespace

}  // namespace tessary::TESSARY_VECTORS
