// The tagged blocks at the end of a layer record.
#pragma once

#include "document/psd_document.h"

namespace tessary {

// Reads blocks until `length` bytes have been consumed since `start`, both of the record's extra data. Keys
// that nobody knows are skipped. kBadBlockSignature, kBadDividerSignature, kOutOfMemory, and the codes of the
// property readers.
PsdReadResult ReadTaggedBlocks(PsdDocument& document, PsdLayer& layer, uint32_t start, uint32_t length);

}  // namespace tessary
