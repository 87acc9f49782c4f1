#include "properties/effect_buffers.h"

#include <cmath>
#include <cstring>

#include "render/coverage.h"
#include "render/image_ops.h"

namespace tessary {

int32_t BlurReach(int32_t radius) { return radius > 0 ? (14 * radius + 9) / 10 : 0; }

bool GrowLayer(const PsdLayer& layer, int32_t columns, int32_t rows, Rect& grown) {
    const int64_t right = int64_t{layer.width} + columns, bottom = int64_t{layer.height} + rows;
    if (right > INT32_MAX || bottom > INT32_MAX) return false;
    grown = {-columns, -rows, static_cast<int32_t>(right), static_cast<int32_t>(bottom)};
    return true;
}

PsdReadResult PrepareBuffer(EffectBuffer& buffer, const Rect& bounds) {
    buffer.pixels.Reset();
    buffer.pixels = AllocateZeroed<uint32_t>(
        {static_cast<uint64_t>(bounds.Width()), static_cast<uint64_t>(bounds.Height())});
    buffer.bounds = bounds;
    return buffer.pixels ? PsdReadResult::kOk : PsdReadResult::kOutOfMemory;
}

void CropBuffer(EffectBuffer& buffer, const Rect& bounds) {
    if (bounds == buffer.bounds) return;
    const size_t from = static_cast<size_t>(buffer.bounds.Width()), to = static_cast<size_t>(bounds.Width());
    const size_t left = static_cast<size_t>(int64_t{bounds.left} - buffer.bounds.left);
    const size_t top = static_cast<size_t>(int64_t{bounds.top} - buffer.bounds.top);
    uint32_t* const pixels = buffer.pixels.get();
    for (size_t y = 0; y < static_cast<size_t>(bounds.Height()); ++y)
        std::memmove(pixels + y * to, pixels + (top + y) * from + left, to * sizeof(uint32_t));
    buffer.bounds = bounds;
}

void CoverageAt(const PsdLayer& layer, int64_t x, int64_t y, size_t count, uint8_t* coverage) {
    const int64_t begin = std::clamp<int64_t>(x, 0, layer.width);
    const int64_t end = std::clamp<int64_t>(x + static_cast<int64_t>(count), begin, layer.width);
    if (y < 0 || y >= layer.height || begin == end) {
        std::memset(coverage, 0, count);
        return;
    }
    const size_t before = static_cast<size_t>(begin - x), inside = static_cast<size_t>(end - begin);
    std::memset(coverage, 0, before);
    std::memset(coverage + before + inside, 0, count - before - inside);
    const uint32_t* const pixels =
        layer.image.get() + static_cast<size_t>(y) * static_cast<size_t>(layer.width) + begin;
    CoverageRow(pixels, inside, layer.mask, static_cast<int32_t>(layer.bounds.left + begin),
                static_cast<int32_t>(layer.bounds.top + y), coverage + before);
}

PsdReadResult MakeCoverage(const PsdLayer& layer, const Rect& bounds, bool isInverse, CoveragePlane& plane) {
    plane.columns = static_cast<size_t>(bounds.Width());
    plane.rows = static_cast<size_t>(bounds.Height());
    plane.isCoveredBeyond = isInverse;
    plane.bytes = AllocateZeroed<uint8_t>({plane.columns, plane.rows});
    if (!plane.bytes) return PsdReadResult::kOutOfMemory;
    for (size_t y = 0; y < plane.rows; ++y) {
        uint8_t* const row = plane.bytes.get() + y * plane.columns;
        CoverageAt(layer, bounds.left, bounds.top + static_cast<int64_t>(y), plane.columns, row);
        if (!isInverse) continue;
        for (size_t x = 0; x < plane.columns; ++x) row[x] = static_cast<uint8_t>(255 - row[x]);
    }
    return PsdReadResult::kOk;
}

void KeepCovered(EffectBuffer& buffer, const PsdLayer& layer) {
    ForEachCovered(buffer, layer, buffer.bounds.left, buffer.bounds.top,
                   [](uint32_t& pixel, uint32_t coverage) {
                       pixel = (pixel & 0x00FFFFFF) | Covered(Alpha(pixel), coverage) << 24;
                   });
}

uint64_t NoiseSeed(const PsdLayer& layer, const EffectBuffer& buffer) {
    const uint32_t x = static_cast<uint32_t>(WrapAdd(layer.bounds.left, buffer.bounds.left));
    const uint32_t y = static_cast<uint32_t>(WrapAdd(layer.bounds.top, buffer.bounds.top));
    return uint64_t{y} << 32 | x;
}

void ApplyNoise(EffectBuffer& buffer, const PsdLayer& layer, int32_t percent) {
    if (percent <= 0) return;
    const size_t count =
        static_cast<size_t>(buffer.bounds.Width()) * static_cast<size_t>(buffer.bounds.Height());
    AddNoise(buffer.pixels.get(), count, static_cast<uint32_t>(percent), NoiseSeed(layer, buffer));
}

}  // namespace tessary
