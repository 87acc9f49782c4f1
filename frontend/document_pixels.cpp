#include "frontend/document_pixels.h"

namespace tessary {

PsdReadResult DecodeDocumentPixels(IStream*, DocumentPixels&) { return PsdReadResult::kNoStream; }

}  // namespace tessary
