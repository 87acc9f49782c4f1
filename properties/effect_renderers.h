// Draws effects into their buffers. Each renderer draws from the layer's own pixels, sets the bounds, mode
// and opacity of its buffer and clears its slot's pending mark.
#pragma once

#include "document/psd_document.h"
#include "properties/effect_records.h"

namespace tessary {

// Where an effect's buffer lies: as the layer with so many pixels more on all sides, 0..250, moved by (dx,
// dy) pixels. And what it takes: nanoseconds a pixel, without its blur.
struct EffectPlace {
    int32_t margin, dx, dy;
    uint32_t steps;
};
EffectPlace PlaceOfDropShadow(const PsdDocument& document, const EffectsRecord& effects);
EffectPlace PlaceOfOuterGlow(const PsdDocument& document, const EffectsRecord& effects);
EffectPlace PlaceOfColorOverlay(const PsdDocument& document, const EffectsRecord& effects);

// All: the layer has pixels, the place is the effect's. kOutOfMemory leaves the slot pending and its buffer
// empty.
PsdReadResult RenderDropShadow(const PsdLayer& layer, const EffectPlace& place, EffectsRecord& effects);
PsdReadResult RenderOuterGlow(const PsdLayer& layer, const EffectPlace& place, EffectsRecord& effects);
PsdReadResult RenderColorOverlay(const PsdLayer& layer, const EffectPlace& place, EffectsRecord& effects);

}  // namespace tessary
