#include "properties/draw_effects.h"

#include <algorithm>
#include <limits>
#include <span>

#include "properties/effect_records.h"
#include "properties/effect_renderers.h"
#include "render/composite.h"

namespace tessary {
namespace {

constexpr uint8_t kBevelBelow[] = {9, 11};
constexpr uint8_t kBevelAbove[] = {10, 12, 13};
constexpr uint8_t kBufferOfSlot[] = {0, 1, 2, 3, 4, 5, 6, 7, 8};

// One slot: how it is switched on, who draws it, and which buffers each pass puts onto the canvas.
struct SlotRow {
    bool (*isEnabled)(const EffectsRecord& effects);
    PsdReadResult (*render)(const PsdDocument& document, const PsdLayer& layer,
                            EffectsRecord& effects);  // null: none yet
    bool isRenderedBelow;
    std::span<const uint8_t> below;
    std::span<const uint8_t> above;
};

template <auto member>
bool IsEnabled(const EffectsRecord& effects) {
    return (effects.*member).enabled;
}

constexpr std::span<const uint8_t> BufferOf(EffectSlot slot) { return {&kBufferOfSlot[slot], 1}; }

// By slot number.
constexpr SlotRow kSlots[kEffectSlotCount] = {
    {IsEnabled<&EffectsRecord::dropShadow>, RenderDropShadow, true, BufferOf(kSlotDropShadow), {}},
    {IsEnabled<&EffectsRecord::innerShadow>, nullptr, false, {}, BufferOf(kSlotInnerShadow)},
    {IsEnabled<&EffectsRecord::outerGlow>, RenderOuterGlow, false, {}, BufferOf(kSlotOuterGlow)},
    {IsEnabled<&EffectsRecord::innerGlow>, nullptr, false, {}, BufferOf(kSlotInnerGlow)},
    {IsEnabled<&EffectsRecord::satin>, nullptr, false, {}, BufferOf(kSlotSatin)},
    {IsEnabled<&EffectsRecord::colorOverlay>, RenderColorOverlay, false, {}, BufferOf(kSlotColorOverlay)},
    {IsEnabled<&EffectsRecord::gradientOverlay>, nullptr, false, {}, BufferOf(kSlotGradientOverlay)},
    {IsEnabled<&EffectsRecord::patternOverlay>, nullptr, false, {}, BufferOf(kSlotPatternOverlay)},
    {IsEnabled<&EffectsRecord::stroke>, nullptr, false, {}, BufferOf(kSlotStroke)},
    {IsEnabled<&EffectsRecord::bevel>, nullptr, false, kBevelBelow, kBevelAbove},
};

int32_t BlurSize(const EffectsRecord& effects, uint32_t slot) {
    switch (slot) {
    case kSlotDropShadow: return effects.dropShadow.size;
    case kSlotOuterGlow: return effects.outerGlow.size;
    default: return 0;
    }
}

// An effect costs so many times the pixels that it covers, for one pixel of a blur is the sum of many.
bool MayRender(PsdDocument& document, const PsdLayer& layer, int32_t blurSize) {
    const uint64_t margins = 2 * static_cast<uint64_t>(blurSize);
    const uint64_t width = static_cast<uint64_t>(layer.width) + margins;
    const uint64_t height = static_cast<uint64_t>(layer.height) + margins;
    const auto cost = CheckedProduct({width, height, static_cast<uint64_t>(2 + blurSize / 8)});
    return cost && SpendDrawing(document, *cost);
}

// The newer encoding wins where a layer has both.
EffectsRecord* FindEffects(PsdLayer& layer) {
    EffectsRecord* effects = FindProperty<EffectsRecord>(layer, kPropertyEffects);
    return effects ? effects : FindProperty<EffectsRecord>(layer, kPropertyOldEffects);
}

EffectsRecord* DrawnEffects(PsdLayer& layer) {
    if (layer.width < 1 || layer.height < 1 || !layer.image) return nullptr;
    EffectsRecord* effects = FindEffects(layer);
    return effects && effects->effectCount != 0 && effects->masterSwitch != 0 ? effects : nullptr;
}

// Moves bounds to the layer's place; false when they leave the coordinates there are.
bool MoveToLayer(const Rect& bounds, const PsdLayer& layer, Rect& moved) {
    constexpr int64_t kLow = std::numeric_limits<int32_t>::min();
    constexpr int64_t kHigh = std::numeric_limits<int32_t>::max();
    const int64_t left = int64_t{layer.bounds.left} + bounds.left;
    const int64_t top = int64_t{layer.bounds.top} + bounds.top;
    const int64_t right = left + bounds.Width();
    const int64_t bottom = top + bounds.Height();
    if (left < kLow || top < kLow || right > kHigh || bottom > kHigh) return false;
    moved = {static_cast<int32_t>(left), static_cast<int32_t>(top), static_cast<int32_t>(right),
             static_cast<int32_t>(bottom)};
    return true;
}

void CompositeBuffer(PsdDocument& document, const PsdLayer& layer, const EffectBuffer& buffer,
                     const Rect& area) {
    if (!buffer.pixels || buffer.opacity == 0) return;
    CompositeSource source;
    if (!MoveToLayer(buffer.bounds, layer, source.bounds)) return;
    const Rect clipped = Intersect(source.bounds, area);
    if (clipped.IsEmpty()) return;
    // The layer's mask is in the buffer already.
    source.pixels = buffer.pixels.get();
    source.rowPixels = static_cast<size_t>(buffer.bounds.Width());
    source.blendMode = buffer.blendMode;
    source.opacity = buffer.opacity;
    source.layer = &layer;
    CompositeLayer(document, source, clipped);
}

void DrawPass(PsdDocument& document, PsdLayer& layer, const Rect& area, bool isBelow) {
    EffectsRecord* effects = DrawnEffects(layer);
    if (!effects) return;
    for (uint32_t left = kEffectSlotCount; left > 0; --left) {
        const uint32_t slot = left - 1;
        const SlotRow& row = kSlots[slot];
        if (!effects->present[slot] || !row.isEnabled(*effects)) continue;
        if (effects->renderPending[slot] && row.render && row.isRenderedBelow == isBelow &&
            MayRender(document, layer, BlurSize(*effects, slot))) {
            // Without memory its buffer stays empty and nothing is drawn.
            static_cast<void>(row.render(document, layer, *effects));
        }
        for (const uint8_t buffer : isBelow ? row.below : row.above) {
            CompositeBuffer(document, layer, effects->buffers[buffer], area);
        }
    }
}

}  // namespace

void DrawEffectsBelow(PsdDocument& document, PsdLayer& layer, const Rect& area) {
    DrawPass(document, layer, area, true);
}

void DrawEffectsAbove(PsdDocument& document, PsdLayer& layer, const Rect& area) {
    DrawPass(document, layer, area, false);
}

uint64_t KeepEffectBuffers(PsdLayer& layer, uint64_t room) {
    EffectsRecord* effects = FindEffects(layer);
    if (!effects) return 0;
    uint64_t bytes = 0;
    for (const EffectBuffer& buffer : effects->buffers) bytes += buffer.pixels.count() * sizeof(uint32_t);
    if (bytes <= room) return bytes;
    for (EffectBuffer& buffer : effects->buffers) buffer.pixels.Reset();
    std::ranges::copy(effects->present, effects->renderPending);
    return 0;
}

}  // namespace tessary
