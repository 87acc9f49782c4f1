// The buffers of effects and the coverage of layers, from which all effects are drawn.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "properties/effect_distance.h"
#include "properties/effect_records.h"
#include "render/blend_rows.h"

namespace tessary {

// Where an effect shows: as the layer with `margin` pixels more on all sides, moved by (dx, dy) pixels. And
// what it takes: it works on `reach` pixels more, with so many bytes at a time and so many nanoseconds a
// pixel; its blurs reach over `blurred` pixels together.
struct EffectPlace {
    int32_t margin = 0, dx = 0, dy = 0;
    int32_t reach = 0;
    uint32_t bytes = sizeof(uint32_t);
    uint32_t steps = 0;
    int32_t blurred = 0;
};

// What a renderer works with. Borrows everything; the layer has pixels.
struct EffectJob {
    const PsdDocument& document;
    const PsdLayer& layer;
    const EffectPlace& place;
    EffectsRecord& effects;
};

// How far a blur reaches.
int32_t BlurReach(int32_t radius);

// The layer with so many pixels more on each side, relative to its upper left corner. False when that leaves
// the coordinates there are.
bool GrowLayer(const PsdLayer& layer, int32_t columns, int32_t rows, Rect& grown);

// Gives the buffer transparent pixels. kOutOfMemory leaves it empty.
PsdReadResult PrepareBuffer(EffectBuffer& buffer, const Rect& bounds);

// Leaves the part of a buffer that lies inside `bounds`, which it reaches over.
void CropBuffer(EffectBuffer& buffer, const Rect& bounds);

// The layer's alpha less what its mask hides, for `count` pixels from (x, y) on, relative to the layer; 0
// beside it.
void CoverageAt(const PsdLayer& layer, int64_t x, int64_t y, size_t count, uint8_t* coverage);

// Calls use(pixel, coverage) for all pixels of the buffer, the first of which is at (left, top) of the layer.
template <class Use>
void ForEachCovered(EffectBuffer& buffer, const PsdLayer& layer, int32_t left, int32_t top, Use use) {
    const size_t width = static_cast<size_t>(buffer.bounds.Width());
    const size_t height = static_cast<size_t>(buffer.bounds.Height());
    uint8_t coverage[kBlendRunPixels];
    uint32_t* pixels = buffer.pixels.get();
    for (size_t y = 0; y < height; ++y) {
        for (size_t x = 0; x < width; x += kBlendRunPixels) {
            const size_t count = std::min(kBlendRunPixels, width - x);
            CoverageAt(layer, left + static_cast<int64_t>(x), top + static_cast<int64_t>(y), count, coverage);
            for (size_t i = 0; i < count; ++i) use(*pixels++, uint32_t{coverage[i]});
        }
    }
}

// Coverage of the pixels of `bounds`, or what it leaves. kOutOfMemory.
PsdReadResult MakeCoverage(const PsdLayer& layer, const Rect& bounds, bool isInverse, CoveragePlane& plane);

// round(value * coverage / 255)
constexpr uint32_t Covered(uint32_t value, uint32_t coverage) { return (value * coverage + 127) / 255; }

// Ends what lies inside the layer: what of it the layer covers.
void KeepCovered(EffectBuffer& buffer, const PsdLayer& layer);

// The place of the buffer on the canvas, so that neighbours do not repeat each other's noise.
uint64_t NoiseSeed(const PsdLayer& layer, const EffectBuffer& buffer);
void ApplyNoise(EffectBuffer& buffer, const PsdLayer& layer, int32_t percent);

}  // namespace tessary
