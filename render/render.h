// The top of the engine: the layers of a document become its canvas.
#pragma once

#include <cstdint>

#include "document/psd_document.h"
#include "properties/table_run.h"

namespace tessary {

// A canvas that layers are drawn onto, bottom first: BeginRender, DrawLayer for each of them, EndRender.
struct Rendering {
    PsdDocument* document = nullptr;  // borrowed; null: not begun
    Rect area;                        // canvas coordinates, clipped to the canvas
    Owned<TableRun> tables;           // adjustments that wait to be drawn together
};

// Whether the allowance covers the document's canvas, by what has been read of the document so far.
bool MayHaveCanvas(const PsdDocument& document);

// Makes the canvas, or takes the one that is there and keeps what lies outside the area, and clears the area.
//   wanted  canvas coordinates, whatever lies outside the document is cut
//   seed    of the dissolve pattern, unless the document has one; 0 takes the clock
// kEmptyArea (nothing of the area lies in the document), kOutOfMemory.
PsdReadResult BeginRender(Rendering& rendering, PsdDocument& document, const Rect& wanted, uint64_t seed);

// As BeginRender for the whole document and DrawLayer for its lowest layer, whose pixels become the canvas:
// it has to be plain, of the canvas's size, and filled. False where it is not; then nothing has happened.
bool BeginRenderOnLayer(Rendering& rendering, PsdDocument& document, PsdLayer& layer, uint64_t seed);

// Whether the layer and the group it is in are shown.
bool IsDrawn(const PsdLayer& layer);

// Whether it is also one that has pixels or acts on those below; DrawLayer does nothing with others.
bool ChangesCanvas(const PsdDocument& document, PsdLayer& layer);

// Draws the layer with its adjustment and its effects. What the allowance does not cover is left out.
// kOutOfMemory, for want of the dissolve pattern only.
PsdReadResult DrawLayer(Rendering& rendering, PsdLayer& layer);

// Leaves the picture in document.canvas.
void EndRender(Rendering& rendering);

// All of it for a document that holds its layers: composites them inside the rectangle (clamped to the
// document) and leaves the result in document->canvas. Some drawn effects are kept for the next call.
//   seed  as above; only the first call for a document uses it
// kNoDocument, kEmptyArea, kOutOfMemory.
PsdReadResult Render(PsdDocument* document, int32_t x, int32_t y, int32_t width, int32_t height,
                     uint64_t seed = 0);

}  // namespace tessary
