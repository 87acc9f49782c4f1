// One picture onto the canvas: a layer, or a buffer that an effect has drawn for it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "document/psd_document.h"

namespace tessary {

// What CompositeLayer draws. Borrows everything.
struct CompositeSource {
    const uint32_t* pixels = nullptr;
    size_t rowPixels = 0;  // words from one row of pixels to the next
    Rect bounds;           // where the first pixel lies and how far they go, canvas coordinates
    Rect covered;          // beyond it all pixels are transparent, canvas coordinates
    PsdBlendMode blendMode = kBlendNormal;
    uint8_t opacity = 255;
    uint8_t fillOpacity = 255;
    const PsdLayerMask* mask = nullptr;  // null: unmasked
    const PsdLayer* layer = nullptr;     // whose group, blending ranges and excluded channels hold; not null
};

// The layer itself as a source: its pixels, bounds, mode, opacities and mask.
CompositeSource CompositeSourceOf(const PsdLayer& layer);

// Composites `source` onto the canvas inside `area` (canvas coordinates, already clipped to the canvas and to
// the source's bounds), and marks its tiles, which ClearTiles has made, as painted. Pixels of coverage 0 keep
// every bit. The first one that dissolves makes the document's noise map: kOutOfMemory without it.
PsdReadResult CompositeLayer(PsdDocument& document, const CompositeSource& source, const Rect& area);

}  // namespace tessary
