// The top of the engine: the layers of a document become its canvas.
#pragma once

#include <cstdint>

#include "document/psd_document.h"

namespace tessary {

// Composites all layers, bottom first, inside the rectangle (canvas coordinates, clamped to the document) and
// leaves the result in document->canvas. A canvas that is there already is reused, and keeps what lies
// outside the rectangle. Adjustments and effects that would take much more time or memory than the document's
// own pixels are left out; some drawn effects are kept for the next call.
//   seed   of the dissolve pattern; 0 takes the clock. Only the first call for a document uses it.
// kNoDocument, kEmptyArea (nothing of the rectangle lies in the document), kOutOfMemory.
PsdReadResult Render(PsdDocument* document, int32_t x, int32_t y, int32_t width, int32_t height,
                     uint64_t seed = 0);

}  // namespace tessary
