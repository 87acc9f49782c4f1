#include "properties/effect_blur.h"

#include <algorithm>
#include <cmath>

#include "document/platform.h"
#include "render/pixel.h"

namespace tessary {
namespace {

// Columns are blurred in strips: wide enough for the compiler's vectors, narrow enough that the rows under
// the kernel stay in the cache.
constexpr size_t kStripWidth = 64;

struct Kernel {
    Owned<uint16_t> weights;  // of the centre, then of the rows at distance 1, 2, ... on both sides
    uint32_t sum = 0;         // over both sides
};

bool MakeKernel(int32_t radius, Kernel& kernel) {
    const double reach = 1.4 * radius;
    const double sigma = reach / std::sqrt(2 * std::log(255.0));
    const size_t half = static_cast<size_t>(std::ceil(reach));
    kernel.weights = AllocateZeroed<uint16_t>({half + 1});
    if (!kernel.weights) return false;
    for (size_t i = 0; i <= half; ++i) {
        const double distance = static_cast<double>(i);
        kernel.weights[i] = static_cast<uint16_t>(255 * std::exp(-distance * distance / (2 * sigma * sigma)));
        kernel.sum += kernel.weights[i] * (i == 0 ? 1u : 2u);
    }
    return true;
}

// Blurs the columns of `plane` (rows of `columns` bytes) and writes the result with rows and columns
// exchanged, so that the same function makes both passes.
//   strip   2 * half + rows strips of kStripWidth samples
void BlurColumnsTransposed(const uint8_t* plane, size_t columns, size_t rows, const Kernel& kernel,
                           uint16_t* strip, uint8_t* transposed) {
    const size_t half = kernel.weights.count() - 1;
    uint16_t* const firstRow = strip + half * kStripWidth;  // behind the rows that are outside and stay 0
    for (size_t x0 = 0; x0 < columns; x0 += kStripWidth) {
        const size_t width = std::min(kStripWidth, columns - x0);
        for (size_t y = 0; y < rows; ++y) {
            for (size_t x = 0; x < width; ++x) firstRow[y * kStripWidth + x] = plane[y * columns + x0 + x];
        }
        for (size_t y = 0; y < rows; ++y) {
            const uint16_t* center = firstRow + y * kStripWidth;
            uint32_t sums[kStripWidth];
            for (size_t x = 0; x < kStripWidth; ++x) sums[x] = uint32_t{center[x]} * kernel.weights[0];
            const uint16_t* before = center;
            const uint16_t* after = center;
            for (size_t i = 1; i <= half; ++i) {
                before -= kStripWidth;
                after += kStripWidth;
                const uint16_t weight = kernel.weights[i];
                for (size_t x = 0; x < kStripWidth; ++x) {
                    const uint16_t pair = static_cast<uint16_t>(before[x] + after[x]);
                    sums[x] += uint32_t{pair} * weight;
                }
            }
            for (size_t x = 0; x < width; ++x) {
                transposed[(x0 + x) * rows + y] =
                    static_cast<uint8_t>((sums[x] + kernel.sum / 2) / kernel.sum);
            }
        }
    }
}

}  // namespace

PsdReadResult BlurAlpha(uint32_t* pixels, size_t width, size_t height, int32_t radius) {
    Kernel kernel;
    if (!MakeKernel(radius, kernel)) return PsdReadResult::kOutOfMemory;
    const size_t half = kernel.weights.count() - 1;
    const Owned<uint16_t> strip = AllocateZeroed<uint16_t>({std::max(width, height) + 2 * half, kStripWidth});
    Owned<uint8_t> plane = AllocateZeroed<uint8_t>({width, height});
    Owned<uint8_t> blurred = AllocateZeroed<uint8_t>({width, height});
    if (!strip || !plane || !blurred) return PsdReadResult::kOutOfMemory;

    for (size_t y = 0; y < height; ++y) {
        for (size_t x = 0; x < width; ++x)
            plane[x * height + y] = static_cast<uint8_t>(Alpha(pixels[y * width + x]));
    }
    BlurColumnsTransposed(plane.get(), height, width, kernel, strip.get(), blurred.get());
    std::fill_n(strip.get(), strip.count(),
                uint16_t{0});  // the second pass may have fewer rows than the first
    BlurColumnsTransposed(blurred.get(), width, height, kernel, strip.get(), plane.get());
    for (size_t y = 0; y < height; ++y) {
        for (size_t x = 0; x < width; ++x) {
            uint32_t& pixel = pixels[y * width + x];
            pixel = (pixel & 0x00FFFFFF) | uint32_t{plane[x * height + y]} << 24;
        }
    }
    return PsdReadResult::kOk;
}

}  // namespace tessary
