#include "properties/effect_renderers.h"

#include <cmath>

#include "properties/effect_blur.h"
#include "properties/effect_steps.h"

namespace tessary {
namespace {

size_t PixelCount(const EffectBuffer& buffer) {
    return static_cast<size_t>(buffer.bounds.Width()) * static_cast<size_t>(buffer.bounds.Height());
}

PsdReadResult BlurBuffer(EffectBuffer& buffer, int32_t radius) {
    if (radius <= 0) return PsdReadResult::kOk;
    return BlurAlpha(buffer.pixels.get(), static_cast<size_t>(buffer.bounds.Width()),
                     static_cast<size_t>(buffer.bounds.Height()), radius);
}

// The buffer of an effect that is drawn at its place.
PsdReadResult PreparePlaced(const EffectJob& job, EffectBuffer& buffer) {
    const EffectPlace& place = job.place;
    Rect grown;
    if (!GrowLayer(job.layer, place.margin, place.margin, grown)) return PsdReadResult::kOutOfMemory;
    const int64_t right = int64_t{grown.right} + place.dx, bottom = int64_t{grown.bottom} + place.dy;
    if (right > INT32_MAX || bottom > INT32_MAX) return PsdReadResult::kOutOfMemory;
    return PrepareBuffer(buffer, {grown.left + place.dx, grown.top + place.dy, static_cast<int32_t>(right),
                                  static_cast<int32_t>(bottom)});
}

// The layer's coverage in one colour, wherever the buffer itself lies.
void DrawCoverage(EffectBuffer& buffer, const PsdLayer& layer, int32_t margin, uint32_t color) {
    ForEachCovered(buffer, layer, -margin, -margin, [color](uint32_t& pixel, uint32_t coverage) {
        pixel = (color & 0x00FFFFFF) | coverage << 24;
    });
}

// Takes out what the layer covers.
void KnockOut(EffectBuffer& buffer, const PsdLayer& layer) {
    ForEachCovered(buffer, layer, buffer.bounds.left, buffer.bounds.top,
                   [](uint32_t& pixel, uint32_t coverage) {
                       pixel = (pixel & 0x00FFFFFF) | ((255 - coverage) * Alpha(pixel) >> 8) << 24;
                   });
}

// The share of a size that a spread or choke takes.
int32_t SpreadOf(int32_t spreadPercent, int32_t size) { return (spreadPercent * size + 50) / 100; }

// Thickens by the share of the size that the spread takes, then softens by what is left of it.
PsdReadResult SpreadAndSoften(EffectBuffer& buffer, int32_t spreadPercent, int32_t size) {
    const int32_t spread = SpreadOf(spreadPercent, size);
    if (spread > 0) {
        if (const auto result = BlurBuffer(buffer, spread); result != PsdReadResult::kOk) return result;
        BoostAlpha(buffer.pixels.get(), PixelCount(buffer));
    }
    return BlurBuffer(buffer, size - spread);
}

PsdReadResult DrawDropShadow(const EffectJob& job, EffectBuffer& buffer) {
    const ShadowSettings& shadow = job.effects.dropShadow;
    if (const auto result = PreparePlaced(job, buffer); result != PsdReadResult::kOk) return result;
    DrawCoverage(buffer, job.layer, shadow.size, shadow.color);
    if (const auto result = SpreadAndSoften(buffer, shadow.spreadPercent, shadow.size);
        result != PsdReadResult::kOk) {
        return result;
    }
    ApplyContour(buffer.pixels.get(), PixelCount(buffer), shadow.contour, shadow.contourAntiAlias);
    ApplyNoise(buffer, job.layer, shadow.noisePercent);
    if (shadow.layerConceals) KnockOut(buffer, job.layer);
    return PsdReadResult::kOk;
}

PsdReadResult DrawOuterGlow(const EffectJob& job, EffectBuffer& buffer) {
    const GlowSettings& glow = job.effects.outerGlow;
    if (const auto result = PreparePlaced(job, buffer); result != PsdReadResult::kOk) return result;
    uint32_t* const pixels = buffer.pixels.get();
    const size_t count = PixelCount(buffer);
    DrawCoverage(buffer, job.layer, glow.size, glow.color);
    if (glow.technique == GlowSettings::kPrecise) BoostAlpha(pixels, count);
    if (const auto result = SpreadAndSoften(buffer, glow.spreadPercent, glow.size);
        result != PsdReadResult::kOk)
        return result;
    ApplyRange(pixels, count, glow.rangePercent);
    ApplyContour(pixels, count, glow.contour, glow.contourAntiAlias);
    ApplyNoise(buffer, job.layer, glow.noisePercent);
    if (glow.useGradient) {
        const auto result = MapThroughGradient(pixels, count, glow.gradient, glow.jitterPercent,
                                               NoiseSeed(job.layer, buffer));
        if (result != PsdReadResult::kOk) return result;
    }
    KnockOut(buffer, job.layer);
    return PsdReadResult::kOk;
}

// The distances of all pixels of the layer from what it does not cover. kOutOfMemory.
PsdReadResult MeasureInward(const PsdLayer& layer, uint32_t reach, uint32_t enough, CoveragePlane& plane,
                            uint32_t* distances) {
    const auto result = MakeCoverage(layer, {0, 0, layer.width, layer.height}, true, plane);
    return result == PsdReadResult::kOk ? MeasureDistances(plane, reach, enough, distances) : result;
}

// The layer's coverage in one colour, moved by (dx, dy) and shrunk by so many pixels. Whatever is not needed
// inside the layer lies beyond the buffer.
PsdReadResult DrawShrunk(EffectBuffer& buffer, const PsdLayer& layer, uint32_t color, int32_t dx, int32_t dy,
                         int32_t pixels) {
    if (pixels <= 0) {
        ForEachCovered(
            buffer, layer, buffer.bounds.left - dx, buffer.bounds.top - dy,
            [color](uint32_t& pixel, uint32_t coverage) { pixel = (color & 0x00FFFFFF) | coverage << 24; });
        return PsdReadResult::kOk;
    }
    const uint64_t columns = static_cast<uint64_t>(layer.width), rows = static_cast<uint64_t>(layer.height);
    const Owned<uint32_t> distances = AllocateZeroed<uint32_t>({columns, rows});
    if (!distances) return PsdReadResult::kOutOfMemory;
    CoveragePlane plane;
    const uint32_t halfPixels = 2 * static_cast<uint32_t>(pixels);
    const auto result = MeasureInward(layer, ReachOfGrowth(halfPixels), DistanceOfFullGrowth(halfPixels),
                                      plane, distances.get());
    if (result != PsdReadResult::kOk) return result;
    uint32_t* pixel = buffer.pixels.get();
    for (int64_t y = int64_t{buffer.bounds.top} - dy; y < int64_t{buffer.bounds.bottom} - dy; ++y) {
        const bool isRowInside = y >= 0 && y < layer.height;
        for (int64_t x = int64_t{buffer.bounds.left} - dx; x < int64_t{buffer.bounds.right} - dx; ++x) {
            uint32_t alpha = 0;
            if (isRowInside && x >= 0 && x < layer.width) {
                const size_t at = static_cast<size_t>(y) * plane.columns + static_cast<size_t>(x);
                alpha = 255 - GrownCoverage(distances[at], halfPixels);
            }
            *pixel++ = (color & 0x00FFFFFF) | alpha << 24;
        }
    }
    return PsdReadResult::kOk;
}

void InvertAlpha(EffectBuffer& buffer) {
    uint32_t* const pixels = buffer.pixels.get();
    for (size_t i = 0; i < PixelCount(buffer); ++i) pixels[i] ^= 0xFF000000;
}

// What a blur needs beside the layer when its image is moved this far: no more than it reaches over, and only
// where the image is moved to.
Rect WithMovedImage(const PsdLayer& layer, int32_t dx, int32_t dy, int32_t reach) {
    return {std::max(std::min(dx, 0), -reach), std::max(std::min(dy, 0), -reach),
            layer.width + std::min(std::max(dx, 0), reach), layer.height + std::min(std::max(dy, 0), reach)};
}

PsdReadResult DrawInnerShadow(const EffectJob& job, EffectBuffer& buffer) {
    const ShadowSettings& shadow = job.effects.innerShadow;
    const PsdLayer& layer = job.layer;
    const int32_t degrees = shadow.useGlobalLight ? job.document.resources.globalAngle : shadow.angleDegrees;
    const LightOffset offset = OffsetFromLight(degrees, shadow.distance);
    const int32_t choke = SpreadOf(shadow.spreadPercent, shadow.size), reach = BlurReach(shadow.size - choke);
    Rect grown;
    if (!GrowLayer(layer, reach, reach, grown)) return PsdReadResult::kOutOfMemory;
    auto result = PrepareBuffer(buffer, WithMovedImage(layer, offset.dx, offset.dy, reach));
    if (result == PsdReadResult::kOk)
        result = DrawShrunk(buffer, layer, shadow.color, offset.dx, offset.dy, choke);
    if (result == PsdReadResult::kOk) result = BlurBuffer(buffer, shadow.size - choke);
    if (result != PsdReadResult::kOk) return result;
    CropBuffer(buffer, {0, 0, layer.width, layer.height});
    InvertAlpha(buffer);
    ApplyContour(buffer.pixels.get(), PixelCount(buffer), shadow.contour, shadow.contourAntiAlias);
    ApplyNoise(buffer, layer, shadow.noisePercent);
    KeepCovered(buffer, layer);
    return PsdReadResult::kOk;
}

// Falls off evenly with the distance from the edge, behind the share of the size that the choke takes.
PsdReadResult DrawPreciseEdge(EffectBuffer& buffer, const PsdLayer& layer, const GlowSettings& glow) {
    CoveragePlane plane;
    uint32_t* const pixels = buffer.pixels.get();
    const auto result = MeasureInward(layer, static_cast<uint32_t>(glow.size) + 1, 0, plane, pixels);
    if (result != PsdReadResult::kOk) return result;
    const int32_t length = std::max(1, glow.size - SpreadOf(glow.spreadPercent, glow.size));
    for (size_t i = 0; i < PixelCount(buffer); ++i) {
        const double share = (glow.size - DistanceInPixels(pixels[i])) / length;
        const uint32_t alpha = static_cast<uint32_t>(255 * std::clamp(share, 0.0, 1.0) + 0.5);
        pixels[i] = (glow.color & 0x00FFFFFF) | alpha << 24;
    }
    return PsdReadResult::kOk;
}

PsdReadResult DrawSoftEdge(EffectBuffer& buffer, const PsdLayer& layer, const GlowSettings& glow) {
    const int32_t choke = SpreadOf(glow.spreadPercent, glow.size);
    auto result = DrawShrunk(buffer, layer, glow.color, 0, 0, choke);
    if (result == PsdReadResult::kOk) result = BlurBuffer(buffer, glow.size - choke);
    InvertAlpha(buffer);
    return result;
}

PsdReadResult DrawInnerGlow(const EffectJob& job, EffectBuffer& buffer) {
    const GlowSettings& glow = job.effects.innerGlow;
    const PsdLayer& layer = job.layer;
    auto result = PrepareBuffer(buffer, {0, 0, layer.width, layer.height});
    if (result == PsdReadResult::kOk) {
        result =
            (glow.technique == GlowSettings::kPrecise ? DrawPreciseEdge : DrawSoftEdge)(buffer, layer, glow);
    }
    if (result != PsdReadResult::kOk) return result;
    uint32_t* const pixels = buffer.pixels.get();
    const size_t count = PixelCount(buffer);
    ApplyRange(pixels, count, glow.rangePercent);
    if (glow.fromCenter) InvertAlpha(buffer);
    ApplyContour(pixels, count, glow.contour, glow.contourAntiAlias);
    ApplyNoise(buffer, layer, glow.noisePercent);
    if (glow.useGradient) {
        result =
            MapThroughGradient(pixels, count, glow.gradient, glow.jitterPercent, NoiseSeed(layer, buffer));
        if (result != PsdReadResult::kOk) return result;
    }
    KeepCovered(buffer, layer);
    return PsdReadResult::kOk;
}

// The difference of two softened copies of the layer that are moved apart.
PsdReadResult DrawSatin(const EffectJob& job, EffectBuffer& buffer) {
    const SatinSettings& satin = job.effects.satin;
    const PsdLayer& layer = job.layer;
    const LightOffset offset = OffsetFromLight(satin.angleDegrees, satin.distance);
    const int32_t reach = BlurReach(satin.size);
    Rect area;
    if (!GrowLayer(layer, std::min(std::abs(offset.dx), reach), std::min(std::abs(offset.dy), reach), area))
        return PsdReadResult::kOutOfMemory;
    EffectBuffer soft;
    auto result = PrepareBuffer(soft, area);
    if (result == PsdReadResult::kOk) result = PrepareBuffer(buffer, {0, 0, layer.width, layer.height});
    if (result != PsdReadResult::kOk) return result;
    ForEachCovered(soft, layer, area.left, area.top,
                   [](uint32_t& pixel, uint32_t coverage) { pixel = coverage << 24; });
    result = BlurBuffer(soft, satin.size);
    if (result != PsdReadResult::kOk) return result;
    const auto softAt = [&](int64_t x, int64_t y) {
        if (x < area.left || x >= area.right || y < area.top || y >= area.bottom) return 0;
        const size_t row = static_cast<size_t>(y - area.top) * static_cast<size_t>(area.Width());
        return static_cast<int32_t>(Alpha(soft.pixels[row + static_cast<size_t>(x - area.left)]));
    };
    const uint32_t color = satin.color & 0x00FFFFFF, flip = satin.invert ? 255 : 0;
    uint32_t* pixel = buffer.pixels.get();
    for (int64_t y = 0; y < layer.height; ++y) {
        for (int64_t x = 0; x < layer.width; ++x) {
            const int32_t apart = softAt(x - offset.dx, y - offset.dy) - softAt(x + offset.dx, y + offset.dy);
            *pixel++ = color | (static_cast<uint32_t>(std::abs(apart)) ^ flip) << 24;
        }
    }
    ApplyContour(buffer.pixels.get(), PixelCount(buffer), satin.contour, satin.contourAntiAlias);
    KeepCovered(buffer, layer);
    return PsdReadResult::kOk;
}

PsdReadResult DrawColorOverlay(const EffectJob& job, EffectBuffer& buffer) {
    const auto result = PreparePlaced(job, buffer);
    if (result == PsdReadResult::kOk) DrawCoverage(buffer, job.layer, 0, job.effects.colorOverlay.color);
    return result;
}

// What details of an effect add to drawing it.
template <class Settings>
uint32_t StepsOfDetails(const Settings& settings) {
    return (settings.spreadPercent > 0 ? 8u : 0u) + (settings.noisePercent > 0 ? 12u : 0u) +
           (settings.contour.points.count > 1 ? 6u : 0u);
}

}  // namespace

LightOffset OffsetFromLight(int32_t angleDegrees, int32_t distance) {
    // Halves go away from 0, also those that come out a little smaller.
    const auto rounded = [](double value) {
        return static_cast<int32_t>(std::copysign(std::floor(std::abs(value) + 0.5 + 1e-6), value));
    };
    const double radians = angleDegrees % 360 * 3.14159265358979323846 / 180;
    return {-rounded(std::cos(radians) * distance), rounded(std::sin(radians) * distance)};
}

EffectPlace PlaceOfDropShadow(const PsdDocument& document, const EffectsRecord& effects) {
    const ShadowSettings& shadow = effects.dropShadow;
    const int32_t degrees = shadow.useGlobalLight ? document.resources.globalAngle : shadow.angleDegrees;
    const float radians = static_cast<float>(degrees) * 3.1415927f * 0.0055555557f;
    // Opposite the light; y grows downward.
    return {.margin = shadow.size,
            .dx = -TruncateToInt32(std::cos(static_cast<double>(radians)) * shadow.distance + 0.5),
            .dy = TruncateToInt32(std::sin(static_cast<double>(radians)) * shadow.distance + 0.5),
            .steps = StepsOfDetails(shadow),
            .blurred = shadow.size};
}

EffectPlace PlaceOfInnerShadow(const PsdDocument&, const EffectsRecord& effects) {
    const ShadowSettings& shadow = effects.innerShadow;
    const bool isChoked = SpreadOf(shadow.spreadPercent, shadow.size) > 0;
    return {.reach = BlurReach(shadow.size),
            .bytes = static_cast<uint32_t>(sizeof(uint32_t)) + (isChoked ? 4 + kDistanceBytes : 0),
            .steps = StepsOfDetails(shadow) + (isChoked ? kDistanceSteps : 0),
            .blurred = shadow.size};
}

EffectPlace PlaceOfOuterGlow(const PsdDocument&, const EffectsRecord& effects) {
    const GlowSettings& glow = effects.outerGlow;
    return {.margin = glow.size,
            .steps = StepsOfDetails(glow) + (glow.useGradient ? 12u : 0u),
            .blurred = glow.size};
}

EffectPlace PlaceOfInnerGlow(const PsdDocument&, const EffectsRecord& effects) {
    const GlowSettings& glow = effects.innerGlow;
    const bool isPrecise = glow.technique == GlowSettings::kPrecise;
    const bool measures = isPrecise || SpreadOf(glow.spreadPercent, glow.size) > 0;
    return {.bytes = static_cast<uint32_t>(sizeof(uint32_t)) + (measures ? 4 + kDistanceBytes : 0),
            .steps = StepsOfDetails(glow) + (glow.useGradient ? 12u : 0u) + (measures ? kDistanceSteps : 0),
            .blurred = isPrecise ? 0 : glow.size};
}

EffectPlace PlaceOfSatin(const PsdDocument&, const EffectsRecord& effects) {
    const SatinSettings& satin = effects.satin;
    return {.reach = BlurReach(satin.size),
            .bytes = 2 * static_cast<uint32_t>(sizeof(uint32_t)),
            .steps = satin.contour.points.count > 1 ? 6u : 0u,
            .blurred = satin.size};
}

EffectPlace PlaceOfColorOverlay(const PsdDocument&, const EffectsRecord&) { return {}; }

PsdReadResult MakeDropShadow(const EffectJob& job) {
    return FinishEffect(job, kSlotDropShadow, job.effects.dropShadow,
                        DrawDropShadow(job, job.effects.buffers[kSlotDropShadow]));
}
PsdReadResult MakeInnerShadow(const EffectJob& job) {
    return FinishEffect(job, kSlotInnerShadow, job.effects.innerShadow,
                        DrawInnerShadow(job, job.effects.buffers[kSlotInnerShadow]));
}
PsdReadResult MakeOuterGlow(const EffectJob& job) {
    return FinishEffect(job, kSlotOuterGlow, job.effects.outerGlow,
                        DrawOuterGlow(job, job.effects.buffers[kSlotOuterGlow]));
}
PsdReadResult MakeInnerGlow(const EffectJob& job) {
    return FinishEffect(job, kSlotInnerGlow, job.effects.innerGlow,
                        DrawInnerGlow(job, job.effects.buffers[kSlotInnerGlow]));
}
PsdReadResult MakeSatin(const EffectJob& job) {
    return FinishEffect(job, kSlotSatin, job.effects.satin, DrawSatin(job, job.effects.buffers[kSlotSatin]));
}
PsdReadResult MakeColorOverlay(const EffectJob& job) {
    return FinishEffect(job, kSlotColorOverlay, job.effects.colorOverlay,
                        DrawColorOverlay(job, job.effects.buffers[kSlotColorOverlay]));
}

}  // namespace tessary
