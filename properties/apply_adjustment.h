// Draws adjustment layers.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Recolours what the canvas shows inside `area` (canvas coordinates, clipped to the canvas) into the layer's
// own pixels. A layer without pixels gets a buffer and bounds of document size first, whatever its kind of
// kLayerLevels and above; one with pixels keeps them and is written inside its bounds only. The first call
// that draws builds the layer's tables and clears rebuildTables. True when the layer's pixels were written:
// not for kinds that are kept only, without the record, in a colour mode the adjustment does not know, or
// without memory.
bool ApplyAdjustment(PsdDocument& document, PsdLayer& layer, const Rect& area);

// The two halves of it, for drawing without a buffer of document size: the bounds, and the colours. The first
// of `pixels`, rows of which are `rowPixels` apart, belongs to the upper left corner of the area. False when
// nothing was written.
void CoverDocument(const PsdDocument& document, PsdLayer& layer);
bool RecolorCanvas(const PsdDocument& document, PsdLayer& layer, const Rect& area, uint32_t* pixels,
                   size_t rowPixels);

// About how many nanoseconds recolouring takes for each pixel.
uint64_t AdjustmentStepsPerPixel(const PsdLayer& layer);

}  // namespace tessary
