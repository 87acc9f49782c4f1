// Draws layer effects in two passes around the layer's own pixels.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Both draw inside `area` (canvas coordinates, clipped to the canvas). An effect that finds no memory, or
// that the allowance does not cover, is not drawn. kOutOfMemory, for want of the dissolve pattern only.
PsdReadResult DrawEffectsBelow(PsdDocument& document, PsdLayer& layer, const Rect& area);
PsdReadResult DrawEffectsAbove(PsdDocument& document, PsdLayer& layer, const Rect& area);

// After both, or the first alone: frees what is not kept for the next render.
void EndEffects(PsdDocument& document, PsdLayer& layer);

// Whether the layer has effects that are switched on and are drawn where it has pixels.
bool HasEffects(const PsdLayer& layer);

// Whether one of them paints with a pattern of the document.
bool NeedsPatterns(const PsdLayer& layer);

}  // namespace tessary
