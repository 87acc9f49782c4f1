// The loops over pixels that exist once for each set of vector instructions.
#pragma once

#include <cstddef>
#include <cstdint>

#include "render/blend_rows.h"

namespace tessary {

struct BlurJob;
struct HueMap;
struct SelectiveMap;

// All sets give the same pixels.
struct Kernels {
    // The function that draws a layer.
    //   mode     the layer's effective mode; one that is no mode of a layer changes alpha only
    //   fast     the layer is Normal of its own and in no group that has a mode: only then full opacity
    //   copies ranges   the layer has blending ranges or excluded channels
    BlendRowFunction (*selectBlendRow)(PsdBlendMode mode, bool fast, bool ranges);

    // Both keep the alpha bytes; `in` may be `out`.
    void (*mapHueRow)(const HueMap& map, const uint32_t* in, uint32_t* out, size_t count);
    void (*mapSelectiveRow)(const SelectiveMap& map, const uint32_t* in, uint32_t* out, size_t count);

    void (*blurAlpha)(const BlurJob& job);
};

namespace sse2 {
extern const Kernels kKernels;  // every 64-bit processor has these
}

// Those for the widest registers that processor and system support; found out once, when the program starts.
const Kernels& WidestKernels();

}  // namespace tessary
