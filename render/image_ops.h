// Primitives on pixel images. An image is rows of words, `rowPixels` words apart; rectangles are half-open
// and must lie inside the image.
#pragma once

#include <cstddef>
#include <cstdint>

#include "render/pixel.h"

namespace tessary {

void FillRect(uint32_t* pixels, size_t rowPixels, const Rect& rect, uint32_t color);

// Gives all pixels of alpha 0 the same colour.
void ReplaceTransparent(uint32_t* pixels, size_t count, uint32_t color);

// Bits without pattern for every key (the finaliser of a 64-bit counter generator).
uint64_t MixBits(uint64_t key);

// The noise at place `index`: -reach..reach, evenly, the same on every run.
int32_t NoiseAt(uint64_t seed, uint64_t index, int32_t reach);

// Moves every alpha of `count` pixels but 0 up or down by a pseudo-random share of `percent` (0..100) of 255,
// clamped. The noise of a pixel depends on `seed` and its place only, so every run gives the same picture.
void AddNoise(uint32_t* pixels, size_t count, uint32_t percent, uint64_t seed);

}  // namespace tessary
