// The pattern in which dissolving layers fall apart.
#pragma once

#include <cstdint>

#include "document/psd_document.h"

namespace tessary {

// Gives the document a map of random bytes, one for each canvas pixel, unless it has one: all dissolving
// layers of a document share it. document.noiseSeed is the seed of the random generator; 0 takes the clock.
// kOutOfMemory.
PsdReadResult EnsureNoiseMap(PsdDocument& document);

}  // namespace tessary
