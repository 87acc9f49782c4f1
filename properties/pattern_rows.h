// Rows of pixels from the tiles of a pattern.
#pragma once

#include "properties/effect_paint.h"

namespace tessary {

// Of a paint that is a pattern: `count` pixels from (x, y) of the canvas on, at most kPaintRun.
void PatternRow(const Paint& paint, int64_t x, int64_t y, size_t count, uint32_t* pixels);

}  // namespace tessary
