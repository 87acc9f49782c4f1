#include "render/render.h"

#include <algorithm>

#include "document/platform.h"
#include "properties/apply_adjustment.h"
#include "properties/draw_effects.h"
#include "render/composite.h"
#include "render/coverage.h"
#include "render/image_ops.h"
#include "render/noise_map.h"

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

// Of the groups around it a layer heeds its own only.
bool IsDrawn(const PsdLayer& layer) { return Shows(layer) && (!layer.parent || Shows(*layer.parent)); }

bool HasPixelsToDraw(const PsdLayer& layer) {
    return layer.fillOpacity != 0 && layer.width >= 1 && layer.height >= 1;
}

// The part of the area that the layer covers and its mask does not hide from the outset.
Rect UnmaskedPart(const PsdLayer& layer, const Rect& area) {
    const Rect part = Intersect(area, layer.bounds);
    const bool hides = !layer.mask.disabled && layer.mask.data && layer.mask.defaultColor == 0;
    return hides ? Intersect(part, layer.mask.bounds) : part;
}

// Adjustments, effects and layers without data cost a file a few bytes each, however many pixels they are
// drawn over. All of a document together may take so many steps, about a nanosecond each; what does not fit
// is not drawn. Pixels that the layers' data fills have paid for more.
#if !defined(TESSARY_SLOWED_DOWN)
#define TESSARY_SLOWED_DOWN 1  // how many nanoseconds the build takes for one
#endif
constexpr uint64_t kFreeDrawing = 1200u * 1000 * 1000 / TESSARY_SLOWED_DOWN;
constexpr uint64_t kDrawingPerFilledPixel = 40;
constexpr uint64_t kDrawingPerByte = 60;

uint64_t DrawingAllowance(const PsdDocument& document) {
    const uint64_t streamSize = static_cast<uint64_t>(std::max(document.streamSize, 0));
    return std::max(kFreeDrawing, kDrawingPerFilledPixel * document.filledBytes / sizeof(uint32_t)) +
           kDrawingPerByte * std::min<uint64_t>(document.reader.position, streamSize);
}

uint64_t StepsOver(const Rect& area, uint64_t perPixel) {
    return area.IsEmpty() ? 0
                          : DrawingSteps(static_cast<uint64_t>(area.Width()),
                                         static_cast<uint64_t>(area.Height()), perPixel);
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
    const uint64_t drawing = StepsOver(area, AdjustmentStepsPerPixel(layer) + BlendingSteps(layer));
    return SpendDrawing(document.drawingLeft, kAdjustmentSteps + building + drawing);
}

// Of a layer with pixels of its own, without its effects.
uint64_t OwnSteps(const PsdLayer& layer, const Rect& area) {
    if (!layer.image || !HasPixelsToDraw(layer)) return 0;
    return StepsOver(UnmaskedPart(layer, area), AdjustmentStepsPerPixel(layer) + BlendingSteps(layer));
}

// Adjustments and effects get what the layers' own pixels leave, wherever they stand among them.
void ShareDrawing(PsdDocument& document, const Rect& area) {
    document.drawingLeft = document.layersLeft = DrawingAllowance(document);
    for (const PsdLayer& layer : document.layers.span()) {
        if (IsDrawn(layer)) document.drawingLeft -= std::min(document.drawingLeft, OwnSteps(layer, area));
    }
}

// What the buffers of layers and effects may take at a time.
uint64_t RoomForBuffers(const PsdDocument& document) {
    const uint64_t room = UnbackedBytes(document) + 2 * document.filledBytes;
    return room - std::min(room, document.claimedBytes);
}

// Draws the layer's own pixels. False when its mask lies beside the area: then its upper effects are not
// drawn either.
bool DrawPixels(PsdDocument& document, const PsdLayer& layer, const Rect& area) {
    if (!HasPixelsToDraw(layer) || Intersect(area, layer.bounds).IsEmpty()) return true;
    const Rect part = UnmaskedPart(layer, area);
    if (part.IsEmpty()) return false;
    CompositeLayer(document, CompositeSourceOf(layer), part);
    return true;
}

// Draws an adjustment without pixels and effects of its own, as many rows at a time as stay in the cache. A
// buffer of document size, as effects would need it, costs more than the adjustment.
void DrawAdjustment(PsdDocument& document, PsdLayer& layer, const Rect& area) {
    CoverDocument(document, layer);
    if (AdjustmentStepsPerPixel(layer) == 0) return;
    const Rect part = UnmaskedPart(layer, area);
    if (!HasPixelsToDraw(layer) || part.IsEmpty() || !MayAdjust(document, layer, part)) return;
    constexpr int64_t kStripPixels = 1 << 16;
    const int64_t rows = std::clamp<int64_t>(kStripPixels / part.Width(), 1, part.Height());
    const Owned<uint32_t> pixels =
        AllocateZeroed<uint32_t>({static_cast<uint64_t>(part.Width()), static_cast<uint64_t>(rows)});
    if (!pixels) return;
    CompositeSource source = CompositeSourceOf(layer);
    source.pixels = pixels.get();
    source.rowPixels = static_cast<size_t>(part.Width());
    for (Rect strip = part; strip.top < part.bottom; strip.top = strip.bottom) {
        strip.bottom = static_cast<int32_t>(std::min(strip.top + rows, int64_t{part.bottom}));
        if (!RecolorCanvas(document, layer, strip, pixels.get(), source.rowPixels)) return;
        source.bounds = strip;
        CompositeLayer(document, source, strip);
    }
}

void DrawWithEffects(PsdDocument& document, PsdLayer& layer, const Rect& area) {
    if (!layer.image) return;
    DrawEffectsBelow(document, layer, area);
    if (DrawPixels(document, layer, area)) DrawEffectsAbove(document, layer, area);
    EndEffects(document, layer);
}

void DrawLayer(PsdDocument& document, PsdLayer& layer, const Rect& area) {
    if (!IsDrawn(layer)) return;
    const bool isAdjustment = layer.layerKind >= kLayerLevels;
    if (isAdjustment && !layer.image) {
        const uint64_t bytes = document.canvas.count() * sizeof(uint32_t);
        if (bytes > document.effectRoom || !HasEffects(layer)) return DrawAdjustment(document, layer, area);
        if (!MayAdjust(document, layer, area)) return;
        document.effectRoom -= bytes;
        ApplyAdjustment(document, layer, area);
        DrawWithEffects(document, layer, area);
        // The buffer is not kept: a file of a few kilobytes can hold thousands of adjustments. The next
        // render makes it again.
        layer.image.Reset();
        document.effectRoom += bytes;
        return;
    }
    if (!SpendDrawing(document.layersLeft, OwnSteps(layer, area))) return;
    if (isAdjustment) ApplyAdjustment(document, layer, area);
    DrawWithEffects(document, layer, area);
}

}  // namespace

PsdReadResult Render(PsdDocument* document, int32_t x, int32_t y, int32_t width, int32_t height,
                     uint64_t seed) {
    if (!document) return PsdReadResult::kNoDocument;
    const PsdReadResult result = EnsureNoiseMap(*document, seed);
    if (result != PsdReadResult::kOk) return result;

    const Side horizontal = ClampSide(x, width, document->width);
    const Side vertical = ClampSide(y, height, document->height);
    const Rect area = {horizontal.begin, vertical.begin, horizontal.end, vertical.end};
    if (area.IsEmpty()) return PsdReadResult::kEmptyArea;

    const Rect whole = {0, 0, static_cast<int32_t>(document->width), static_cast<int32_t>(document->height)};
    if (!document->canvas) {
        document->canvas = AllocateZeroed<uint32_t>({document->width, document->height});
        if (!document->canvas) return PsdReadResult::kOutOfMemory;
        if (area != whole) FillRect(document->canvas.get(), document->width, whole, kBackground);
    }
    FillRect(document->canvas.get(), document->width, area, kBackground);
    ShareDrawing(*document, area);
    document->effectRoom = RoomForBuffers(*document);
    for (PsdLayer& layer : document->layers.span()) DrawLayer(*document, layer, area);
    return PsdReadResult::kOk;
}

}  // namespace tessary
