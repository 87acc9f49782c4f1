#include "properties/table_run.h"

#include <algorithm>

#include "properties/apply_adjustment.h"
#include "render/coverage.h"
#include "render/kernels.h"
#include "render/painted_tiles.h"

namespace tessary {
namespace {

// Some of the canvas's pixels that are neither opaque nor empty, set aside.
struct PartialPixels {
    uint32_t pixels[kBlendRunPixels];
    uint16_t places[kBlendRunPixels];
    size_t count = 0;
};

// Layer by layer, as any layer is drawn.
void DrawSteps(const TableRun& run, PartialPixels& partial, BlendRowFunction blendRow) {
    uint32_t layer[kBlendRunPixels];
    for (size_t i = 0; i < run.count; ++i) {
        run.steps[i].MapRow(partial.pixels, layer, partial.count);
        blendRow({.canvas = partial.pixels, .layer = layer, .count = partial.count}, {});
    }
}

void DrawPixels(const TableRun& run, uint32_t* pixels, size_t count, BlendRowFunction blendRow) {
    PartialPixels partial;
    run.whole.WithMap([&](const auto& map) {
        for (size_t i = 0; i < count; ++i) {
            const uint32_t pixel = pixels[i];
            if (Alpha(pixel) == 255) {
                pixels[i] = map(pixel);
            } else if (Alpha(pixel) != 0) {
                partial.pixels[partial.count] = pixel;
                partial.places[partial.count++] = static_cast<uint16_t>(i);
            }
        }
    });
    if (partial.count == 0) return;
    DrawSteps(run, partial, blendRow);
    for (size_t i = 0; i < partial.count; ++i) pixels[partial.places[i]] = partial.pixels[i];
}

}  // namespace

bool DeferTables(Owned<TableRun>& run, PsdDocument& document, PsdLayer& layer, const Rect& area) {
    // Such a layer covers each pixel by the canvas's own alpha: it replaces opaque ones, leaves empty ones,
    // and is mixed with all others, whose alpha grows thereby.
    if (!IsPlain(document, layer)) return false;
    if (!run) run = AllocateZeroed<TableRun>({1});
    if (!run) return false;
    TableRun& waiting = run[0];
    if (waiting.count == TableRun::kMostSteps || waiting.area != area) DrawDeferredTables(run, document);
    ColorTables& step = waiting.steps[waiting.count];
    if (!MakeColorTables(document, layer, step)) return false;
    if (waiting.count++ == 0) {
        waiting.area = area;
        waiting.whole = step;
    } else {
        waiting.whole.Append(step);
    }
    return true;
}

void DrawDeferredTables(Owned<TableRun>& run, PsdDocument& document) {
    if (!run || run[0].count == 0) return;
    TableRun& waiting = run[0];
    const BlendRowFunction blendRow = WidestKernels().selectBlendRow(kBlendNormal, true, false);
    EachPainted(document, waiting.area, [&](const Rect& rect) {
        const size_t width = static_cast<size_t>(rect.Width());
        for (int32_t y = rect.top; y < rect.bottom; ++y) {
            uint32_t* row = document.canvas.get() + static_cast<size_t>(y) * document.width + rect.left;
            for (size_t x = 0; x < width; x += kBlendRunPixels)
                DrawPixels(waiting, row + x, std::min(kBlendRunPixels, width - x), blendRow);
        }
    });
    waiting.count = 0;
}

}  // namespace tessary
