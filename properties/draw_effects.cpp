#include "properties/draw_effects.h"

#include <algorithm>
#include <limits>
#include <span>
#include <utility>

#include "document/byte_reader.h"
#include "properties/effect_records.h"
#include "properties/effect_renderers.h"
#include "render/composite.h"

namespace tessary {
namespace {

// Buffers of one slot, in the order in which they go onto the canvas.
struct BufferRow {
    uint32_t count;
    uint8_t buffers[3];
    std::span<const uint8_t> span() const { return {buffers, count}; }
};

// One slot: how it is switched on, who draws it, what it takes beyond its details in nanoseconds a pixel, and
// the buffers that it puts onto the canvas below the layer and above it.
struct SlotRow {
    bool (*isEnabled)(const EffectsRecord& effects);
    EffectPlace (*place)(const PsdDocument& document, const EffectsRecord& effects);
    PsdReadResult (*make)(const EffectJob& job);
    uint32_t steps;
    BufferRow below;
    BufferRow above;
};

// Switched on, and not invisible.
template <auto member>
bool IsEnabled(const EffectsRecord& effects) {
    const auto& settings = effects.*member;
    if constexpr (requires { settings.opacity; }) {
        return settings.enabled && settings.opacity != 0;
    } else {
        return settings.enabled && (settings.highlightOpacity | settings.shadowOpacity) != 0;
    }
}

// By slot number.
constexpr SlotRow kSlots[kEffectSlotCount] = {
    {IsEnabled<&EffectsRecord::dropShadow>, PlaceOfDropShadow, MakeDropShadow, 14, {1, {0}}, {}},
    {IsEnabled<&EffectsRecord::innerShadow>, PlaceOfInnerShadow, MakeInnerShadow, 12, {}, {1, {1}}},
    {IsEnabled<&EffectsRecord::outerGlow>, PlaceOfOuterGlow, MakeOuterGlow, 18, {}, {1, {2}}},
    {IsEnabled<&EffectsRecord::innerGlow>, PlaceOfInnerGlow, MakeInnerGlow, 12, {}, {1, {3}}},
    {IsEnabled<&EffectsRecord::satin>, PlaceOfSatin, MakeSatin, 14, {}, {1, {4}}},
    {IsEnabled<&EffectsRecord::colorOverlay>, PlaceOfColorOverlay, MakeColorOverlay, 10, {}, {1, {5}}},
    {IsEnabled<&EffectsRecord::gradientOverlay>,
     PlaceOfGradientOverlay,
     MakeGradientOverlay,
     8,
     {},
     {1, {6}}},
    {IsEnabled<&EffectsRecord::patternOverlay>, PlaceOfPatternOverlay, MakePatternOverlay, 8, {}, {1, {7}}},
    {IsEnabled<&EffectsRecord::stroke>, PlaceOfStroke, MakeStroke, 12, {}, {1, {8}}},
    {IsEnabled<&EffectsRecord::bevel>, PlaceOfBevel, MakeBevel, 16, {2, {9, 11}}, {3, {10, 12, 13}}},
};

// Whether an effect shows inside the area and may be drawn. Its blur takes about one nanosecond a pixel for
// every eight pixels that it reaches over.
bool MayMake(PsdDocument& document, const PsdLayer& layer, const SlotRow& row, const EffectPlace& place,
             const Rect& area) {
    const int64_t left = int64_t{layer.bounds.left} + place.dx - place.margin;
    const int64_t top = int64_t{layer.bounds.top} + place.dy - place.margin;
    const int64_t right = left + layer.width + 2 * place.margin,
                  bottom = top + layer.height + 2 * place.margin;
    if (left >= area.right || right <= area.left || top >= area.bottom || bottom <= area.top) return false;
    const uint64_t beside = 2 * static_cast<uint64_t>(place.margin + place.reach);
    const uint64_t columns = static_cast<uint64_t>(layer.width) + beside;
    const uint64_t rows = static_cast<uint64_t>(layer.height) + beside;
    // A blur works on strips of sixteen columns that reach beyond the longer side.
    const uint64_t blurred = static_cast<uint64_t>(place.blurred);
    const uint64_t strip = blurred == 0 ? 0 : 64 * (std::max(columns, rows) + 3 * blurred);
    const auto bytes = CheckedProduct({columns, rows, place.bytes});
    return bytes && MayWorkOn(document.allowance, *bytes + strip, place.bytes, InputSeen(document)) &&
           SpendSteps(document.allowance, StepsOver(columns, rows, row.steps + place.steps + blurred / 8));
}

uint64_t BufferBytes(const EffectsRecord& effects, const SlotRow& row) {
    uint64_t bytes = 0;
    for (const BufferRow& buffers : {row.below, row.above}) {
        for (const uint8_t buffer : buffers.span())
            bytes += effects.buffers[buffer].pixels.count() * sizeof(uint32_t);
    }
    return bytes;
}

// Keeps a slot's buffers for the next render unless there are too many. The others are drawn again, and so
// are those of adjustments, whose pixels change.
void KeepOrFree(PsdDocument& document, const PsdLayer& layer, EffectsRecord& effects, uint32_t slot) {
    const uint64_t bytes = BufferBytes(effects, kSlots[slot]);
    if (layer.layerKind < kLayerLevels && KeepEffect(document.allowance, bytes)) return;
    for (const BufferRow& buffers : {kSlots[slot].below, kSlots[slot].above}) {
        for (const uint8_t buffer : buffers.span()) effects.buffers[buffer].pixels.Reset();
    }
    effects.isPending[slot] = true;
}

// Whether both passes put buffers of the slot onto the canvas. It is drawn in the first and done after the
// second.
bool SpansPasses(const SlotRow& row) { return row.below.count != 0 && row.above.count != 0; }

// Null unless they are switched on. The newer encoding wins where a layer has both.
EffectsRecord* EnabledEffects(const PsdLayer& layer) {
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

PsdReadResult CompositeBuffer(PsdDocument& document, const PsdLayer& layer, const EffectBuffer& buffer,
                              const Rect& area) {
    if (!buffer.pixels || buffer.opacity == 0) return PsdReadResult::kOk;
    CompositeSource source;
    if (!MoveToLayer(buffer.bounds, layer, source.bounds)) return PsdReadResult::kOk;
    source.covered = source.bounds;
    const Rect clipped = Intersect(source.bounds, area);
    if (clipped.IsEmpty()) return PsdReadResult::kOk;
    // The layer's mask is in the buffer already.
    source.pixels = buffer.pixels.get();
    source.rowPixels = static_cast<size_t>(buffer.bounds.Width());
    source.blendMode = buffer.blendMode;
    source.opacity = buffer.opacity;
    // Effects fade with the layer, but not with what fills it.
    source.fillOpacity = layer.opacity;
    source.layer = &layer;
    return CompositeLayer(document, source, clipped);
}

PsdReadResult DrawPass(PsdDocument& document, PsdLayer& layer, const Rect& area, bool isBelow) {
    EffectsRecord* effects = EnabledEffects(layer);
    if (!effects || layer.width < 1 || layer.height < 1 || !layer.image) return PsdReadResult::kOk;
    PsdReadResult result = PsdReadResult::kOk;
    for (uint32_t left = kEffectSlotCount; left > 0; --left) {
        const uint32_t slot = left - 1;
        const SlotRow& row = kSlots[slot];
        const std::span<const uint8_t> buffers = (isBelow ? row.below : row.above).span();
        if (buffers.empty() || !effects->present[slot] || !row.isEnabled(*effects)) continue;
        const bool isFirst = isBelow || row.below.count == 0;
        const bool isNew = effects->isPending[slot] && isFirst;
        if (isNew) {
            const EffectPlace place = row.place(document, *effects);
            // Without memory its buffers stay empty and nothing is drawn.
            if (MayMake(document, layer, row, place, area))
                static_cast<void>(row.make({document, layer, place, *effects}));
        }
        for (const uint8_t buffer : buffers) {
            if (result == PsdReadResult::kOk)
                result = CompositeBuffer(document, layer, effects->buffers[buffer], area);
        }
        if (!isNew) continue;
        effects->isHeld[slot] = SpansPasses(row);
        if (!effects->isHeld[slot]) KeepOrFree(document, layer, *effects, slot);
    }
    return result;
}

}  // namespace

bool HasEffects(const PsdLayer& layer) {
    const EffectsRecord* effects = EnabledEffects(layer);
    if (!effects) return false;
    for (uint32_t slot = 0; slot < kEffectSlotCount; ++slot) {
        if (effects->present[slot] && kSlots[slot].isEnabled(*effects)) return true;
    }
    return false;
}

bool NeedsPatterns(const PsdLayer& layer) {
    const EffectsRecord* effects = EnabledEffects(layer);
    if (!effects) return false;
    return IsEnabled<&EffectsRecord::patternOverlay>(*effects) ||
           (IsEnabled<&EffectsRecord::stroke>(*effects) &&
            effects->stroke.paint == StrokeSettings::kPattern) ||
           (IsEnabled<&EffectsRecord::bevel>(*effects) && effects->bevel.useTexture);
}

PsdReadResult DrawEffectsBelow(PsdDocument& document, PsdLayer& layer, const Rect& area) {
    return DrawPass(document, layer, area, true);
}

PsdReadResult DrawEffectsAbove(PsdDocument& document, PsdLayer& layer, const Rect& area) {
    return DrawPass(document, layer, area, false);
}

void EndEffects(PsdDocument& document, PsdLayer& layer) {
    EffectsRecord* effects = EnabledEffects(layer);
    if (!effects) return;
    for (uint32_t slot = 0; slot < kEffectSlotCount; ++slot) {
        if (std::exchange(effects->isHeld[slot], false)) KeepOrFree(document, layer, *effects, slot);
    }
}

}  // namespace tessary
