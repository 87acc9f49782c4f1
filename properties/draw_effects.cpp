#include "properties/draw_effects.h"

#include <algorithm>
#include <limits>
#include <span>

#include "document/byte_reader.h"
#include "properties/effect_records.h"
#include "properties/effect_renderers.h"
#include "render/composite.h"

namespace tessary {
namespace {

// One slot: how it is switched on, and who draws it.
struct SlotRow {
    bool (*isEnabled)(const EffectsRecord& effects);
    // Null: not drawn.
    EffectPlace (*place)(const PsdDocument& document, const EffectsRecord& effects) = nullptr;
    PsdReadResult (*render)(const PsdLayer& layer, const EffectPlace& place,
                            EffectsRecord& effects) = nullptr;
};

template <auto member>
bool IsEnabled(const EffectsRecord& effects) {
    return (effects.*member).enabled;
}

// By slot number.
constexpr SlotRow kSlots[kEffectSlotCount] = {
    {IsEnabled<&EffectsRecord::dropShadow>, PlaceOfDropShadow, RenderDropShadow},
    {IsEnabled<&EffectsRecord::innerShadow>},
    {IsEnabled<&EffectsRecord::outerGlow>, PlaceOfOuterGlow, RenderOuterGlow},
    {IsEnabled<&EffectsRecord::innerGlow>},
    {IsEnabled<&EffectsRecord::satin>},
    {IsEnabled<&EffectsRecord::colorOverlay>, PlaceOfColorOverlay, RenderColorOverlay},
    {IsEnabled<&EffectsRecord::gradientOverlay>},
    {IsEnabled<&EffectsRecord::patternOverlay>},
    {IsEnabled<&EffectsRecord::stroke>},
    {IsEnabled<&EffectsRecord::bevel>},
};

// The buffers that a slot puts onto the canvas in one pass.
constexpr uint8_t kBufferOfSlot[] = {0, 1, 2, 3, 4, 5, 6, 7, 8};
constexpr uint8_t kBevelBelow[] = {9, 11};
constexpr uint8_t kBevelAbove[] = {10, 12, 13};
std::span<const uint8_t> BuffersOf(uint32_t slot, bool isBelow) {
    if (slot == kSlotBevel) return isBelow ? std::span<const uint8_t>(kBevelBelow) : kBevelAbove;
    const bool drawsNow = (slot == kSlotDropShadow) == isBelow;
    return drawsNow ? std::span(&kBufferOfSlot[slot], 1) : std::span<const uint8_t>();
}

// Whether an effect shows inside the area and may take the memory and the time it does. Its blur takes about
// one nanosecond a pixel for every eight pixels that it reaches over.
bool MayRender(PsdDocument& document, const PsdLayer& layer, const EffectPlace& place, const Rect& area) {
    const int64_t width = int64_t{layer.width} + 2 * place.margin;
    const int64_t height = int64_t{layer.height} + 2 * place.margin;
    const int64_t left = int64_t{layer.bounds.left} + place.dx - place.margin;
    const int64_t top = int64_t{layer.bounds.top} + place.dy - place.margin;
    if (left >= area.right || left + width <= area.left || top >= area.bottom || top + height <= area.top)
        return false;
    const uint64_t columns = static_cast<uint64_t>(width), rows = static_cast<uint64_t>(height);
    // A blur works on strips of sixteen 16-bit columns that reach beyond the longer side.
    const uint64_t margin = static_cast<uint64_t>(place.margin);
    const uint64_t strip = margin == 0 ? 0 : 32 * (std::max(columns, rows) + 3 * margin);
    const auto bytes = CheckedProduct({columns, rows, sizeof(uint32_t)});
    return bytes && MayKeepPixels(*bytes + strip, InputSeen(document), document.allowance.filledPixels) &&
           SpendSteps(document.allowance, StepsOver(columns, rows, place.steps + margin / 8));
}

// Keeps a buffer for the next render unless there are too many. The others are drawn again, and so are those
// of adjustments, whose pixels change.
void KeepOrFree(PsdDocument& document, const PsdLayer& layer, EffectsRecord& effects, uint32_t slot) {
    Owned<uint32_t>& pixels = effects.buffers[slot].pixels;
    const uint64_t bytes = pixels.count() * sizeof(uint32_t);
    if (layer.layerKind < kLayerLevels && KeepEffect(document.allowance, bytes)) return;
    pixels.Reset();
    effects.renderPending[slot] = true;
}

// Null unless they are switched on. The newer encoding wins where a layer has both.
EffectsRecord* EnabledEffects(PsdLayer& layer) {
    EffectsRecord* effects = FindProperty<EffectsRecord>(layer, kPropertyEffects);
    if (!effects) effects = FindProperty<EffectsRecord>(layer, kPropertyOldEffects);
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
    source.covered = source.bounds;
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
    if (layer.width < 1 || layer.height < 1 || !layer.image) return;
    EffectsRecord* effects = EnabledEffects(layer);
    if (!effects) return;
    for (uint32_t left = kEffectSlotCount; left > 0; --left) {
        const uint32_t slot = left - 1;
        const SlotRow& row = kSlots[slot];
        const std::span<const uint8_t> buffers = BuffersOf(slot, isBelow);
        if (buffers.empty() || !effects->present[slot] || !row.isEnabled(*effects)) continue;
        const bool isNew = effects->renderPending[slot] && row.render;
        if (isNew) {
            const EffectPlace place = row.place(document, *effects);
            // Without memory its buffer stays empty and nothing is drawn.
            if (MayRender(document, layer, place, area))
                static_cast<void>(row.render(layer, place, *effects));
        }
        for (const uint8_t buffer : buffers) CompositeBuffer(document, layer, effects->buffers[buffer], area);
        if (isNew) KeepOrFree(document, layer, *effects, slot);
    }
}

}  // namespace

bool HasEffects(PsdLayer& layer) {
    const EffectsRecord* effects = EnabledEffects(layer);
    if (!effects) return false;
    for (uint32_t slot = 0; slot < kEffectSlotCount; ++slot) {
        if (effects->present[slot] && kSlots[slot].render && kSlots[slot].isEnabled(*effects)) return true;
    }
    return false;
}

void DrawEffectsBelow(PsdDocument& document, PsdLayer& layer, const Rect& area) {
    DrawPass(document, layer, area, true);
}

void DrawEffectsAbove(PsdDocument& document, PsdLayer& layer, const Rect& area) {
    DrawPass(document, layer, area, false);
}

}  // namespace tessary
