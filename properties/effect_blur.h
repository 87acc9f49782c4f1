// The Gaussian blur of shadows and glows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "document/psd_result.h"

namespace tessary {

// Blurs the alpha of a width x height image in place, first along the rows and then along the columns.
// Outside the image alpha counts as 0. Each of the two passes rounds to the nearest byte.
//   radius   pixels, above 0
// kOutOfMemory; the image is then as it was.
PsdReadResult BlurAlpha(uint32_t* pixels, size_t width, size_t height, int32_t radius);

}  // namespace tessary
