#include "render/composite.h"

#include <algorithm>

#include "render/blend_rows.h"
#include "render/coverage.h"
#include "render/kernels.h"
#include "render/noise_map.h"
#include "render/painted_tiles.h"

namespace tessary {

CompositeSource CompositeSourceOf(const PsdLayer& layer) {
    Rect covered = layer.bounds;
    // An adjustment's own pixels show what the canvas does.
    if (layer.layerKind < kLayerLevels) {
        covered.top = static_cast<int32_t>(
            std::min(int64_t{layer.bounds.top} + layer.coveredTop, int64_t{layer.bounds.bottom}));
        covered.bottom = static_cast<int32_t>(
            std::min(int64_t{layer.bounds.top} + layer.coveredBottom, int64_t{layer.bounds.bottom}));
    }
    return {.pixels = layer.image.get(),
            .rowPixels = static_cast<size_t>(std::max(layer.width, 0)),
            .bounds = layer.bounds,
            .covered = covered,
            .blendMode = layer.blendMode,
            .opacity = layer.opacity,
            .fillOpacity = layer.fillOpacity,
            .mask = &layer.mask,
            .layer = &layer};
}

PsdReadResult CompositeLayer(PsdDocument& document, const CompositeSource& source, const Rect& clipped) {
    const Rect area = Intersect(clipped, source.covered);
    if (area.IsEmpty()) return PsdReadResult::kOk;
    const PsdLayer* group = source.layer->parent;
    const PsdBlendMode mode = EffectiveMode(source.blendMode, group);
    const bool fast = source.blendMode == kBlendNormal && GroupPassesThrough(group);
    const bool ranges = document.colorMode == kColorRgb && NeedsBlendGate(*source.layer);
    const BlendGate gate = ranges ? BlendGateOf(*source.layer) : BlendGate{};
    if (gate.drawsNothing) return PsdReadResult::kOk;
    if (mode == kBlendDissolve) {
        const PsdReadResult result = EnsureNoiseMap(document);
        if (result != PsdReadResult::kOk) return result;
    }
    const uint8_t* noise = document.noiseMap.get();
    MarkPainted(document, area);

    const BlendRowFunction blendRow = WidestKernels().selectBlendRow(mode, fast, ranges);
    const BlendSettings settings = {EffectiveOpacity(source.opacity, source.fillOpacity, group), gate.keep,
                                    gate.open ? nullptr : &gate, !fast};
    const bool hasCoverage = source.mask && !source.mask->disabled;
    const size_t width = static_cast<size_t>(area.Width());
    uint8_t coverage[kBlendRunPixels];
    for (int32_t y = area.top; y < area.bottom; ++y) {
        const size_t canvasRow = static_cast<size_t>(y) * document.width + static_cast<size_t>(area.left);
        const uint32_t* layerRow = source.pixels +
                                   static_cast<size_t>(int64_t{y} - source.bounds.top) * source.rowPixels +
                                   static_cast<size_t>(int64_t{area.left} - source.bounds.left);
        for (size_t x = 0; x < width; x += kBlendRunPixels) {
            const BlendRun run = {.canvas = document.canvas.get() + canvasRow + x,
                                  .layer = layerRow + x,
                                  .coverage = hasCoverage ? coverage : nullptr,
                                  .noise = noise ? noise + canvasRow + x : nullptr,
                                  .count = std::min(kBlendRunPixels, width - x)};
            if (hasCoverage) {
                CoverageRow(run.layer, run.count, *source.mask, area.left + static_cast<int32_t>(x), y,
                            coverage);
            }
            blendRow(run, settings);
        }
    }
    return PsdReadResult::kOk;
}

}  // namespace tessary
