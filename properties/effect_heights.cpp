#include "properties/effect_heights.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "document/platform.h"

namespace tessary {
namespace {

constexpr size_t kStripColumns = 16;

struct HeightBlur {
    Owned<float>
        weights;  // of the centre, then of the places at distance 1, 2, ...; with both sides 1 in all
    size_t reach = 0;
    Owned<float> strip;  // 2 * reach + the longer side rows of kStripColumns
};

bool MakeBlur(int32_t radius, size_t longerSide, HeightBlur& blur) {
    const double last = 1.4 * radius;
    const double sigma = last / std::sqrt(2 * std::log(255.0));
    blur.reach = static_cast<size_t>(std::ceil(last));
    blur.weights = AllocateZeroed<float>({blur.reach + 1});
    blur.strip = AllocateZeroed<float>({longerSide + 2 * blur.reach, kStripColumns});
    if (!blur.weights || !blur.strip) return false;
    double sum = 0;
    for (size_t i = 0; i <= blur.reach; ++i) {
        const double distance = static_cast<double>(i);
        const double weight = std::trunc(255 * std::exp(-distance * distance / (2 * sigma * sigma)));
        blur.weights[i] = static_cast<float>(weight);
        sum += weight * (i == 0 ? 1 : 2);
    }
    for (float& weight : blur.weights.span()) weight = static_cast<float>(weight / sum);
    return true;
}

void BlurStripRow(const HeightBlur& blur, const float* center, float (&sums)[kStripColumns]) {
    for (size_t x = 0; x < kStripColumns; ++x) sums[x] = center[x] * blur.weights[0];
    for (size_t i = 1; i <= blur.reach; ++i) {
        const float weight = blur.weights[i];
        const float* const before = center - i * kStripColumns;
        const float* const behind = center + i * kStripColumns;
        for (size_t x = 0; x < kStripColumns; ++x) sums[x] += (before[x] + behind[x]) * weight;
    }
}

// Blurs lines of `length` values that lie `step` apart, neighbouring lines `lineStep` apart, in place.
void BlurLines(const HeightBlur& blur, float* values, size_t lines, size_t lineStep, size_t length,
               size_t step) {
    float* const first = blur.strip.get() + blur.reach * kStripColumns;
    std::memset(blur.strip.get(), 0, blur.strip.count() * sizeof(float));
    for (size_t line = 0; line < lines; line += kStripColumns) {
        const size_t width = std::min(kStripColumns, lines - line);
        size_t begin = length, end = 0;  // of what is not 0
        for (size_t y = 0; y < length; ++y) {
            float* const row = first + y * kStripColumns;
            const float* const from = values + line * lineStep + y * step;
            bool any = false;
            for (size_t x = 0; x < width; ++x) {
                row[x] = from[x * lineStep];
                any = any || row[x] != 0;
            }
            if (any && begin == length) begin = y;
            if (any) end = y + 1;
        }
        for (size_t y = 0; y < length; ++y) {
            float sums[kStripColumns] = {};
            if (y + blur.reach >= begin && y < end + blur.reach)
                BlurStripRow(blur, first + y * kStripColumns, sums);
            float* const to = values + line * lineStep + y * step;
            for (size_t x = 0; x < width; ++x) to[x * lineStep] = sums[x];
        }
    }
}

}  // namespace

PsdReadResult BlurHeights(const HeightPlane& plane, int32_t radius) {
    if (radius < 1) return PsdReadResult::kOk;
    const size_t columns = plane.Columns(), rows = plane.Rows();
    HeightBlur blur;
    if (!MakeBlur(radius, std::max(columns, rows), blur)) return PsdReadResult::kOutOfMemory;
    BlurLines(blur, plane.values.get(), rows, columns, columns, 1);
    BlurLines(blur, plane.values.get(), columns, 1, rows, columns);
    return PsdReadResult::kOk;
}

}  // namespace tessary
