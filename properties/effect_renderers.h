// Draws effects into their buffers. Each renderer draws from the layer's own pixels, sets the bounds, mode
// and opacity of its buffer and clears its slot's pending mark.
#pragma once

#include "document/psd_document.h"
#include "properties/effect_records.h"

namespace tessary {

// All: the layer has pixels. kOutOfMemory leaves the slot pending and its buffer empty.
PsdReadResult RenderDropShadow(const PsdDocument& document, const PsdLayer& layer, EffectsRecord& effects);
PsdReadResult RenderOuterGlow(const PsdDocument& document, const PsdLayer& layer, EffectsRecord& effects);
PsdReadResult RenderColorOverlay(const PsdDocument& document, const PsdLayer& layer, EffectsRecord& effects);

}  // namespace tessary
