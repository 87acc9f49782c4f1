// The channel data of one layer: its pixels and its mask.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// The planes that a layer can have a use for. Other channels are passed over, as are those that repeat an id.
enum PlaneSlot : uint32_t {
    kSlotAlpha,
    kSlotColor,
    kSlotMask = kSlotColor + 4,
    kSlotDropped,  // the user mask beside a real one
    kSlotCount,
};

// Buffers that the reading of one layer leaves to that of the next.
struct LayerPixelState {
    Owned<uint8_t> slots[kSlotCount];  // packed and raw planes as they came, others inflated
    Owned<uint8_t> zipped;
    Owned<uint8_t> steps;
};

// Reads the data of all the layer's channels at the reader's position and fills layer.image and
// layer.mask.data. kShortRead, kBadCompression, the codes of DecodePlanes, and kOutOfMemory, also for layers
// that claim far more than their data fills.
PsdReadResult ReadLayerPixels(PsdDocument& document, PsdLayer& layer, LayerPixelState& state);

}  // namespace tessary
