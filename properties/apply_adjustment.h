// Draws adjustment layers.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Recolours what the canvas shows inside `area` (canvas coordinates, clipped to the canvas) into the layer's
// own pixels. A layer without pixels gets a buffer and bounds of document size first, whatever its kind of
// kLayerLevels and above. True when the layer's pixels were written.
bool ApplyAdjustment(PsdDocument& document, PsdLayer& layer, const Rect& area);

}  // namespace tessary
