#include "properties/effect_renderers.h"

#include <cmath>

#include "properties/effect_blur.h"
#include "properties/effect_steps.h"
#include "render/image_ops.h"

namespace tessary {
namespace {

size_t LayerWidth(const PsdLayer& layer) { return static_cast<size_t>(layer.width); }
size_t LayerHeight(const PsdLayer& layer) { return static_cast<size_t>(layer.height); }

// Gives the buffer pixels for the layer and `margin` pixels around it, and its bounds, the layer's upper left
// corner lying at (offsetX + margin, offsetY + margin) of them. Pixels of the right number are used again.
PsdReadResult PrepareBuffer(EffectBuffer& buffer, const PsdLayer& layer, int32_t margin, int32_t offsetX,
                            int32_t offsetY) {
    const int64_t width = int64_t{layer.width} + 2 * margin;
    const int64_t height = int64_t{layer.height} + 2 * margin;
    Rect bounds;
    bounds.left = offsetX - margin;
    bounds.top = offsetY - margin;
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

// The layer's alpha in one colour, alpha 0 in the margin, less what the mask hides.
void DrawCoverage(EffectBuffer& buffer, const PsdLayer& layer, int32_t margin, uint32_t color) {
    const size_t rowPixels = static_cast<size_t>(buffer.bounds.Width());
    const size_t inset = static_cast<size_t>(margin);
    uint32_t* pixels = buffer.pixels.get();
    FillRect(pixels, rowPixels,
             {0, 0, static_cast<int32_t>(rowPixels), static_cast<int32_t>(buffer.bounds.Height())}, 0);
    CopyRect(pixels + inset * rowPixels + inset, rowPixels, layer.image.get(), LayerWidth(layer),
             LayerWidth(layer), LayerHeight(layer));
    SetColorKeepAlpha(pixels, buffer.pixels.count(), color);
    if (HasEffectiveMask(layer)) {
        ApplyMask(pixels, rowPixels, static_cast<size_t>(buffer.bounds.Height()), layer.mask,
                  int64_t{layer.bounds.left} - margin, int64_t{layer.bounds.top} - margin);
    }
}

Owned<uint32_t> CopyOf(const EffectBuffer& buffer) {
    Owned<uint32_t> copy = AllocateZeroed<uint32_t>({buffer.pixels.count()});
    if (copy) CopyRect(copy.get(), copy.count(), buffer.pixels.get(), copy.count(), copy.count(), 1);
    return copy;
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
    AddNoise(buffer.pixels.get(), static_cast<size_t>(buffer.bounds.Width()),
             static_cast<size_t>(buffer.bounds.Height()), static_cast<uint32_t>(percent),
             NoiseSeed(layer, buffer));
}

PsdReadResult DrawDropShadow(const PsdDocument& document, const PsdLayer& layer, const ShadowSettings& shadow,
                             EffectBuffer& buffer) {
    const int32_t degrees = shadow.useGlobalLight ? document.resources.globalAngle : shadow.angleDegrees;
    const float radians = static_cast<float>(degrees) * 3.1415927f * 0.0055555557f;
    // Opposite the light; y grows downward.
    const int32_t dx = -TruncateToInt32(std::cos(static_cast<double>(radians)) * shadow.distance + 0.5);
    const int32_t dy = TruncateToInt32(std::sin(static_cast<double>(radians)) * shadow.distance + 0.5);

    if (const auto result = PrepareBuffer(buffer, layer, shadow.size, dx, dy); result != PsdReadResult::kOk)
        return result;
    DrawCoverage(buffer, layer, shadow.size, shadow.color);

    Owned<uint32_t> covered;
    if (shadow.layerConceals) {
        covered = CopyOf(buffer);
        if (!covered) return PsdReadResult::kOutOfMemory;
        // The buffer lies at (dx, dy); within it the layer's own place is as far the other way.
        ShiftImage(covered.get(), static_cast<size_t>(buffer.bounds.Width()),
                   static_cast<size_t>(buffer.bounds.Height()), -dx, -dy, kBackground);
    }
    if (const auto result = SpreadAndSoften(buffer, shadow.spreadPercent, shadow.size);
        result != PsdReadResult::kOk) {
        return result;
    }
    ApplyContour(buffer.pixels.get(), buffer.pixels.count(), shadow.contour, shadow.contourAntiAlias);
    ApplyNoise(buffer, layer, shadow.noisePercent);
    if (covered) KnockOut(buffer.pixels.get(), covered.get(), buffer.pixels.count());
    return PsdReadResult::kOk;
}

PsdReadResult DrawOuterGlow(const PsdLayer& layer, const GlowSettings& glow, EffectBuffer& buffer) {
    if (const auto result = PrepareBuffer(buffer, layer, glow.size, 0, 0); result != PsdReadResult::kOk)
        return result;
    DrawCoverage(buffer, layer, glow.size, glow.color);
    uint32_t* pixels = buffer.pixels.get();
    const size_t count = buffer.pixels.count();
    const Owned<uint32_t> covered = CopyOf(buffer);
    if (!covered) return PsdReadResult::kOutOfMemory;

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
    KnockOut(pixels, covered.get(), count);
    return PsdReadResult::kOk;
}

PsdReadResult DrawColorOverlay(const PsdLayer& layer, const ColorOverlaySettings& overlay,
                               EffectBuffer& buffer) {
    if (const auto result = PrepareBuffer(buffer, layer, 0, 0, 0); result != PsdReadResult::kOk)
        return result;
    DrawCoverage(buffer, layer, 0, overlay.color);
    return PsdReadResult::kOk;
}

// What all effects end with. A buffer that was not finished is not kept.
template <class Settings>
PsdReadResult Finish(EffectsRecord& effects, EffectSlot slot, const Settings& settings,
                     PsdReadResult result) {
    EffectBuffer& buffer = effects.buffers[slot];
    if (result != PsdReadResult::kOk) {
        buffer.pixels.Reset();
        return result;
    }
    buffer.blendMode = settings.blendMode;
    buffer.opacity = settings.opacity;
    effects.renderPending[slot] = false;
    return PsdReadResult::kOk;
}

}  // namespace

PsdReadResult RenderDropShadow(const PsdDocument& document, const PsdLayer& layer, EffectsRecord& effects) {
    const auto result = DrawDropShadow(document, layer, effects.dropShadow, effects.buffers[kSlotDropShadow]);
    return Finish(effects, kSlotDropShadow, effects.dropShadow, result);
}

PsdReadResult RenderOuterGlow(const PsdDocument&, const PsdLayer& layer, EffectsRecord& effects) {
    const auto result = DrawOuterGlow(layer, effects.outerGlow, effects.buffers[kSlotOuterGlow]);
    return Finish(effects, kSlotOuterGlow, effects.outerGlow, result);
}

PsdReadResult RenderColorOverlay(const PsdDocument&, const PsdLayer& layer, EffectsRecord& effects) {
    const auto result = DrawColorOverlay(layer, effects.colorOverlay, effects.buffers[kSlotColorOverlay]);
    return Finish(effects, kSlotColorOverlay, effects.colorOverlay, result);
}

}  // namespace tessary
