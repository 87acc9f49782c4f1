// The innermost loops: a run of layer pixels onto a run of canvas pixels.
#pragma once

#include <cstddef>
#include <cstdint>

#include "document/psd_document.h"
#include "render/coverage.h"

namespace tessary {

// A run is short enough for its intermediate rows to stay in the fastest cache.
inline constexpr size_t kBlendRunPixels = 512;

// What one call draws. `canvas` and `layer` do not overlap.
struct BlendRun {
    uint32_t* canvas = nullptr;
    const uint32_t* layer = nullptr;
    const uint8_t* coverage = nullptr;  // the layer's alpha after the mask; 0 leaves the canvas pixel. Null:
                                        // the layer's own alpha
    const uint8_t* noise = nullptr;     // the dissolve pattern at these pixels; only dissolve looks at it
    size_t count = 0;
};

// What holds for a whole layer.
struct BlendSettings {
    uint32_t opacity = 255;  // the layer's effective one
    uint32_t keep = 0;       // 0x00RRGGBB, 255 in the channels that keep the canvas value
    // Where the layer's or the canvas's pixel lies outside its spans the canvas pixel stays. Null: all pass.
    const BlendGate* gate = nullptr;
    bool emptyPasses = false;  // a canvas pixel of alpha 0 is not looked at, nor is the layer's over it
};

using BlendRowFunction = void (*)(const BlendRun& run, const BlendSettings& settings);

}  // namespace tessary
