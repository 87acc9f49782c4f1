// The spline of tone curves and contours.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace tessary {

using ByteTable = std::array<uint8_t, 256>;

struct CurvePoint {
    uint16_t output = 0;
    uint16_t input = 0;  // at most 255 where a spline is drawn
    friend bool operator==(const CurvePoint&, const CurvePoint&) = default;
};

// Draws the segment from `from` to `to`; its neighbours bend it.
void DrawSplineSegment(ByteTable& table, const CurvePoint& before, const CurvePoint& from,
                       const CurvePoint& to, const CurvePoint& after);

// Draws a Catmull-Rom spline through pointAt(0) to pointAt(count - 1). Outputs are clamped to 255; entries
// outside the points stay as they are.
template <class PointAt>
void DrawSpline(ByteTable& table, size_t count, PointAt pointAt) {
    for (size_t i = 0; i + 1 < count; ++i) {
        DrawSplineSegment(table, pointAt(i > 0 ? i - 1 : 0), pointAt(i), pointAt(i + 1),
                          pointAt(std::min(i + 2, count - 1)));
    }
    for (size_t i = 0; i < count; ++i) {
        const CurvePoint point = pointAt(i);
        table[point.input] = static_cast<uint8_t>(std::min<uint16_t>(point.output, 255));
    }
}

}  // namespace tessary
