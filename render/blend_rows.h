// The innermost loops: a run of layer pixels onto a run of canvas pixels.
#pragma once

#include <cstddef>
#include <cstdint>

#include "document/psd_document.h"
#include "render/vector_path.h"

namespace tessary {

// A run is short enough for its intermediate rows to stay in the fastest cache.
inline constexpr size_t kBlendRunPixels = 512;

// What one call draws. `canvas` and `layer` do not overlap.
struct BlendRun {
    uint32_t* canvas = nullptr;
    const uint32_t* layer = nullptr;
    const uint8_t* coverage = nullptr;  // the layer's alpha after mask and ranges; 0 leaves the canvas pixel.
                                        // Null: the layer's own alpha
    const uint8_t* noise = nullptr;     // the dissolve pattern at these pixels; only dissolve looks at it
    size_t count = 0;
};

// What holds for a whole layer.
struct BlendSettings {
    uint32_t opacity = 255;  // the layer's effective one
    uint32_t keep = 0;       // 0x00RRGGBB, 255 in the channels that keep the canvas value
};

using BlendRowFunction = void (*)(const BlendRun& run, const BlendSettings& settings);

// The function that draws a layer.
//   mode     the layer's effective mode; one that is no mode of a layer changes alpha only
//   fast     the layer is Normal of its own and in no group that has a mode: only then full opacity copies
//   ranges   the layer has blending ranges or excluded channels
//   path     one that the processor has; all give the same pixels
BlendRowFunction SelectBlendRow(PsdBlendMode mode, bool fast, bool ranges, VectorPath path);

}  // namespace tessary
