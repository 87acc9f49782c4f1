// Layers onto the canvas while the document is read.
#pragma once

#include "document/psd_document.h"
#include "render/render.h"

namespace tessary {

// A render that is fed by OpenDocument: hand it SinkOf as the sink and call EndStreamedRender behind it.
struct StreamedRender {
    uint64_t seed = 0;  // of the dissolve pattern; 0 takes the clock
    Rendering rendering;
    // The first layer that could not be drawn yet; it and those above it wait with their pixels.
    PsdLayer* firstWaiting = nullptr;
};

// Borrows `render` while the document is opened.
LayerSink SinkOf(StreamedRender& render);

// Draws what waits; document.canvas then holds the picture, all of it. Codes of Render.
PsdReadResult EndStreamedRender(StreamedRender& render, PsdDocument& document);

}  // namespace tessary
