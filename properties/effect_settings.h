// Layer effects stored as a descriptor.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Appends an EffectsRecord to the layer's list and reads the block at the reader's position.
// kOutOfMemory, kBadEffectsVersion.
PsdReadResult ReadObjectEffects(PsdDocument& document, PsdLayer& layer);

}  // namespace tessary
