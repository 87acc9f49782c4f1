// What is settled before a pixel is blended: how much of it the mask and the blending ranges leave, and what
// the layer's group makes of its mode and opacity.
#pragma once

#include <cstddef>
#include <cstdint>

#include "document/psd_document.h"

namespace tessary {

// The opacity 0..255 that opacity, fill and the group (null: none) leave.
uint32_t EffectiveOpacity(uint8_t opacity, uint8_t fillOpacity, const PsdLayer* group);

// The group's mode unless there is no group or it passes through.
PsdBlendMode EffectiveMode(PsdBlendMode mode, const PsdLayer* group);

// Whether the layer's group, if any, lets its members blend on their own.
bool GroupPassesThrough(const PsdLayer* group);

// Whether nothing stands between the layer's pixels and the canvas: Normal, at full opacity, without mask,
// ranges and excluded channels.
bool IsPlain(const PsdDocument& document, const PsdLayer& layer);

// The alpha of `count` layer pixels, lowered by the mask unless that is disabled, for the canvas positions
// (x + i, y).
void CoverageRow(const uint32_t* layer, size_t count, const PsdLayerMask& mask, int32_t x, int32_t y,
                 uint8_t* coverage);

// Values low..high of a channel or of the grey of a pixel, both inclusive; low above high lets nothing
// through.
struct BlendSpan {
    uint8_t low = 0;
    uint8_t high = 255;
};

struct PixelSpans {
    BlendSpan gray, red, green, blue;
};

// A layer's blending ranges and excluded channels, ready for use.
struct BlendGate {
    bool drawsNothing = false;  // all colours are excluded, or the layer's gray range has no width
    bool open = true;           // every pixel passes
    uint32_t keep = 0;          // 0x00RRGGBB, 255 in excluded channels
    PixelSpans layer;
    PixelSpans canvas;
};

// Whether the layer has any range that is not full, an excluded channel, or the flag that asks for the gate.
bool NeedsBlendGate(const PsdLayer& layer);
BlendGate BlendGateOf(const PsdLayer& layer);

}  // namespace tessary
