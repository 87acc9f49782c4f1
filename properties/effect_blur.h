// The Gaussian blur of shadows and glows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "document/psd_result.h"
#include "render/vector_path.h"

namespace tessary {

// Blurs the alpha of a width x height image in place, first along the rows and then along the columns.
// Outside the image alpha counts as 0. Each of the two passes rounds to the nearest byte.
//   radius   pixels, 1..250
//   path     one that the processor has; all give the same bytes
// kOutOfMemory; the image is then as it was.
PsdReadResult BlurAlpha(uint32_t* pixels, size_t width, size_t height, int32_t radius,
                        VectorPath path = WidestVectorPath());

}  // namespace tessary
