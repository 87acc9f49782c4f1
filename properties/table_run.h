// Adjustments that follow each other and only look colours up are drawn together, in place on the canvas.
#pragma once

#include "document/psd_document.h"
#include "properties/color_tables.h"

namespace tessary {

// What waits to be drawn: nothing as long as `count` is 0.
struct TableRun {
    static constexpr size_t kMostSteps = 8;

    size_t count = 0;
    Rect area;
    ColorTables whole;              // all steps, as opaque pixels see them
    ColorTables steps[kMostSteps];  // one for each layer; pixels that are neither opaque nor empty need them
};

// Takes an adjustment without pixels and effects of its own into the run, if its tables are all that it does
// to the canvas: Normal, at full opacity, without mask, ranges and excluded channels. False when it is to be
// drawn in another way. What waited is drawn where the layer cannot join it.
//   run    made by the first layer that needs it
//   area   what is drawn of the canvas, canvas coordinates, clipped to the canvas
bool DeferTables(Owned<TableRun>& run, PsdDocument& document, PsdLayer& layer, const Rect& area);

// Draws what waits. Whatever else looks at the canvas or changes it comes after a call of this.
void DrawDeferredTables(Owned<TableRun>& run, PsdDocument& document);

}  // namespace tessary
