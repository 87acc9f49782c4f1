// Planes of heights, from which bevels take their light.
#pragma once

#include <cstddef>

#include "document/psd_document.h"

namespace tessary {

struct HeightPlane {
    Owned<float> values;
    Rect bounds;  // relative to the layer's upper left corner

    size_t Columns() const { return static_cast<size_t>(bounds.Width()); }
    size_t Rows() const { return static_cast<size_t>(bounds.Height()); }
    float* Row(size_t y) const { return values.get() + y * Columns(); }
};

// Blurs as the blur of shadows does, but rounds to nothing. Beyond the plane heights are 0. A radius below 1
// changes nothing. kOutOfMemory.
PsdReadResult BlurHeights(const HeightPlane& plane, int32_t radius);

}  // namespace tessary
