// A layer's channel data to its pixels and its mask.
#pragma once

#include "document/plane_decoder.h"
#include "document/psd_document.h"

namespace tessary {

// Reads the channel data of one layer into layer.image and layer.mask.data. A layer without data, or with
// pixels that the allowance does not cover, has no image; a mask likewise, and its default colour holds.
// kShortRead, kBadCompression, kInflateSetup, kInflateFailed, kOutOfMemory.
//   decoder   its buffers go from layer to layer
//   isWanted  false: the data is only checked
PsdReadResult ReadLayerPixels(PsdDocument& document, PsdLayer& layer, PlaneDecoder& decoder, bool isWanted);

}  // namespace tessary
