#include "render/streamed_render.h"

#include <utility>

#include "document/byte_reader.h"

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

void Begin(PsdDocument& document, void* context) {
    StreamedRender& render = RenderOf(context);
    render.firstWaiting = nullptr;
    render.rendering = {};
    document.canvas.Reset();
}

// The canvas is made as soon as what has been read lets it be kept.
PsdReadResult EnsureCanvas(StreamedRender& render, PsdDocument& document) {
    if (render.rendering.document) return PsdReadResult::kOk;
    return BeginRender(render.rendering, document, WholeOf(document), render.seed);
}

PsdReadResult Draw(PsdDocument& document, PsdLayer& layer, void* context) {
    StreamedRender& render = RenderOf(context);
    if (!IsDrawn(layer)) {
        layer.propertyList.Clear();
        return PsdReadResult::kOk;
    }
    if (render.firstWaiting) return PsdReadResult::kOk;
    if (!render.rendering.document && !MayHaveCanvas(document)) {
        render.firstWaiting = &layer;
        return PsdReadResult::kOk;
    }
    PsdReadResult result = EnsureCanvas(render, document);
    if (result == PsdReadResult::kOk) result = DrawLayer(render.rendering, layer);
    LetGo(document, layer);
    return result;
}

}  // namespace

LayerSink SinkOf(StreamedRender& render) { return {Begin, IsDrawn, Draw, &render}; }

PsdReadResult EndStreamedRender(StreamedRender& render, PsdDocument& document) {
    PsdReadResult result = EnsureCanvas(render, document);
    PsdLayer* const end = document.layers.get() + document.layers.count();
    for (PsdLayer* layer = render.firstWaiting; layer && layer != end && result == PsdReadResult::kOk;
         ++layer) {
        result = DrawLayer(render.rendering, *layer);
        LetGo(document, *layer);
    }
    if (result == PsdReadResult::kOk) EndRender(render.rendering);
    return result;
}

}  // namespace tessary
