// All kernels of the instruction set that pixel_vectors.h was asked for. One file for each set includes this.
#pragma once

#include "properties/adjustment_loops.h"
#include "properties/blur_loops.h"
#include "render/blend_loops.h"
#include "render/kernels.h"

namespace tessary::TESSARY_VECTORS {

extern const Kernels kKernels;  // what is constant is otherwise known to its own file only
const Kernels kKernels = {SelectRow, MapHueRow, MapSelectiveRow, BlurAlpha};

}  // namespace tessary::TESSARY_VECTORS
