// Gradient overlay, pattern overlay and stroke.
#include <cmath>

#include "document/patterns.h"
#include "properties/effect_paint.h"
#include "properties/effect_renderers.h"

namespace tessary {
namespace {

// Nanoseconds a pixel that painting takes. Tiles that are made smaller are taken apart.
uint32_t PatternSteps(double scalePercent, double angleDegrees) {
    const bool isTurned = angleDegrees != 0;
    if (scalePercent >= 100) return isTurned ? 38u : scalePercent > 100 ? 28u : 8u;
    return isTurned ? 130u : scalePercent < 25 ? 75u : 25u;
}

uint32_t GradientSteps(const GradientSettings& gradient, GradientStyle style, GradientMethod method) {
    const size_t stops = gradient.colorStops.count + gradient.opacityStops.count;
    uint32_t steps = 16;
    if (method != GradientMethod::kBytes) steps += 10;
    if (style == GradientStyle::kAngle) steps += 8;
    for (size_t i = 16; i < stops; i *= 2) steps += 10;
    return steps;
}

// The bounds of the pixels that are at least half opaque, the mask aside; the layer's own when there are
// none.
Rect OpaqueBounds(const PsdLayer& layer) {
    const size_t width = static_cast<size_t>(layer.width);
    size_t left = width, right = 0, top = 0, bottom = 0;
    for (size_t y = 0; y < static_cast<size_t>(layer.height); ++y) {
        const uint32_t* const row = layer.image.get() + y * width;
        size_t first = 0, end = width;
        while (first < end && Alpha(row[first]) < 128) ++first;
        if (first == end) continue;
        while (Alpha(row[end - 1]) < 128) --end;
        if (right == 0) top = y;
        left = std::min(left, first);
        right = std::max(right, end);
        bottom = y + 1;
    }
    if (right == 0) return layer.bounds;
    const auto along = [](int32_t start, size_t by) {
        return WrapAdd(start, static_cast<int32_t>(by));  // inside the layer's bounds
    };
    return {along(layer.bounds.left, left), along(layer.bounds.top, top), along(layer.bounds.left, right),
            along(layer.bounds.top, bottom)};
}

// What a gradient fits into: the layer with `reach` pixels more on each side, or the document.
GradientBox BoxOf(const EffectJob& job, bool isAligned, double reach) {
    if (!isAligned) {
        const double width = job.document.width, height = job.document.height;
        return {width / 2, height / 2, width, height};
    }
    const Rect box = OpaqueBounds(job.layer);
    const double width = static_cast<double>(box.Width()), height = static_cast<double>(box.Height());
    return {box.left + width / 2, box.top + height / 2, width + 2 * reach, height + 2 * reach};
}

PatternPlace PlaceTiles(const PsdLayer& layer, bool isLinked, const OffsetSettings& phase) {
    PatternPlace place;
    place.originX = phase.horizontal + (isLinked ? layer.referenceX : 0);
    place.originY = phase.vertical + (isLinked ? layer.referenceY : 0);
    return place;
}

// Calls use(pixel, coverage, painted, x, y) for all pixels of the buffer.
template <class Use>
void ForEachPainted(EffectBuffer& buffer, const PsdLayer& layer, const Paint& paint, Use use) {
    const size_t width = static_cast<size_t>(buffer.bounds.Width());
    uint8_t coverage[kPaintRun];
    uint32_t painted[kPaintRun];
    uint32_t* pixels = buffer.pixels.get();
    for (int64_t y = buffer.bounds.top; y < buffer.bounds.bottom; ++y) {
        for (size_t x = 0; x < width; x += kPaintRun) {
            const size_t count = std::min(kPaintRun, width - x);
            const int64_t left = buffer.bounds.left + static_cast<int64_t>(x);
            CoverageAt(layer, left, y, count, coverage);
            PaintRow(paint, layer.bounds.left + left, layer.bounds.top + y, count, painted);
            for (size_t i = 0; i < count; ++i, ++pixels)
                *pixels = use(*pixels, uint32_t{coverage[i]}, painted[i]);
        }
    }
}

PsdReadResult DrawOverlay(const EffectJob& job, const Paint& paint, EffectBuffer& buffer) {
    if (paint.kind == Paint::kNothing) return PsdReadResult::kOk;
    const auto result = PrepareBuffer(buffer, {0, 0, job.layer.width, job.layer.height});
    if (result != PsdReadResult::kOk) return result;
    ForEachPainted(buffer, job.layer, paint, [](uint32_t, uint32_t coverage, uint32_t painted) {
        return (painted & 0x00FFFFFF) | Covered(Alpha(painted), coverage) << 24;
    });
    return PsdReadResult::kOk;
}

PsdReadResult DrawGradientOverlay(const EffectJob& job, EffectBuffer& buffer) {
    const GradientOverlaySettings& overlay = job.effects.gradientOverlay;
    if (!HasRamp(overlay.gradient)) return PsdReadResult::kOk;
    const GradientPlace place = {overlay.style,  overlay.angleDegrees, overlay.scalePercent,
                                 overlay.offset, overlay.reverse,      BoxOf(job, overlay.align, 0)};
    Paint paint;
    const auto result = MakeGradientPaint(overlay.gradient, overlay.method, place, paint);
    return result == PsdReadResult::kOk ? DrawOverlay(job, paint, buffer) : result;
}

PsdReadResult DrawPatternOverlay(const EffectJob& job, EffectBuffer& buffer) {
    const PatternOverlaySettings& overlay = job.effects.patternOverlay;
    PatternPlace place = PlaceTiles(job.layer, overlay.linked, overlay.phase);
    place.angleDegrees = overlay.angleDegrees;
    place.scalePercent = overlay.scalePercent;
    place.pixels = static_cast<size_t>(job.layer.width) * static_cast<size_t>(job.layer.height);
    return DrawOverlay(job, PatternPaint(FindPattern(job.document, overlay.pattern.identifier), place),
                       buffer);
}

// How far a stroke reaches outward, in half pixels, and how far it grows from the edge.
uint32_t OutwardHalves(const StrokeSettings& stroke) {
    const uint32_t size = static_cast<uint32_t>(stroke.size);
    return stroke.position == StrokeSettings::kOutside  ? 2 * size
           : stroke.position == StrokeSettings::kCenter ? size
                                                        : 0;
}
uint32_t GrowthHalves(const StrokeSettings& stroke) {
    return stroke.position == StrokeSettings::kCenter ? static_cast<uint32_t>(stroke.size)
                                                      : 2 * static_cast<uint32_t>(stroke.size);
}
int32_t StrokeMargin(const StrokeSettings& stroke) {
    return static_cast<int32_t>((OutwardHalves(stroke) + 1) / 2);
}

bool IsShapeBurst(const StrokeSettings& stroke) {
    return stroke.paint == StrokeSettings::kGradient && stroke.style == GradientStyle::kShapeBurst;
}

PsdReadResult PaintOfStroke(const EffectJob& job, Paint& paint) {
    const StrokeSettings& stroke = job.effects.stroke;
    switch (stroke.paint) {
    case StrokeSettings::kGradient: {
        if (!HasRamp(stroke.gradient)) return PsdReadResult::kOk;
        const GradientPlace place = {
            stroke.style,  stroke.angleDegrees, stroke.scalePercent,
            stroke.offset, stroke.reverse,      BoxOf(job, stroke.align, OutwardHalves(stroke) * 0.5)};
        return MakeGradientPaint(stroke.gradient, stroke.method, place, paint);
    }
    case StrokeSettings::kPattern: {
        PatternPlace place = PlaceTiles(job.layer, stroke.linked, stroke.phase);
        place.scalePercent = stroke.scalePercent;
        paint = PatternPaint(FindPattern(job.document, stroke.pattern.identifier), place);
        return PsdReadResult::kOk;
    }
    default: paint = ColorPaint(stroke.color); return PsdReadResult::kOk;
    }
}

// A stroke around a layer that is blended as it is shows no seam when the layer itself lies over it.
bool HoldsLayer(const PsdLayer& layer, const StrokeSettings& stroke) {
    return stroke.position == StrokeSettings::kOutside && stroke.blendMode == kBlendNormal &&
           layer.blendMode == kBlendNormal && layer.opacity == 255 && layer.fillOpacity == 255;
}

// Distances from what the layer covers and from what it does not; null where the stroke does not need them.
// Some lie where the pixels of the stroke will.
struct StrokeDistances {
    const uint32_t* outward = nullptr;
    const uint32_t* inward = nullptr;
};

PsdReadResult MeasureSide(const EffectJob& job, const Rect& bounds, bool isInward, uint32_t* distances) {
    CoveragePlane plane;
    const auto result = MakeCoverage(job.layer, bounds, isInward, plane);
    if (result != PsdReadResult::kOk) return result;
    const uint32_t halves = GrowthHalves(job.effects.stroke);
    const uint32_t enough = IsShapeBurst(job.effects.stroke) ? 0 : DistanceOfFullGrowth(halves);
    return MeasureDistances(plane, ReachOfGrowth(halves), enough, distances);
}

// How much of a pixel the stroke covers.
uint32_t StrokeCoverage(const StrokeSettings& stroke, uint32_t outward, uint32_t inward, uint32_t coverage) {
    const uint32_t halves = GrowthHalves(stroke);
    switch (stroke.position) {
    case StrokeSettings::kOutside: return std::min(GrownCoverage(outward, halves), 255 - coverage);
    case StrokeSettings::kInside: return std::min(GrownCoverage(inward, halves), coverage);
    default: return std::min(GrownCoverage(outward, halves), GrownCoverage(inward, halves));
    }
}

// How far a pixel is on the way through the stroke, from its outer edge to its inner one.
double WayThroughStroke(const StrokeSettings& stroke, uint32_t outward, uint32_t inward, uint32_t coverage) {
    const double half = GrowthHalves(stroke) * 0.5;
    const double fromOuter = (half - DistanceInPixels(outward)) / stroke.size;
    const double toInner = 1 - (half - DistanceInPixels(inward)) / stroke.size;
    switch (stroke.position) {
    case StrokeSettings::kOutside: return fromOuter;
    case StrokeSettings::kInside: return toInner;
    default: return coverage < 128 ? std::clamp(fromOuter, 0.0, 0.5) : std::clamp(toInner, 0.5, 1.0);
    }
}

// The layer's pixel over the paint of the stroke.
uint32_t LayerOver(uint32_t pixel, uint32_t coverage, uint32_t painted) {
    uint32_t mixed = 0;
    for (int shift = 0; shift < 24; shift += 8) {
        const uint32_t sum = coverage * (pixel >> shift & 255) + (255 - coverage) * (painted >> shift & 255);
        mixed |= (sum + 127) / 255 << shift;
    }
    return mixed;
}

// A run of pixels of the stroke.
struct StrokeRun {
    int64_t x, y;  // of the first, relative to the layer
    size_t count;
    StrokeDistances distances;  // of the first
    uint8_t coverage[kPaintRun];
    uint32_t painted[kPaintRun];

    uint32_t Outward(size_t i) const { return distances.outward ? distances.outward[i] : 0; }
    uint32_t Inward(size_t i) const { return distances.inward ? distances.inward[i] : 0; }
};

void PaintRun(const EffectJob& job, const Paint& paint, StrokeRun& run) {
    const StrokeSettings& stroke = job.effects.stroke;
    if (!IsShapeBurst(stroke)) {
        const Rect& at = job.layer.bounds;
        return PaintRow(paint, at.left + run.x, at.top + run.y, run.count, run.painted);
    }
    double places[kPaintRun];
    for (size_t i = 0; i < run.count; ++i)
        places[i] = WayThroughStroke(stroke, run.Outward(i), run.Inward(i), run.coverage[i]);
    PaintPlaces(paint, places, run.count, run.painted);
}

void DrawRun(const EffectJob& job, const StrokeRun& run, bool holdsLayer, uint32_t* pixels) {
    const StrokeSettings& stroke = job.effects.stroke;
    const PsdLayer& layer = job.layer;
    for (size_t i = 0; i < run.count; ++i) {
        const uint32_t coverage = run.coverage[i];
        uint32_t color = run.painted[i] & 0x00FFFFFF;
        uint32_t alpha = StrokeCoverage(stroke, run.Outward(i), run.Inward(i), coverage);
        if (holdsLayer && coverage != 0 && coverage != 255) {
            // What is covered lies in the layer.
            const int64_t at = run.y * layer.width + run.x + static_cast<int64_t>(i);
            color = LayerOver(layer.image[static_cast<size_t>(at)], coverage, color);
            alpha = GrownCoverage(run.Outward(i), GrowthHalves(stroke));
        }
        pixels[i] = color | Covered(alpha, Alpha(run.painted[i])) << 24;
    }
}

void PaintStroke(const EffectJob& job, const Paint& paint, StrokeDistances distances, EffectBuffer& buffer) {
    const bool holdsLayer = HoldsLayer(job.layer, job.effects.stroke);
    uint32_t* pixels = buffer.pixels.get();
    StrokeRun run;
    run.distances = distances;
    for (run.y = buffer.bounds.top; run.y < buffer.bounds.bottom; ++run.y) {
        for (run.x = buffer.bounds.left; run.x < buffer.bounds.right;
             run.x += static_cast<int64_t>(run.count)) {
            run.count = static_cast<size_t>(std::min<int64_t>(kPaintRun, buffer.bounds.right - run.x));
            CoverageAt(job.layer, run.x, run.y, run.count, run.coverage);
            PaintRun(job, paint, run);
            DrawRun(job, run, holdsLayer, pixels);
            pixels += run.count;
            if (run.distances.outward) run.distances.outward += run.count;
            if (run.distances.inward) run.distances.inward += run.count;
        }
    }
}

PsdReadResult DrawStroke(const EffectJob& job, EffectBuffer& buffer) {
    const StrokeSettings& stroke = job.effects.stroke;
    if (stroke.size <= 0) return PsdReadResult::kOk;
    Paint paint;
    auto result = PaintOfStroke(job, paint);
    if (result != PsdReadResult::kOk || paint.kind == Paint::kNothing) return result;
    Rect bounds;
    if (!GrowLayer(job.layer, job.place.margin, job.place.margin, bounds)) return PsdReadResult::kOutOfMemory;
    result = PrepareBuffer(buffer, bounds);
    if (result != PsdReadResult::kOk) return result;
    uint32_t* const pixels = buffer.pixels.get();
    StrokeDistances distances;
    Owned<uint32_t> second;
    if (stroke.position == StrokeSettings::kInside) {
        distances.inward = pixels;
        result = MeasureSide(job, bounds, true, pixels);
    } else {
        distances.outward = pixels;
        result = MeasureSide(job, bounds, false, pixels);
    }
    if (stroke.position == StrokeSettings::kCenter && result == PsdReadResult::kOk) {
        second = AllocateZeroed<uint32_t>({buffer.pixels.count()});
        if (!second) return PsdReadResult::kOutOfMemory;
        distances.inward = second.get();
        result = MeasureSide(job, bounds, true, second.get());
    }
    if (result == PsdReadResult::kOk) PaintStroke(job, paint, distances, buffer);
    return result;
}

}  // namespace

EffectPlace PlaceOfGradientOverlay(const PsdDocument&, const EffectsRecord& effects) {
    const GradientOverlaySettings& overlay = effects.gradientOverlay;
    return {.steps = GradientSteps(overlay.gradient, overlay.style, overlay.method)};
}

EffectPlace PlaceOfPatternOverlay(const PsdDocument&, const EffectsRecord& effects) {
    return {.steps = PatternSteps(effects.patternOverlay.scalePercent, effects.patternOverlay.angleDegrees)};
}

EffectPlace PlaceOfStroke(const PsdDocument&, const EffectsRecord& effects) {
    const StrokeSettings& stroke = effects.stroke;
    const bool isCenter = stroke.position == StrokeSettings::kCenter;
    const uint32_t painting = stroke.paint == StrokeSettings::kGradient
                                  ? GradientSteps(stroke.gradient, stroke.style, stroke.method)
                              : stroke.paint == StrokeSettings::kPattern
                                  ? PatternSteps(stroke.scalePercent, 0)
                                  : 0;
    return {.margin = StrokeMargin(stroke),
            .bytes = kDistanceBytes + (isCenter ? 8u : 4u),
            .steps = painting + kDistanceSteps * (isCenter ? 2 : 1)};
}

PsdReadResult MakeGradientOverlay(const EffectJob& job) {
    return FinishEffect(job, kSlotGradientOverlay, job.effects.gradientOverlay,
                        DrawGradientOverlay(job, job.effects.buffers[kSlotGradientOverlay]));
}
PsdReadResult MakePatternOverlay(const EffectJob& job) {
    return FinishEffect(job, kSlotPatternOverlay, job.effects.patternOverlay,
                        DrawPatternOverlay(job, job.effects.buffers[kSlotPatternOverlay]));
}
PsdReadResult MakeStroke(const EffectJob& job) {
    return FinishEffect(job, kSlotStroke, job.effects.stroke,
                        DrawStroke(job, job.effects.buffers[kSlotStroke]));
}

}  // namespace tessary
