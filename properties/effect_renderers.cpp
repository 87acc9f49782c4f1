#include "properties/effect_renderers.h"

#include <algorithm>
#include <cmath>

#include "properties/effect_blur.h"
#include "properties/effect_steps.h"
#include "render/blend_rows.h"
#include "render/coverage.h"
#include "render/image_ops.h"

namespace tessary {
namespace {

// Gives the buffer pixels and bounds for its place. Pixels of the right number are used again.
PsdReadResult PrepareBuffer(EffectBuffer& buffer, const PsdLayer& layer, const EffectPlace& place) {
    const int64_t width = int64_t{layer.width} + 2 * place.margin;
    const int64_t height = int64_t{layer.height} + 2 * place.margin;
    Rect bounds;
    bounds.left = place.dx - place.margin;
    bounds.top = place.dy - place.margin;
    if (bounds.left + width > INT32_MAX || bounds.top + height > INT32_MAX)
        return PsdReadResult::kOutOfMemory;
    bounds.right = static_cast<int32_t>(bounds.left + width);
    bounds.bottom = static_cast<int32_t>(bounds.top + height);
    if (!buffer.pixels || bounds.Width() != buffer.bounds.Width() ||
        bounds.Height() != buffer.bounds.Height()) {
        buffer.pixels.Reset();
        buffer.pixels =
            AllocateZeroed<uint32_t>({static_cast<uint64_t>(width), static_cast<uint64_t>(height)});
    }
    buffer.bounds = bounds;
    return buffer.pixels ? PsdReadResult::kOk : PsdReadResult::kOutOfMemory;
}

// The layer's alpha less what its mask hides, for `count` pixels from (x, y) on, relative to the layer; 0
// beside it.
void CoverageAt(const PsdLayer& layer, int64_t x, int64_t y, size_t count, uint8_t* coverage) {
    std::fill_n(coverage, count, uint8_t{0});
    const int64_t begin = std::clamp<int64_t>(x, 0, layer.width);
    const int64_t end = std::clamp<int64_t>(x + static_cast<int64_t>(count), begin, layer.width);
    if (y < 0 || y >= layer.height || begin == end) return;
    const uint32_t* const pixels =
        layer.image.get() + static_cast<size_t>(y) * static_cast<size_t>(layer.width) + begin;
    CoverageRow(pixels, static_cast<size_t>(end - begin), layer.mask,
                static_cast<int32_t>(layer.bounds.left + begin), static_cast<int32_t>(layer.bounds.top + y),
                coverage + (begin - x));
}

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

// Thickens by the share of the size that the spread takes, then softens by what is left of it.
PsdReadResult SpreadAndSoften(EffectBuffer& buffer, int32_t spreadPercent, int32_t size) {
    const size_t width = static_cast<size_t>(buffer.bounds.Width());
    const size_t height = static_cast<size_t>(buffer.bounds.Height());
    const int32_t spread = (spreadPercent * size + 50) / 100;
    if (spread > 0) {
        if (const auto result = BlurAlpha(buffer.pixels.get(), width, height, spread);
            result != PsdReadResult::kOk) {
            return result;
        }
        BoostAlpha(buffer.pixels.get(), buffer.pixels.count());
    }
    if (size - spread <= 0) return PsdReadResult::kOk;
    return BlurAlpha(buffer.pixels.get(), width, height, size - spread);
}

// The place of the buffer on the canvas, so that neighbours do not repeat each other's noise.
uint64_t NoiseSeed(const PsdLayer& layer, const EffectBuffer& buffer) {
    const uint32_t x = static_cast<uint32_t>(WrapAdd(layer.bounds.left, buffer.bounds.left));
    const uint32_t y = static_cast<uint32_t>(WrapAdd(layer.bounds.top, buffer.bounds.top));
    return uint64_t{y} << 32 | x;
}

void ApplyNoise(EffectBuffer& buffer, const PsdLayer& layer, int32_t percent) {
    if (percent <= 0) return;
    AddNoise(buffer.pixels.get(), buffer.pixels.count(), static_cast<uint32_t>(percent),
             NoiseSeed(layer, buffer));
}

PsdReadResult DrawDropShadow(const PsdLayer& layer, const ShadowSettings& shadow, EffectBuffer& buffer) {
    DrawCoverage(buffer, layer, shadow.size, shadow.color);
    if (const auto result = SpreadAndSoften(buffer, shadow.spreadPercent, shadow.size);
        result != PsdReadResult::kOk) {
        return result;
    }
    ApplyContour(buffer.pixels.get(), buffer.pixels.count(), shadow.contour, shadow.contourAntiAlias);
    ApplyNoise(buffer, layer, shadow.noisePercent);
    if (shadow.layerConceals) KnockOut(buffer, layer);
    return PsdReadResult::kOk;
}

PsdReadResult DrawOuterGlow(const PsdLayer& layer, const GlowSettings& glow, EffectBuffer& buffer) {
    uint32_t* const pixels = buffer.pixels.get();
    const size_t count = buffer.pixels.count();
    DrawCoverage(buffer, layer, glow.size, glow.color);
    if (glow.technique == GlowSettings::kPrecise) BoostAlpha(pixels, count);
    if (const auto result = SpreadAndSoften(buffer, glow.spreadPercent, glow.size);
        result != PsdReadResult::kOk) {
        return result;
    }
    ApplyRange(pixels, count, glow.rangePercent);
    ApplyContour(pixels, count, glow.contour, glow.contourAntiAlias);
    ApplyNoise(buffer, layer, glow.noisePercent);
    if (glow.useGradient) {
        MapThroughGradient(pixels, count, glow.gradient, glow.jitterPercent, NoiseSeed(layer, buffer));
    }
    KnockOut(buffer, layer);
    return PsdReadResult::kOk;
}

PsdReadResult DrawColorOverlay(const PsdLayer& layer, const ColorOverlaySettings& overlay,
                               EffectBuffer& buffer) {
    DrawCoverage(buffer, layer, 0, overlay.color);
    return PsdReadResult::kOk;
}

// What all effects begin and end with. A buffer that was not finished is not kept.
template <class Settings>
PsdReadResult Render(const PsdLayer& layer, const EffectPlace& place, EffectsRecord& effects, EffectSlot slot,
                     const Settings& settings,
                     PsdReadResult (*draw)(const PsdLayer&, const Settings&, EffectBuffer&)) {
    EffectBuffer& buffer = effects.buffers[slot];
    PsdReadResult result = PrepareBuffer(buffer, layer, place);
    if (result == PsdReadResult::kOk) result = draw(layer, settings, buffer);
    if (result != PsdReadResult::kOk) {
        buffer.pixels.Reset();
        return result;
    }
    buffer.blendMode = settings.blendMode;
    buffer.opacity = settings.opacity;
    effects.renderPending[slot] = false;
    return PsdReadResult::kOk;
}

// What drawing one adds to putting a buffer onto the canvas.
template <class Settings>
uint32_t StepsOfDetails(const Settings& settings) {
    return (settings.spreadPercent > 0 ? 8u : 0u) + (settings.noisePercent > 0 ? 12u : 0u) +
           (settings.contour.points.count > 1 ? 6u : 0u);
}

}  // namespace

EffectPlace PlaceOfDropShadow(const PsdDocument& document, const EffectsRecord& effects) {
    const ShadowSettings& shadow = effects.dropShadow;
    const int32_t degrees = shadow.useGlobalLight ? document.resources.globalAngle : shadow.angleDegrees;
    const float radians = static_cast<float>(degrees) * 3.1415927f * 0.0055555557f;
    // Opposite the light; y grows downward.
    return {shadow.size, -TruncateToInt32(std::cos(static_cast<double>(radians)) * shadow.distance + 0.5),
            TruncateToInt32(std::sin(static_cast<double>(radians)) * shadow.distance + 0.5),
            14 + StepsOfDetails(shadow)};
}

EffectPlace PlaceOfOuterGlow(const PsdDocument&, const EffectsRecord& effects) {
    const GlowSettings& glow = effects.outerGlow;
    return {glow.size, 0, 0, 18 + StepsOfDetails(glow) + (glow.useGradient ? 12u : 0u)};
}

EffectPlace PlaceOfColorOverlay(const PsdDocument&, const EffectsRecord&) { return {0, 0, 0, 10}; }

PsdReadResult RenderDropShadow(const PsdLayer& layer, const EffectPlace& place, EffectsRecord& effects) {
    return Render(layer, place, effects, kSlotDropShadow, effects.dropShadow, DrawDropShadow);
}

PsdReadResult RenderOuterGlow(const PsdLayer& layer, const EffectPlace& place, EffectsRecord& effects) {
    return Render(layer, place, effects, kSlotOuterGlow, effects.outerGlow, DrawOuterGlow);
}

PsdReadResult RenderColorOverlay(const PsdLayer& layer, const EffectPlace& place, EffectsRecord& effects) {
    return Render(layer, place, effects, kSlotColorOverlay, effects.colorOverlay, DrawColorOverlay);
}

}  // namespace tessary
