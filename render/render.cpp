#include "render/render.h"

#include <algorithm>
#include <utility>

#include "document/byte_reader.h"
#include "properties/apply_adjustment.h"
#include "properties/draw_effects.h"
#include "render/composite.h"
#include "render/coverage.h"
#include "render/image_ops.h"
#include "render/painted_tiles.h"

namespace tessary {

namespace {

// [begin, begin + length) cut to [0, limit); 64 bits, because begin + length need not fit in 32.
struct Side {
    int32_t begin, end;
};
Side ClampSide(int32_t begin, int32_t length, uint32_t limit) {
    const int64_t end = std::min<int64_t>(int64_t{begin} + length, std::min<int64_t>(limit, INT32_MAX));
    return {std::max(begin, 0), static_cast<int32_t>(std::max<int64_t>(end, 0))};
}

bool Shows(const PsdLayer& layer) { return layer.visible && layer.opacity != 0; }

bool HasPixelsToDraw(const PsdLayer& layer) {
    return layer.fillOpacity != 0 && layer.width >= 1 && layer.height >= 1;
}

// The part of the area that the layer covers and its mask does not hide from the outset.
Rect UnmaskedPart(const PsdLayer& layer, const Rect& area) {
    const Rect part = Intersect(area, layer.bounds);
    const bool hides = !layer.mask.disabled && layer.mask.data && layer.mask.defaultColor == 0;
    return hides ? Intersect(part, layer.mask.bounds) : part;
}

bool Acts(const PsdDocument& document, PsdLayer& layer) {
    return layer.layerKind >= kLayerLevels && AdjustmentActs(document, layer);
}

uint64_t AreaOf(const Rect& rect) {
    return rect.IsEmpty() ? 0 : static_cast<uint64_t>(rect.Width()) * static_cast<uint64_t>(rect.Height());
}

// Nanoseconds a pixel, as they are over pixels that are neither empty nor full.
uint64_t BlendingSteps(const PsdLayer& layer) {
    const uint64_t steps = EffectiveMode(layer.blendMode, layer.parent) < kBlendHue ? 2 : 5;
    return steps + (NeedsBlendGate(layer) ? 2 : 0) + (layer.mask.data && !layer.mask.disabled ? 1 : 0);
}

// An adjustment takes some time wherever it lies, and curves take as much as their splines have points.
constexpr uint64_t kAdjustmentSteps = 10000;
constexpr uint64_t kCurveSteps = 1500000;

uint64_t StepsInside(const Rect& rect, uint64_t perPixel) {
    return StepsOver(static_cast<uint64_t>(rect.Width()), static_cast<uint64_t>(rect.Height()), perPixel);
}

bool MayAdjust(PsdDocument& document, const PsdLayer& layer, uint64_t drawing) {
    const uint64_t building = layer.rebuildTables && layer.layerKind == kLayerCurves ? kCurveSteps : 0;
    return SpendSteps(document.allowance, kAdjustmentSteps + building + drawing);
}

// Of an adjustment that works on pixels of its own all inside the area are charged.
bool MayAdjustAll(PsdDocument& document, const PsdLayer& layer, const Rect& area) {
    const uint64_t perPixel = AdjustmentStepsPerPixel(layer) + BlendingSteps(layer);
    return MayAdjust(document, layer, area.IsEmpty() ? 0 : StepsInside(area, perPixel));
}

// Of others those where something has been painted, and a look at each tile.
bool MayAdjustPainted(PsdDocument& document, const PsdLayer& layer, const Rect& area) {
    const uint64_t perPixel = AdjustmentStepsPerPixel(layer) + BlendingSteps(layer);
    uint64_t steps = AreaOf(area) / (kTileColumns * kTileRows);
    EachPainted(document, area, [&](const Rect& rect) { steps += StepsInside(rect, perPixel); });
    return MayAdjust(document, layer, steps);
}

// Of a layer with pixels of its own those that no data fills are charged.
bool MayDrawPixels(PsdDocument& document, const PsdLayer& layer, const Rect& area) {
    const uint64_t pixels = AreaOf(layer.bounds);
    const Rect part = UnmaskedPart(layer, area);
    if (layer.filledPixels >= pixels || part.IsEmpty()) return true;
    const uint64_t unfilled = std::min(pixels - layer.filledPixels, AreaOf(part));
    const uint64_t rows = StepsOver(0, static_cast<uint64_t>(part.Height()), 0);
    return SpendSteps(document.allowance, rows + unfilled * BlendingSteps(layer));
}

// Draws the layer's own pixels.
//   isHidden  its mask lies beside the area: then its upper effects are not drawn either
PsdReadResult DrawPixels(PsdDocument& document, const PsdLayer& layer, const Rect& area, bool& isHidden) {
    isHidden = false;
    if (!HasPixelsToDraw(layer) || Intersect(area, layer.bounds).IsEmpty()) return PsdReadResult::kOk;
    const Rect part = UnmaskedPart(layer, area);
    isHidden = part.IsEmpty();
    return isHidden ? PsdReadResult::kOk : CompositeLayer(document, CompositeSourceOf(layer), part);
}

// Draws an adjustment without pixels and effects of its own, where something has been painted, and as many
// rows at a time as stay in the cache. A buffer of document size, as effects would need it, costs more than
// the adjustment.
PsdReadResult DrawAdjustment(Rendering& rendering, PsdLayer& layer) {
    PsdDocument& document = *rendering.document;
    CoverDocument(document, layer);
    const Rect part = UnmaskedPart(layer, rendering.area);
    if (!HasPixelsToDraw(layer) || part.IsEmpty() || !MayAdjustPainted(document, layer, part) ||
        DeferTables(rendering.tables, document, layer, part))
        return PsdReadResult::kOk;
    DrawDeferredTables(rendering.tables, document);
    constexpr int64_t kStripPixels = 1 << 16;
    const uint64_t most = static_cast<uint64_t>(std::max(kStripPixels, part.Width()));
    const Owned<uint32_t> pixels = AllocateZeroed<uint32_t>({std::min(most, AreaOf(part))});
    if (!pixels) return PsdReadResult::kOk;
    PsdReadResult result = PsdReadResult::kOk;
    CompositeSource source = CompositeSourceOf(layer);
    source.pixels = pixels.get();
    EachPainted(document, part, [&](const Rect& rect) {
        const int64_t rows = std::max<int64_t>(kStripPixels / rect.Width(), 1);
        source.rowPixels = static_cast<size_t>(rect.Width());
        Rect strip = rect;
        for (; strip.top < rect.bottom && result == PsdReadResult::kOk; strip.top = strip.bottom) {
            strip.bottom = static_cast<int32_t>(std::min(strip.top + rows, int64_t{rect.bottom}));
            if (!RecolorCanvas(document, layer, strip, pixels.get(), source.rowPixels)) return;
            source.bounds = source.covered = strip;
            result = CompositeLayer(document, source, strip);
        }
    });
    return result;
}

PsdReadResult DrawWithEffects(PsdDocument& document, PsdLayer& layer, const Rect& area) {
    if (!layer.image) return PsdReadResult::kOk;
    bool isHidden = false;
    PsdReadResult result = DrawEffectsBelow(document, layer, area);
    if (result == PsdReadResult::kOk) result = DrawPixels(document, layer, area, isHidden);
    if (result == PsdReadResult::kOk && !isHidden) result = DrawEffectsAbove(document, layer, area);
    EndEffects(document, layer);
    return result;
}

// An adjustment without pixels of its own gets a buffer of document size for its effects. It is not kept: a
// file of a few kilobytes can hold thousands of adjustments. The next render makes it again.
PsdReadResult DrawAdjustmentWithEffects(PsdDocument& document, PsdLayer& layer, const Rect& area) {
    if (!MayAdjustAll(document, layer, area)) return PsdReadResult::kOk;
    document.sparePixels.Reset();  // may be as large, and the effects larger still
    ApplyAdjustment(document, layer, area);
    const PsdReadResult result = DrawWithEffects(document, layer, area);
    layer.image.Reset();
    return result;
}

}  // namespace

bool MayHaveCanvas(const PsdDocument& document) {
    const auto bytes = CheckedProduct({document.width, document.height, sizeof(uint32_t)});
    return bytes && MayKeepPixels(*bytes, InputSeen(document), document.allowance.filledPixels);
}

// Of the groups around it a layer heeds its own only.
bool IsDrawn(const PsdLayer& layer) { return Shows(layer) && (!layer.parent || Shows(*layer.parent)); }

bool ChangesCanvas(const PsdDocument& document, PsdLayer& layer) {
    return IsDrawn(layer) && (layer.image || Acts(document, layer));
}

PsdReadResult BeginRender(Rendering& rendering, PsdDocument& document, const Rect& wanted, uint64_t seed) {
    const Rect whole = {0, 0, static_cast<int32_t>(document.width), static_cast<int32_t>(document.height)};
    const Rect area = Intersect(wanted, whole);
    if (area.IsEmpty()) return PsdReadResult::kEmptyArea;
    if (!document.canvas && !MayHaveCanvas(document)) return PsdReadResult::kOutOfMemory;
    if (!ClearTiles(document)) return PsdReadResult::kOutOfMemory;
    if (!document.canvas) {
        document.canvas = AllocateZeroed<uint32_t>({document.width, document.height});
        if (!document.canvas) return PsdReadResult::kOutOfMemory;
        if (area != whole) FillRect(document.canvas.get(), document.width, whole, kBackground);
    }
    FillRect(document.canvas.get(), document.width, area, kBackground);
    document.noiseSeed = seed;
    rendering = {&document, area, {}};
    return PsdReadResult::kOk;
}

bool BeginRenderOnLayer(Rendering& rendering, PsdDocument& document, PsdLayer& layer, uint64_t seed) {
    const Rect whole = {0, 0, static_cast<int32_t>(document.width), static_cast<int32_t>(document.height)};
    const uint64_t pixels = AreaOf(whole);
    const bool isCanvas = !document.canvas && layer.image.count() == pixels && layer.bounds == whole;
    const bool isPlain =
        IsDrawn(layer) && layer.layerKind < kLayerLevels && !HasEffects(layer) && IsPlain(document, layer);
    if (!isCanvas || !isPlain || layer.filledPixels < pixels || !MayHaveCanvas(document)) return false;
    if (!ClearTiles(document)) return false;
    MarkPainted(document, whole);
    // Over an empty canvas a plain pixel comes out as it is, unless it is transparent.
    ReplaceTransparent(layer.image.get(), layer.image.count(), kBackground);
    document.canvas = std::move(layer.image);
    document.noiseSeed = seed;
    rendering = {&document, whole, {}};
    return true;
}

PsdReadResult DrawLayer(Rendering& rendering, PsdLayer& layer) {
    PsdDocument& document = *rendering.document;
    if (!ChangesCanvas(document, layer)) return PsdReadResult::kOk;
    if (!layer.image && !HasEffects(layer)) return DrawAdjustment(rendering, layer);
    DrawDeferredTables(rendering.tables, document);
    if (!layer.image) return DrawAdjustmentWithEffects(document, layer, rendering.area);
    if (!MayDrawPixels(document, layer, rendering.area)) return PsdReadResult::kOk;
    if (Acts(document, layer)) {
        if (!MayAdjustAll(document, layer, Intersect(rendering.area, layer.bounds)))
            return PsdReadResult::kOk;
        ApplyAdjustment(document, layer, rendering.area);
    }
    return DrawWithEffects(document, layer, rendering.area);
}

void EndRender(Rendering& rendering) {
    DrawDeferredTables(rendering.tables, *rendering.document);
    rendering = {};
}

PsdReadResult Render(PsdDocument* document, int32_t x, int32_t y, int32_t width, int32_t height,
                     uint64_t seed) {
    if (!document) return PsdReadResult::kNoDocument;
    const Side horizontal = ClampSide(x, width, document->width);
    const Side vertical = ClampSide(y, height, document->height);
    document->allowance.stepsSpent = 0;
    Rendering rendering;
    PsdReadResult result = BeginRender(
        rendering, *document, {horizontal.begin, vertical.begin, horizontal.end, vertical.end}, seed);
    for (PsdLayer& layer : document->layers.span()) {
        if (result == PsdReadResult::kOk) result = DrawLayer(rendering, layer);
    }
    if (result == PsdReadResult::kOk) EndRender(rendering);
    return result;
}

}  // namespace tessary
