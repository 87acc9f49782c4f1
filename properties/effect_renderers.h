// Draws effects into their buffers. Each renderer draws from the layer's own pixels, sets the bounds, mode
// and opacity of its buffers and clears its slot's pending mark.
#pragma once

#include "properties/effect_buffers.h"

namespace tessary {

EffectPlace PlaceOfDropShadow(const PsdDocument& document, const EffectsRecord& effects);
EffectPlace PlaceOfInnerShadow(const PsdDocument& document, const EffectsRecord& effects);
EffectPlace PlaceOfOuterGlow(const PsdDocument& document, const EffectsRecord& effects);
EffectPlace PlaceOfInnerGlow(const PsdDocument& document, const EffectsRecord& effects);
EffectPlace PlaceOfSatin(const PsdDocument& document, const EffectsRecord& effects);
EffectPlace PlaceOfColorOverlay(const PsdDocument& document, const EffectsRecord& effects);
EffectPlace PlaceOfGradientOverlay(const PsdDocument& document, const EffectsRecord& effects);
EffectPlace PlaceOfPatternOverlay(const PsdDocument& document, const EffectsRecord& effects);
EffectPlace PlaceOfStroke(const PsdDocument& document, const EffectsRecord& effects);
EffectPlace PlaceOfBevel(const PsdDocument& document, const EffectsRecord& effects);

// All: the place is the effect's. kOutOfMemory leaves the slot pending and its buffers empty. An effect that
// has nothing to paint with or no size leaves them empty, too.
PsdReadResult MakeDropShadow(const EffectJob& job);
PsdReadResult MakeInnerShadow(const EffectJob& job);
PsdReadResult MakeOuterGlow(const EffectJob& job);
PsdReadResult MakeInnerGlow(const EffectJob& job);
PsdReadResult MakeSatin(const EffectJob& job);
PsdReadResult MakeColorOverlay(const EffectJob& job);
PsdReadResult MakeGradientOverlay(const EffectJob& job);
PsdReadResult MakePatternOverlay(const EffectJob& job);
PsdReadResult MakeStroke(const EffectJob& job);
PsdReadResult MakeBevel(const EffectJob& job);

// What all renderers of one buffer end with. A buffer that was not finished is not kept.
template <class Settings>
PsdReadResult FinishEffect(const EffectJob& job, EffectSlot slot, const Settings& settings,
                           PsdReadResult drawn) {
    EffectBuffer& buffer = job.effects.buffers[slot];
    if (drawn != PsdReadResult::kOk) {
        buffer.pixels.Reset();
        return drawn;
    }
    buffer.blendMode = settings.blendMode;
    buffer.opacity = settings.opacity;
    job.effects.isPending[slot] = false;
    return PsdReadResult::kOk;
}

// Light falls in from its angle: an effect moves the other way; y grows downward.
struct LightOffset {
    int32_t dx, dy;
};
LightOffset OffsetFromLight(int32_t angleDegrees, int32_t distance);

}  // namespace tessary
