#include "properties/effect_steps.h"

#include <algorithm>

#include "properties/curve_spline.h"
#include "properties/gradient_ramp.h"
#include "render/image_ops.h"

namespace tessary {
namespace {

template <class Map>
void MapAlpha(uint32_t* pixels, size_t count, Map map) {
    for (size_t i = 0; i < count; ++i) pixels[i] = (pixels[i] & 0x00FFFFFF) | map(Alpha(pixels[i])) << 24;
}

}  // namespace

void BoostAlpha(uint32_t* pixels, size_t count) {
    MapAlpha(pixels, count, [](uint32_t alpha) { return alpha < 24 ? 10 * alpha : 255; });
}

void ApplyRange(uint32_t* pixels, size_t count, int32_t rangePercent) {
    const uint32_t range = static_cast<uint32_t>(std::max(rangePercent, 1));
    MapAlpha(pixels, count, [range](uint32_t alpha) { return std::min(alpha * 100 / range, 255u); });
}

void BuildContourTable(const ContourSettings& contour, bool antiAlias, uint8_t (&table)[256]) {
    const std::span<const ContourPoint> points = contour.points.span();
    ByteTable curve;
    for (size_t i = 0; i < curve.size(); ++i) curve[i] = static_cast<uint8_t>(i);
    if (points.size() >= 2) {
        std::fill_n(curve.begin(), points.front().x, points.front().y);
        std::fill(curve.begin() + points.back().x, curve.end(), points.back().y);
        // A corner ends one spline and begins the next.
        for (size_t first = 0, i = 1; i < points.size(); ++i) {
            if (points[i].isSmooth && i + 1 != points.size()) continue;
            DrawSpline(curve, i - first + 1, [&](size_t k) {
                return CurvePoint{points[first + k].y, points[first + k].x};
            });
            first = i;
        }
    }
    for (size_t i = 0; i < curve.size(); ++i) {
        const bool atEnd = i == 0 || i == curve.size() - 1;
        table[i] = !antiAlias || atEnd
                       ? curve[i]
                       : static_cast<uint8_t>((curve[i - 1] + 2 * curve[i] + curve[i + 1] + 2) / 4);
    }
}

void ApplyContour(uint32_t* pixels, size_t count, const ContourSettings& contour, bool antiAlias) {
    if (contour.points.count < 2) return;
    uint8_t table[256];
    BuildContourTable(contour, antiAlias, table);
    MapAlpha(pixels, count, [&table](uint32_t alpha) { return uint32_t{table[alpha]}; });
}

PsdReadResult MapThroughGradient(uint32_t* pixels, size_t count, const GradientSettings& gradient,
                                 int32_t jitterPercent, uint64_t seed) {
    if (!HasRamp(gradient)) return PsdReadResult::kOk;
    GradientRamp ramp;
    const PsdReadResult result = MakeRamp(gradient, GradientMethod::kBytes, ramp);
    if (result != PsdReadResult::kOk) return result;
    double places[256];
    for (int32_t i = 0; i < 256; ++i) places[i] = i / 255.0;
    uint32_t colors[256];
    DrawRamp(ramp, places, 256, colors);
    const int32_t reach = std::clamp(jitterPercent, 0, 100) * 255 / 100;
    for (size_t i = 0; i < count; ++i) {
        const uint32_t alpha = Alpha(pixels[i]);
        if (alpha == 0) continue;
        int32_t index = static_cast<int32_t>(255 - alpha);
        if (reach) index = std::clamp(index + NoiseAt(seed, i, reach), 0, 255);
        pixels[i] = colors[index];
    }
    return PsdReadResult::kOk;
}

}  // namespace tessary
