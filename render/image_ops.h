// Primitives on pixel images. An image is rows of words, `rowPixels` words apart; rectangles are half-open
// and must lie inside the image.
#pragma once

#include <cstddef>
#include <cstdint>

#include "render/pixel.h"

namespace tessary {

void FillRect(uint32_t* pixels, size_t rowPixels, const Rect& rect, uint32_t color);

// Copies a block of width x height pixels; source and destination do not overlap.
void CopyRect(uint32_t* destination, size_t destinationRowPixels, const uint32_t* source,
              size_t sourceRowPixels, size_t width, size_t height);

// Moves the content of a width x height image by (dx, dy), each of any size, in place. What is uncovered
// becomes `fill`.
void ShiftImage(uint32_t* pixels, size_t width, size_t height, int32_t dx, int32_t dy, uint32_t fill);

// Gives `count` pixels the colour bytes of `color` and leaves their alpha.
void SetColorKeepAlpha(uint32_t* pixels, size_t count, uint32_t color);

// The noise at place `index`: -reach..reach, evenly, the same on every run.
int32_t NoiseAt(uint64_t seed, uint64_t index, int32_t reach);

// Moves every alpha but 0 up or down by a pseudo-random share of `percent` (0..100) of 255, clamped. The
// noise of a pixel depends on `seed` and its place in the image only, so every run gives the same picture.
void AddNoise(uint32_t* pixels, size_t width, size_t height, uint32_t percent, uint64_t seed);

}  // namespace tessary
