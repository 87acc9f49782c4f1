// Layer effects stored as fixed binary blocks, the older of the two encodings.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Appends an EffectsRecord to the layer's list and reads the block at the reader's position.
// kOutOfMemory, kBadEffectsVersion, kBadEffectSignature, kBadEffectKey, kBadCommonStateVersion.
PsdReadResult ReadOldEffects(PsdDocument& document, PsdLayer& layer);

}  // namespace tessary
