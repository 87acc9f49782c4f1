// The channel data of one layer: its pixels and its mask.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// What one layer's reading leaves to the next: the scratch buffers, and what all layers together have claimed
// and how much of it their data has really filled so far.
struct LayerPixelState {
    Owned<uint8_t> planes;  // all zero between layers
    Owned<uint8_t> input;
    uint64_t claimedBytes = 0;
    uint64_t filledBytes = 0;
};

// Reads the data of all the layer's channels at the reader's position and fills layer.image and
// layer.mask.data. kShortRead, kBadCompression, the codes of DecodePlanes, and kOutOfMemory, also for layers
// that claim far more than their data fills.
PsdReadResult ReadLayerPixels(PsdDocument& document, PsdLayer& layer, LayerPixelState& state);

}  // namespace tessary
