#include "render/render.h"

#include <algorithm>
#include <utility>

#include "document/byte_reader.h"
#include "properties/apply_adjustment.h"
#include "properties/draw_effects.h"
#include "render/composite.h"
#include "render/coverage.h"
#include "render/image_ops.h"

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

bool MayAdjust(PsdDocument& document, const PsdLayer& layer, const Rect& area) {
    const uint64_t building = layer.rebuildTables && layer.layerKind == kLayerCurves ? kCurveSteps : 0;
    const uint64_t drawing =
        area.IsEmpty() ? 0
                       : StepsOver(static_cast<uint64_t>(area.Width()), static_cast<uint64_t>(area.Height()),
                                   AdjustmentStepsPerPixel(layer) + BlendingSteps(layer));
    return SpendSteps(document.allowance, kAdjustmentSteps + building + drawing);
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

// Draws an adjustment without pixels and effects of its own, as many rows at a time as stay in the cache. A
// buffer of document size, as effects would need it, costs more than the adjustment.
PsdReadResult DrawAdjustment(Rendering& rendering, PsdLayer& layer) {
    PsdDocument& document = *rendering.document;
    CoverDocument(document, layer);
    const Rect part = UnmaskedPart(layer, rendering.area);
    if (!HasPixelsToDraw(layer) || part.IsEmpty() || !MayAdjust(document, layer, part) ||
        DeferTables(rendering.tables, document, layer, part))
        return PsdReadResult::kOk;
    DrawDeferredTables(rendering.tables, document);
    constexpr int64_t kStripPixels = 1 << 16;
    const int64_t rows = std::clamp<int64_t>(kStripPixels / part.Width(), 1, part.Height());
    const Owned<uint32_t> pixels =
        AllocateZeroed<uint32_t>({static_cast<uint64_t>(part.Width()), static_cast<uint64_t>(rows)});
    if (!pixels) return PsdReadResult::kOk;
    PsdReadResult result = PsdReadResult::kOk;
    CompositeSource source = CompositeSourceOf(layer);
    source.pixels = pixels.get();
    source.rowPixels = static_cast<size_t>(part.Width());
    Rect strip = part;
    for (; strip.top < part.bottom && result == PsdReadResult::kOk; strip.top = strip.bottom) {
        strip.bottom = static_cast<int32_t>(std::min(strip.top + rows, int64_t{part.bottom}));
        if (!RecolorCanvas(document, layer, strip, pixels.get(), source.rowPixels)) break;
        source.bounds = source.covered = strip;
        result = CompositeLayer(document, source, strip);
    }
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
    if (!MayAdjust(document, layer, area)) return PsdReadResult::kOk;
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

PsdReadResult BeginRender(Rendering& rendering, PsdDocument& document, const Rect& wanted, uint64_t seed) {
    const Rect whole = {0, 0, static_cast<int32_t>(document.width), static_cast<int32_t>(document.height)};
    const Rect area = Intersect(wanted, whole);
    if (area.IsEmpty()) return PsdReadResult::kEmptyArea;
    if (!document.canvas) {
        if (!MayHaveCanvas(document)) return PsdReadResult::kOutOfMemory;
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
    // Over an empty canvas a plain pixel comes out as it is, unless it is transparent.
    ReplaceTransparent(layer.image.get(), layer.image.count(), kBackground);
    document.canvas = std::move(layer.image);
    document.noiseSeed = seed;
    rendering = {&document, whole, {}};
    return true;
}

PsdReadResult DrawLayer(Rendering& rendering, PsdLayer& layer) {
    PsdDocument& document = *rendering.document;
    if (!IsDrawn(layer)) return PsdReadResult::kOk;
    const bool acts = layer.layerKind >= kLayerLevels && AdjustmentActs(document, layer);
    if (!layer.image && !acts) return PsdReadResult::kOk;
    if (!layer.image && !HasEffects(layer)) return DrawAdjustment(rendering, layer);
    DrawDeferredTables(rendering.tables, document);
    if (!layer.image) return DrawAdjustmentWithEffects(document, layer, rendering.area);
    if (!MayDrawPixels(document, layer, rendering.area)) return PsdReadResult::kOk;
    if (acts) {
        if (!MayAdjust(document, layer, Intersect(rendering.area, layer.bounds))) return PsdReadResult::kOk;
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
