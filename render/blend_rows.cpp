#include "render/blend_rows.h"

#include "render/blend_loops.h"

namespace tessary {

namespace avx2 {
BlendRowFunction SelectRow(PsdBlendMode mode, bool fast, bool ranges);  // compiled by itself
}

BlendRowFunction SelectBlendRow(PsdBlendMode mode, bool fast, bool ranges, VectorPath path) {
    return path == VectorPath::kAvx2 ? avx2::SelectRow(mode, fast, ranges)
                                     : sse2::SelectRow(mode, fast, ranges);
}

}  // namespace tessary
