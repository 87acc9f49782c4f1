// The channel data of one layer: its pixels and its mask.
#pragma once

#include "document/layer_plane.h"

namespace tessary {

// Reads the data of all the layer's channels at the reader's position and fills layer.image and
// layer.mask.data. kShortRead, kBadCompression, the codes of DecodePlanes, and kOutOfMemory, also for layers
// that claim far more than their data fills.
PsdReadResult ReadLayerPixels(PsdDocument& document, PsdLayer& layer, LayerPixelState& state);

}  // namespace tessary
