#include "properties/curve_spline.h"

#include "document/checked_math.h"

namespace tessary {
namespace {

// One coordinate along the segment from b to c, walked by forward differences in `kSteps` steps: the
// Catmull-Rom spline through a, b, c, d. With whole coordinates and a step that is a power of two every value
// is exact in double, so neither the order of the sums nor the number of steps already made matters.
struct SplineWalk {
    static constexpr int32_t kSteps = 512;

    double value, first, second, third;

    SplineWalk(double a, double b, double c, double d) {
        constexpr double kStep = 1.0 / kSteps;
        const double cubic = -0.5 * a + 1.5 * b - 1.5 * c + 0.5 * d;
        const double square = a - 2.5 * b + 2 * c - 0.5 * d;
        const double linear = -0.5 * a + 0.5 * c;
        value = b;
        first = cubic * (kStep * kStep * kStep) + square * (kStep * kStep) + linear * kStep;
        second = cubic * (6 * kStep * kStep * kStep) + square * (2 * kStep * kStep);
        third = cubic * (6 * kStep * kStep * kStep);
    }

    void Advance() {
        value += first;
        first += second;
        second += third;
    }

    uint8_t Rounded() const { return static_cast<uint8_t>(std::clamp(TruncateToInt32(value + 0.5), 0, 255)); }
};

}  // namespace

void DrawSplineSegment(ByteTable& table, const CurvePoint& before, const CurvePoint& from,
                       const CurvePoint& to, const CurvePoint& after) {
    SplineWalk x(before.input, from.input, to.input, after.input);
    SplineWalk y(before.output, from.output, to.output, after.output);
    uint8_t lastX = x.Rounded();
    uint8_t lastY = y.Rounded();
    for (int32_t step = 0; step < SplineWalk::kSteps; ++step) {
        x.Advance();
        y.Advance();
        // A column that is met several times keeps its last value, also when the curve runs back.
        if (x.Rounded() != lastX || y.Rounded() != lastY) table[x.Rounded()] = y.Rounded();
        lastX = x.Rounded();
        lastY = y.Rounded();
    }
}

}  // namespace tessary
