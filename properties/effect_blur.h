// The Gaussian blur of shadows and glows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "document/psd_result.h"
#include "render/kernels.h"

namespace tessary {

// Blurs the alpha of a width x height image in place, first along the rows and then along the columns.
// Outside the image alpha counts as 0. Each of the two passes rounds to the nearest byte.
//   radius   pixels, 1..250
// kOutOfMemory; the image is then as it was.
PsdReadResult BlurAlpha(uint32_t* pixels, size_t width, size_t height, int32_t radius,
                        const Kernels& kernels = WidestKernels());

// What a blur works with. Borrows everything.
struct BlurJob {
    uint32_t* pixels;
    size_t width, height;
    // Of the centre, then of the places at distance 1, 2, ... on both sides, the last of which is `reach`.
    // That is even; where the kernel is not, its last weight is 0.
    const uint16_t* weights;
    size_t reach;
    uint64_t sum;     // of all weights on both sides
    uint16_t* strip;  // 2 * reach + max(width, height) rows of kBlurStripColumns
};

inline constexpr size_t kBlurStripColumns = 16;

}  // namespace tessary
