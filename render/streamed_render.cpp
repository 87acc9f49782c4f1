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
    document.allowance.kept = {};
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

PsdReadResult DrawAndLetGo(StreamedRender& render, PsdDocument& document, PsdLayer& layer) {
    PsdReadResult result = PsdReadResult::kOk;
    if (render.rendering.document || !BeginRenderOnLayer(render.rendering, document, layer, render.seed)) {
        result = EnsureCanvas(render, document);
        if (result == PsdReadResult::kOk) result = DrawLayer(render.rendering, layer);
    }
    LetGo(document, layer);
    return result;
}

PsdReadResult Draw(PsdDocument& document, PsdLayer& layer, void* context) {
    StreamedRender& render = RenderOf(context);
    if (!IsDrawn(layer)) {
        layer.propertyList.Clear();
        return PsdReadResult::kOk;
    }
    if (render.firstWaiting) return PsdReadResult::kOk;
    if (MustWait(render, document, layer)) {
        render.firstWaiting = &layer;
        return PsdReadResult::kOk;
    }
    return DrawAndLetGo(render, document, layer);
}

}  // namespace

LayerSink SinkOf(StreamedRender& render) { return {Begin, IsDrawn, Draw, &render}; }

PsdReadResult EndStreamedRender(StreamedRender& render, PsdDocument& document) {
    PsdReadResult result = PsdReadResult::kOk;
    PsdLayer* const end = document.layers.get() + document.layers.count();
    for (PsdLayer* layer = render.firstWaiting; layer && layer != end && result == PsdReadResult::kOk;
         ++layer) {
        result = DrawAndLetGo(render, document, *layer);
    }
    if (result == PsdReadResult::kOk) result = EnsureCanvas(render, document);
    if (result == PsdReadResult::kOk) EndRender(render.rendering);
    return result;
}

}  // namespace tessary
