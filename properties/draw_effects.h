// Draws layer effects in two passes around the layer's own pixels.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Both draw inside `area` (canvas coordinates, clipped to the canvas). An effect that finds no memory is not
// drawn.
void DrawEffectsBelow(PsdDocument& document, PsdLayer& layer, const Rect& area);
void DrawEffectsAbove(PsdDocument& document, PsdLayer& layer, const Rect& area);

// Whether the layer has effects that are switched on and that pixels could show.
bool HasEffects(PsdLayer& layer);

// Keeps the buffers of the layer's effects for the next render when they take no more than `room` bytes, and
// returns how many they take. Otherwise frees them, to be drawn again, and returns 0.
uint64_t KeepEffectBuffers(PsdLayer& layer, uint64_t room);

}  // namespace tessary
