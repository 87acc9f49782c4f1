#include "render/streamed_render.h"

#include <utility>

#include "properties/draw_effects.h"

namespace tessary {
namespace {

StreamedRender& RenderOf(void* context) { return *static_cast<StreamedRender*>(context); }

Rect WholeOf(const PsdDocument& document) {
    return {0, 0, static_cast<int32_t>(document.width), static_cast<int32_t>(document.height)};
}

// A drawn layer leaves its memory to the next one; a group's record is still asked for what it says.
void LetGo(PsdDocument& document, PsdLayer& layer) {
    if (layer.image.count() > document.sparePixels.count()) document.sparePixels = std::move(layer.image);
    layer.image.Reset();
    layer.mask.data.Reset();
    layer.propertyList.Clear();
}

void Begin(PsdDocument&, void* context) {
    StreamedRender& render = RenderOf(context);
    render.firstWaiting = nullptr;
    render.rendering = {};
    ++render.layerInfos;
}

// Layers that take the place of others wait until it is known that nothing takes theirs: a small file can
// hold thousands of layer infos. Patterns stand behind all layers. And before anything is drawn, what has
// been read must let the canvas be kept.
bool MustWait(const StreamedRender& render, const PsdDocument& document, const PsdLayer& layer) {
    return render.layerInfos > 1 || NeedsPatterns(layer) ||
           (!render.rendering.document && !MayHaveCanvas(document));
}

PsdReadResult EnsureCanvas(StreamedRender& render, PsdDocument& document) {
    if (render.rendering.document) return PsdReadResult::kOk;
    return BeginRender(render.rendering, document, WholeOf(document), render.seed);
}

PsdReadResult DrawOne(StreamedRender& render, PsdDocument& document, PsdLayer& layer) {
    if (!ChangesCanvas(document, layer)) return PsdReadResult::kOk;
    if (!render.rendering.document && BeginRenderOnLayer(render.rendering, document, layer, render.seed))
        return PsdReadResult::kOk;
    const PsdReadResult result = EnsureCanvas(render, document);
    return result == PsdReadResult::kOk ? DrawLayer(render.rendering, layer) : result;
}

// Draws the layers that wait, up to `end`, and keeps none of them.
//   isEnd  nothing more will come, so nothing waits any longer
PsdReadResult DrawWaiting(StreamedRender& render, PsdDocument& document, const PsdLayer* end, bool isEnd) {
    for (; render.firstWaiting && render.firstWaiting != end; ++render.firstWaiting) {
        PsdLayer& layer = *render.firstWaiting;
        if (!isEnd && ChangesCanvas(document, layer) && MustWait(render, document, layer))
            return PsdReadResult::kOk;
        const PsdReadResult result = DrawOne(render, document, layer);
        LetGo(document, layer);
        if (result != PsdReadResult::kOk) return result;
    }
    render.firstWaiting = nullptr;
    document.allowance.kept = {};
    return PsdReadResult::kOk;
}

PsdReadResult Draw(PsdDocument& document, PsdLayer& layer, void* context) {
    StreamedRender& render = RenderOf(context);
    if (!render.firstWaiting) render.firstWaiting = &layer;
    return DrawWaiting(render, document, &layer + 1, false);
}

}  // namespace

LayerSink SinkOf(StreamedRender& render) { return {Begin, IsDrawn, Draw, &render}; }

PsdReadResult EndStreamedRender(StreamedRender& render, PsdDocument& document) {
    const PsdLayer* const end = document.layers.get() + document.layers.count();
    PsdReadResult result = DrawWaiting(render, document, end, true);
    if (result == PsdReadResult::kOk) result = EnsureCanvas(render, document);
    if (result == PsdReadResult::kOk) EndRender(render.rendering);
    return result;
}

}  // namespace tessary
