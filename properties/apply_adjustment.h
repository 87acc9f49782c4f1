// Draws adjustment layers.
#pragma once

#include "document/psd_document.h"
#include "properties/color_tables.h"

namespace tessary {

// Recolours what the canvas shows inside `area` (canvas coordinates, clipped to the canvas) into the layer's
// own pixels. A layer without pixels gets a buffer and bounds of document size first, whatever its kind of
// kLayerLevels and above; one with pixels keeps them and is written inside its bounds only. The first call
// that draws builds the layer's tables and clears rebuildTables. False when it does not act, or without
// memory.
bool ApplyAdjustment(PsdDocument& document, PsdLayer& layer, const Rect& area);

// The two halves of it, for drawing without a buffer of document size. CoverDocument gives the layer the
// bounds of the document; RecolorCanvas recolours what the canvas shows inside `area`, clipped to the canvas
// by the caller, into `pixels`: the first belongs to the upper left corner of the area, rows are `rowPixels`
// words apart. False as above; an empty area builds the tables only.
void CoverDocument(const PsdDocument& document, PsdLayer& layer);
bool RecolorCanvas(const PsdDocument& document, PsdLayer& layer, const Rect& area, uint32_t* pixels,
                   size_t rowPixels);

// The tables of an adjustment that only looks colours up; false for others, and as above.
bool MakeColorTables(const PsdDocument& document, PsdLayer& layer, ColorTables& tables);

// False for kinds that are kept only, without the record, and in a colour mode the adjustment does not know.
bool AdjustmentActs(const PsdDocument& document, PsdLayer& layer);

// About how many nanoseconds recolouring takes for each pixel; 0 for kinds that are kept only.
uint64_t AdjustmentStepsPerPixel(const PsdLayer& layer);

}  // namespace tessary
